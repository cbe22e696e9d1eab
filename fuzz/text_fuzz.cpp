// Fuzzes the text parsers: /proc/cpuinfo and release files, kernel releases,
// processor lists, numbers, versions, hexadecimal rendering and the natural
// order. Beyond "no crash" it checks that the direct decimal paths of str::to
// and str::from give what the stream gives, that hexFrom trims whole zero
// bytes, and that a version reads back from its text.
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <limits>
#include <locale>
#include <set>
#include <sstream>
#include <string>

#include <quorel/quorel.h>
#include <quorel/sal/impl/hostinfo.h>

#include "check.h"

namespace {

namespace str = quorel::util::str;

// str::to against the stream it stands for: the text trimmed under the
// classic locale, one value of Read extracted under the decimal flags alone.
template <class T, class Read>
void checkTo(const std::string& text) {
  T value = 0;
  bool converted = true;
  try {
    str::to(value, text);
  } catch (const str::Exception&) {
    converted = false;
  }
  std::istringstream in(str::trim(text, std::locale::classic()));
  in.flags(std::ios_base::dec);
  Read expected;
  in >> expected;
  QUOREL_FUZZ_CHECK(converted == !in.fail());
  if (converted) QUOREL_FUZZ_CHECK(value == static_cast<T>(expected));
}

// str::from in decimal against the stream.
template <class T>
void checkFrom(const std::string& text) {
  T value;
  if (text.size() < sizeof value) return;
  std::memcpy(&value, text.data(), sizeof value);
  std::ostringstream out;
  out.flags(std::ios_base::dec);
  out << +value;
  QUOREL_FUZZ_CHECK(str::from(value) == out.str());
}

// hexFrom<unsigned int>: eight upper-case digits, without the leading zero
// bytes unless they are kept; "0" for 0.
void checkHex(const std::string& text) {
  unsigned int value;
  if (text.size() < sizeof value) return;
  std::memcpy(&value, text.data(), sizeof value);
  std::ostringstream out;
  out << std::hex << std::uppercase;
  out.width(8);
  out.fill('0');
  out << value;
  const std::string all = out.str();
  QUOREL_FUZZ_CHECK(str::hexFrom(value, true) == all);
  size_t zeros = 0;
  while (zeros < all.size() && all.compare(zeros, 2, "00") == 0) zeros += 2;
  QUOREL_FUZZ_CHECK(str::hexFrom(value, false) == (zeros == all.size() ? "0" : all.substr(zeros)));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  namespace parse = quorel::sal::impl::hostinfo::parse;
  const std::string text(reinterpret_cast<const char*>(data), size);
  std::string name = "X86";
  bool vm = false;
  parse::cpuInfo(text, name, vm);
  parse::osName("Linux", parse::valueOf(text, "PRETTY_NAME"));
  parse::firstLine(text);
  std::set<int> processors;
  quorel::sal::impl::hostinfo::cpu::processorsFrom(text, processors);
  const std::string half = text.substr(0, size / 2);
  const std::string rest = text.substr(size / 2);
  str::cmp::lessThan(half, rest);
  QUOREL_FUZZ_CHECK(!str::cmp::lessThan(text, text));
  try {
    parse::kernelVersion(text);
  } catch (const quorel::Exception&) {
  }
  try {
    const quorel::util::Version version(text);
    QUOREL_FUZZ_CHECK(quorel::util::Version(version.asString()) == version);
  } catch (const quorel::Exception&) {
  }
  checkTo<unsigned char, unsigned int>(text);
  checkTo<unsigned short, unsigned short>(text);
  checkTo<unsigned int, unsigned int>(text);
  checkHex(text);
  checkFrom<unsigned char>(text);
  checkFrom<short>(text);
  checkFrom<int>(text);
  checkFrom<unsigned int>(text);
  checkFrom<long long>(text);
  checkFrom<unsigned long long>(text);
  return 0;
}
