// The fault injection helpers themselves.
#include <sys/time.h>

#include <cerrno>
#include <stdexcept>

#include <gtest/gtest.h>

#include <quorel/quorel.h>

#include "support/fault.h"

namespace quorel {
namespace {

TEST(FaultInjection, FailsTheNthLibraryCallOnly) {
  test::fault::Injection fail("gettimeofday", EINVAL, 2);
  EXPECT_NO_THROW(sal::time::micro::now());
  EXPECT_THROW(sal::time::micro::now(), sal::sys::Exception);
  EXPECT_NO_THROW(sal::time::micro::now());
  EXPECT_EQ(test::fault::calls("gettimeofday"), 2);
}

TEST(FaultInjection, LeavesCallsFromOutsideTheLibraryAlone) {
  test::fault::Injection fail("gettimeofday", EINVAL);
  timeval tv;
  EXPECT_EQ(::gettimeofday(&tv, nullptr), 0);
  EXPECT_THROW(sal::time::micro::now(), sal::sys::Exception);
}

TEST(FaultInjection, FailsSeveralCallsInARow) {
  test::fault::Injection fail("valloc", ENOMEM, 1, 2);
  EXPECT_THROW(sal::vm::allocate(1), sal::vm::Exception);
  EXPECT_THROW(sal::vm::allocate(1), sal::vm::Exception);
  void* block = sal::vm::allocate(1);
  sal::vm::deallocate(block);
}

TEST(FaultInjection, RejectsFunctionsThatAreNotInterposed) {
  EXPECT_THROW(test::fault::inject("no_such_function", EIO), std::invalid_argument);
}

}  // namespace
}  // namespace quorel
