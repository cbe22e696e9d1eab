// Page-aligned memory.
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstring>

#include <gtest/gtest.h>

#include <quorel/quorel.h>

#include "support/expect.h"
#include "support/fault.h"

namespace quorel {
namespace {

TEST(VirtualMemory, AllocatesPageAlignedWritableBlocks) {
  const long page = ::sysconf(_SC_PAGESIZE);
  for (size_t size : {size_t{1}, size_t{4096}, size_t{1} << 20}) {
    void* block = sal::vm::allocate(size);
    ASSERT_NE(block, nullptr);
    EXPECT_EQ(reinterpret_cast<std::uintptr_t>(block) % page, 0u);
    std::memset(block, 0xab, size);
    sal::vm::deallocate(block);
  }
  sal::vm::deallocate(nullptr);
}

TEST(VirtualMemory, FailedVallocThrowsCRuntimeErrorCaughtThroughItsBases) {
  test::fault::Injection fail("valloc", ENOMEM);
  auto e = QUOREL_EXPECT_THROW(sal::vm::allocate(64), sal::vm::Exception, "::valloc() failed", 1,
                               ENOMEM);
  ASSERT_TRUE(e);
  EXPECT_STREQ(e->where(), "void* quorel::sal::impl::vm::allocate(size_t)");
  EXPECT_STREQ(e->file(), "sal/impl/vm.inl");
  EXPECT_EQ(e->asSimpleString(), std::string("::valloc() failed - ") + std::strerror(ENOMEM));
  const std::string text = e->asString();
  EXPECT_EQ(text.rfind("quorel::sal::vm::Exception: where='void* quorel::sal::impl::vm::allocate(size_t) (", 0),
            0u);
  EXPECT_NE(text.find("@sal/impl/vm.inl)' why='::valloc() failed' domain='C runtime library error (1)' "
                      "code='12 (0xc)' message='"),
            std::string::npos)
      << text;
  // Library exceptions are caught through their bases.
  test::fault::inject("valloc", ENOMEM);
  EXPECT_THROW(sal::vm::allocate(8), sal::Exception);
  test::fault::inject("valloc", ENOMEM);
  EXPECT_THROW(sal::vm::allocate(8), quorel::Exception);
}

}  // namespace
}  // namespace quorel
