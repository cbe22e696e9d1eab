// Fuzzes the DMI structure walker and the entry-point search with arbitrary
// tables: no crash, no read outside the input.
#include <cstddef>
#include <cstdint>
#include <vector>

#include <quorel/sal/impl/hostinfo.h>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  namespace dmi = quorel::sal::impl::hostinfo::dmi;
  // An exact-size copy, so that any read past the end is seen.
  const std::vector<unsigned char> table(data, data + size);
  dmi::identityFrom(table.data(), table.size());
  quorel::pod::uint64 address = 0;
  quorel::pod::uint32 length = 0;
  dmi::tableFrom(table.data(), table.size(), address, length);
  return 0;
}
