// Fuzzes the numeric address texts and the mask arithmetic of inet::Address.
// The input is up to four lines of TEXT or TEXT/PREFIX; each text is tried in
// the three family codes. Beyond "no crash" it checks that a text that
// converts comes back equal from its own rendering, that the prefix length
// read from any address follows the lenient rule, that a mask of any accepted
// length reads back that length (and any other length is refused), that
// network <= address <= broadcast, and that equality and ordering agree.
#include <netinet/in.h>
#include <sys/socket.h>

#include <cstddef>
#include <cstdint>
#include <list>
#include <string>
#include <vector>

#include <quorel/quorel.h>

#include "check.h"

namespace {

using quorel::sal::inet::Address;
namespace family = quorel::sal::inet::i::family;

const size_t kLines = 4;

// The address bytes of an IPv4 or IPv6 address.
const unsigned char* bytesOf(const Address& address, int& count) {
  const sockaddr& key = address.key();
  if (key.sa_family == AF_INET) {
    count = 4;
    return reinterpret_cast<const unsigned char*>(&reinterpret_cast<const sockaddr_in&>(key).sin_addr);
  }
  count = 16;
  return reinterpret_cast<const sockaddr_in6&>(key).sin6_addr.s6_addr;
}

// The lenient prefix length, worked out independently of the library: 8 for
// every leading 255 byte, then the leading ones of the first other byte if it
// is a contiguous mask byte (0x00, 0x80, ... 0xFE) and 8 if it is not.
int lenientPrefixOf(const Address& address) {
  int count = 0;
  const unsigned char* bytes = bytesOf(address, count);
  int whole = 0;
  while (whole < count && bytes[whole] == 0xFF) ++whole;
  if (whole == count) return 8 * count;
  int partial = 8;
  for (int ones = 0; ones < 8; ++ones) {
    if (bytes[whole] == static_cast<unsigned char>(0xFF00 >> ones)) partial = ones;
  }
  return 8 * whole + partial;
}

void checkMask(const Address& address, int length) {
  const int most = address.family() == family::kIPv4 ? 32 : 128;
  Address mask;
  try {
    mask = Address::createMask(address.family(), length);
  } catch (const quorel::InvalidArgumentException& e) {
    QUOREL_FUZZ_CHECK(static_cast<unsigned int>(length) > static_cast<unsigned int>(most));
    QUOREL_FUZZ_CHECK(e.code() == length);
    return;
  }
  QUOREL_FUZZ_CHECK(static_cast<unsigned int>(length) <= static_cast<unsigned int>(most));
  QUOREL_FUZZ_CHECK(mask.prefixLength() == length);
  QUOREL_FUZZ_CHECK(Address(mask.asString(), address.family()) == mask);
  const Address before = address.clone();
  Address network = address.clone();
  network.setMask(mask);
  Address byLength = address.clone();
  byLength.setMask(length);
  QUOREL_FUZZ_CHECK(byLength == network);
  const Address broadcast = Address::broadcastAddressFrom(address, mask);
  QUOREL_FUZZ_CHECK(address == before);  // both work on copies
  QUOREL_FUZZ_CHECK(!(address < network));
  QUOREL_FUZZ_CHECK(!(broadcast < address));
  Address broadcastNetwork = broadcast.clone();
  broadcastNetwork.setMask(mask);
  QUOREL_FUZZ_CHECK(broadcastNetwork == network);
  if (length == most) {
    QUOREL_FUZZ_CHECK(network == address);
    QUOREL_FUZZ_CHECK(broadcast == address);
  }
}

// The address of text in family code, with its checks; false if the text
// does not convert.
bool tryAddress(const std::string& text, family::code code, std::vector<Address>& parsed) {
  Address address;
  try {
    // The three-argument form for one family: its port is overwritten too.
    address = code == family::kUnspecified ? Address(text, code, 80) : Address(text, code);
  } catch (const quorel::sal::inet::Exception& e) {
    QUOREL_FUZZ_CHECK(e.domain() == quorel::sal::i::err::domain::kAddressResolution);
    return false;
  }
  QUOREL_FUZZ_CHECK(address.family() == (code == family::kIPv4 ? family::kIPv4 : family::kIPv6));
  QUOREL_FUZZ_CHECK(address.port() == 0);
  const std::string rendered = address.asString();
  const Address again(rendered, code);
  QUOREL_FUZZ_CHECK(again == address);
  QUOREL_FUZZ_CHECK(again.asString() == rendered);
  QUOREL_FUZZ_CHECK(address.prefixLength() == lenientPrefixOf(address));
  parsed.push_back(address);
  return true;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  namespace str = quorel::util::str;
  const std::string input(reinterpret_cast<const char*>(data), size);
  std::list<std::string> lines;
  str::cut(input, '\n', lines);
  std::vector<Address> parsed;
  size_t line = 0;
  for (auto it = lines.begin(); it != lines.end() && line < kLines; ++it, ++line) {
    std::string text, prefix;
    const bool hasPrefix = str::split(*it, text, prefix, '/');
    for (family::code code : {family::kUnspecified, family::kIPv4, family::kIPv6}) {
      if (!tryAddress(text, code, parsed) || !hasPrefix) continue;
      unsigned int length = 0;
      try {
        str::to(length, prefix);
      } catch (const quorel::util::str::Exception&) {
        continue;
      }
      checkMask(parsed.back(), static_cast<int>(length));
    }
  }
  for (const Address& a : parsed) {
    for (const Address& b : parsed) {
      const int holds = (a < b) + (b < a) + (a == b);
      QUOREL_FUZZ_CHECK(holds == 1);
      QUOREL_FUZZ_CHECK((a == b) == (b == a));
    }
  }
  return 0;
}
