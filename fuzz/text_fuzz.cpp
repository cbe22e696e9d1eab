// Fuzzes the text parsers: /proc/cpuinfo and release files, kernel
// releases, processor lists, numbers, versions, natural order and sense data.
#include <cstddef>
#include <cstdint>
#include <set>
#include <string>

#include <quorel/quorel.h>
#include <quorel/sal/impl/hostinfo.h>

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
  quorel::util::str::cmp::lessThan(half, text.substr(size / 2));
  try {
    parse::kernelVersion(text);
  } catch (const quorel::Exception&) {
  }
  try {
    quorel::util::Version version(text);
    version.asString();
  } catch (const quorel::Exception&) {
  }
  try {
    unsigned int number = 0;
    quorel::util::str::to(number, text);
  } catch (const quorel::Exception&) {
  }
  std::string sense(text);
  sense.resize(sense.size() < 32 ? 32 : sense.size(), '\0');
  quorel::sal::xio::scsi::sense::kcq::descriptionFrom(sense.data());
  quorel::sal::xio::scsi::sense::hexStringFrom(text.data(), static_cast<int>(size));
  return 0;
}
