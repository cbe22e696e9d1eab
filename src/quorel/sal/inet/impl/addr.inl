// Platform half of the internet addresses: getnameinfo, getaddrinfo and the
// byte arithmetic of masks.
#include <quorel/sal/inet/impl/addr.h>

#include <arpa/inet.h>
#include <netdb.h>

#include <cstring>

#include <quorel/sal/inet/Exception.h>
#include <quorel/util/Throw.h>
#include <quorel/util/byte.h>
#include <quorel/util/pod.h>

namespace quorel {
namespace sal {
namespace inet {
namespace impl {
namespace addr {

namespace {

// The first k bits set, in network order.
pod::uint32 maskWord(int k) {
  return k <= 0 ? 0 : htonl(k >= 32 ? 0xffffffffu : ~(0xffffffffu >> k));
}

// The address bytes of the family's structure, and how many there are.
const unsigned char* bytesOf(const sockaddr& address, int& count) {
  if (address.sa_family == AF_INET) {
    count = 4;
    return reinterpret_cast<const unsigned char*>(&reinterpret_cast<const sockaddr_in&>(address).sin_addr);
  }
  if (address.sa_family == AF_INET6) {
    count = 16;
    return reinterpret_cast<const sockaddr_in6&>(address).sin6_addr.s6_addr;
  }
  count = 0;
  return nullptr;
}

}  // namespace

namespace str {

const std::string from(const sockaddr& address) {
  if (address.sa_family == 0) return std::string();
  char host[NI_MAXHOST];
  const socklen_t length = address.sa_family == AF_INET ? sizeof(sockaddr_in) : sizeof(sockaddr_in6);
  const int result = ::getnameinfo(&address, length, host, sizeof host, nullptr, 0, NI_NUMERICHOST);
  if (result != 0) {
    QUOREL_THROW(inet::Exception)("failed convert a socket address to string", sal::i::err::domain::kAddressResolution,
                                  result);
  }
  return host;
}

void to(sockaddr& address, const std::string& text) {
  addrinfo hints;
  std::memset(&hints, 0, sizeof hints);
  hints.ai_flags = AI_NUMERICHOST;
  hints.ai_family = address.sa_family == AF_INET ? AF_INET : AF_INET6;
  addrinfo* results = nullptr;
  // The resolver would read a text with a NUL in it only up to the NUL: such
  // a text names no host, as the resolver itself says of one it cannot read.
  const bool whole = text.find('\0') == std::string::npos;
  const int result = whole ? ::getaddrinfo(text.c_str(), nullptr, &hints, &results) : EAI_NONAME;
  if (result != 0) {
    QUOREL_THROW(inet::Exception)("::getaddrinfo('" + text + "') failed", sal::i::err::domain::kAddressResolution,
                                  result);
  }
  if (results == nullptr) {
    QUOREL_THROW(inet::Exception)("::getaddrinfo('" + text + "') returned no result",
                                  sal::i::err::domain::kAddressResolution, 0);
  }
  // The whole socket address is replaced: its port becomes the resolver's 0.
  std::memcpy(&address, results->ai_addr, results->ai_addrlen);
  ::freeaddrinfo(results);
}

}  // namespace str

int prefixLengthOf(const sockaddr& address) {
  int count = 0;
  const unsigned char* bytes = bytesOf(address, count);
  int whole = 0;
  while (whole < count && bytes[whole] == 255) ++whole;
  if (whole == count) return 8 * whole;
  static const unsigned char kMaskBytes[] = {0, 128, 192, 224, 240, 248, 252, 254};
  int partial = 8;  // not a mask byte
  for (int ones = 0; ones < 8; ++ones) {
    if (bytes[whole] == kMaskBytes[ones]) partial = ones;
  }
  return 8 * whole + partial;
}

void createMaskOn(sockaddr& address, int prefixLength) {
  if (address.sa_family == AF_INET) {
    reinterpret_cast<sockaddr_in&>(address).sin_addr.s_addr = maskWord(prefixLength);
    return;
  }
  pod::uint32 words[4] = {0, 0, 0, 0};
  int word = 0;
  for (; word < prefixLength / 32 && word < 4; ++word) words[word] = 0xffffffffu;
  if (word < 4) words[word] = maskWord(prefixLength % 32);
  std::memcpy(reinterpret_cast<sockaddr_in6&>(address).sin6_addr.s6_addr, words, sizeof words);
}

unsigned short portOf(const sockaddr_in& address) { return ntohs(address.sin_port); }
unsigned short portOf(const sockaddr_in6& address) { return ntohs(address.sin6_port); }
void setPortOf(sockaddr_in& address, unsigned short port) { address.sin_port = htons(port); }
void setPortOf(sockaddr_in6& address, unsigned short port) { address.sin6_port = htons(port); }

}  // namespace addr
}  // namespace impl
}  // namespace inet
}  // namespace sal
}  // namespace quorel

namespace {

// The 16 address bytes as two 64-bit halves in host order, high half first.
void halvesOf(const in6_addr& a, quorel::pod::uint64& high, quorel::pod::uint64& low) {
  std::memcpy(&high, a.s6_addr, 8);
  std::memcpy(&low, a.s6_addr + 8, 8);
  high = quorel::util::byte::order::naturalized(high);
  low = quorel::util::byte::order::naturalized(low);
}

}  // namespace

bool operator<(in_addr a, in_addr b) { return ntohl(a.s_addr) < ntohl(b.s_addr); }

bool operator<(const sockaddr_in& a, const sockaddr_in& b) { return a.sin_addr < b.sin_addr; }

bool operator<(const in6_addr& a, const in6_addr& b) {
  quorel::pod::uint64 aHigh, aLow, bHigh, bLow;
  halvesOf(a, aHigh, aLow);
  halvesOf(b, bHigh, bLow);
  return aHigh < bHigh || (aHigh == bHigh && aLow < bLow);
}

bool operator<(const sockaddr_in6& a, const sockaddr_in6& b) {
  if (a.sin6_addr < b.sin6_addr) return true;
  if (!(a.sin6_addr == b.sin6_addr)) return false;
  return ntohl(a.sin6_scope_id) < ntohl(b.sin6_scope_id);
}

bool operator==(const in6_addr& a, const in6_addr& b) { return std::memcmp(a.s6_addr, b.s6_addr, 16) == 0; }

bool operator==(const sockaddr_in6& a, const sockaddr_in6& b) {
  return a.sin6_addr == b.sin6_addr && a.sin6_scope_id == b.sin6_scope_id;
}
