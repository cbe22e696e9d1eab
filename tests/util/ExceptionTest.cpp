// Exception formatting, copying, slicing assignment and the class tree.
#include <dlfcn.h>
#include <netdb.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <fstream>
#include <locale>
#include <memory>
#include <new>
#include <sstream>
#include <type_traits>

#include <gtest/gtest.h>

#include <quorel/quorel.h>

#include "support/expect.h"

namespace quorel {
namespace {

using sal::i::err::domain::code;

quorel::Exception make(int domain, int errorCode, const std::string& aux = std::string()) {
  return quorel::Exception("void f()", "something failed", static_cast<code>(domain), errorCode,
                           "util/x.cpp", 42, aux);
}

// Each domain: its name, and a message part only where the code means something.
TEST(ExceptionFormat, DomainsCodesAndMessages) {
  std::ostringstream out;
  out << make(0, 7);
  EXPECT_EQ(out.str(),
            "quorel::Exception: where='void f() (42@util/x.cpp)' why='something failed' "
            "domain='application-specific error (0)' code='7 (0x7)'");
  EXPECT_EQ(make(0, 7).asSimpleString(), "something failed");
  for (int domain : {1, 2, 6}) {
    const std::string s = make(domain, EACCES).asString();
    const std::string tail = "code='13 (0xd)' message='" + std::string(std::strerror(EACCES)) + "'";
    EXPECT_EQ(s.substr(s.size() - tail.size()), tail) << domain;
  }
  EXPECT_EQ(make(2, EACCES).asSimpleString(), "something failed - " + std::string(std::strerror(EACCES)));
  EXPECT_NE(make(0, -1).asString().find("code='-1 (0xffffffff)'"), std::string::npos);
  EXPECT_NE(make(2, -2147483647 - 1).asString().find("code='-2147483648 (0x80000000)'"), std::string::npos);
  const std::string resolution = make(4, EAI_NONAME).asString();
  EXPECT_NE(resolution.find("domain='network address or host name resolution error (4)'"), std::string::npos);
  EXPECT_NE(resolution.find("message='" + std::string(gai_strerror(EAI_NONAME)) + "'"), std::string::npos);
  for (int domain : {7, -1}) {
    const std::string s = make(domain, 3).asString();
    EXPECT_NE(s.find("domain='unknown error domain (" + std::to_string(domain) + ")' code='3 (0x3)' "
                     "message='unknown error code'"), std::string::npos) << s;
  }
}

TEST(ExceptionFormat, DynamicLinkerTextIsReadWhenFormattedAndOnlyOnce) {
  ASSERT_EQ(::dlopen("/nonexistent/libquorel-missing.so", RTLD_NOW), nullptr);
  const quorel::Exception e = make(3, 0);
  const std::string first = e.asString();
  EXPECT_NE(first.find("domain='dynamic linker error (3)'"), std::string::npos);
  EXPECT_NE(first.find("libquorel-missing.so"), std::string::npos) << first;
  EXPECT_NE(e.asString().find("message='unknown error code'"), std::string::npos);
}

TEST(ExceptionFormat, SCSIStatusTableMatchesExactValuesOnly) {
  const struct {
    int code;
    const char* text;
  } cases[] = {
      {0x00, "GOOD"},
      {0xd0000, "SG_IO host_status 0x0d DID_REQUEUE"},
      {0x8000000, "SG_IO driver_status 0x08 DRIVER_SENSE"},
      {0x8000002, "*Reserved*"},  // combinations are not decomposed
      {0x100, "unknown error code"},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(sal::err::asString(c.code, sal::i::err::domain::kSCSICDB), c.text) << std::hex << c.code;
  }
  EXPECT_EQ(sal::err::asString(sal::i::err::domain::kSCSICDB), "SCSI CDB error");
}

TEST(ExceptionFormat, SCSIDomainAppendsSenseRenderings) {
  std::string sense(18, '\0');
  sense[0] = 0x70;
  sense[2] = 0x05;
  sense[12] = 0x24;
  const quorel::Exception e = make(5, 0x8000002, sense);
  const std::string s = e.asString();
  EXPECT_NE(s.find("message='*Reserved*' kcq='05/24/00 (ILLEGAL REQUEST / INVALID FIELD IN CDB)'"), std::string::npos)
      << s;
  EXPECT_NE(s.find("' senseData='70000500 00000000 00000000 24000000 0000'"), std::string::npos) << s;
  // Empty sense data still renders both parts.
  EXPECT_NE(make(5, 2).asString().find("senseData=''"), std::string::npos);
}

// Groups of three digits separated by commas.
struct Thousands : std::numpunct<char> {
  char do_thousands_sep() const override { return ','; }
  std::string do_grouping() const override { return "\3"; }
};

TEST(ExceptionFormat, NumbersIgnoreTheGlobalLocale) {
  const quorel::Exception e("f()", "failed", sal::i::err::domain::kApplication, 12345, "f.inl", 1234, "");
  const std::locale previous = std::locale::global(std::locale(std::locale::classic(), new Thousands));
  const std::string text = e.asString();
  std::locale::global(previous);
  EXPECT_EQ(text, "quorel::Exception: where='f() (1234@f.inl)' why='failed' domain='application-specific error (0)' "
                  "code='12345 (0x3039)'");
}

TEST(ExceptionCopy, KeepsAuxDataWithItsNULBytes) {
  const std::string aux("\x00\x01\x00\x02", 4);
  const quorel::sal::xio::SCSIReadException original("w()", "why", sal::i::err::domain::kSCSICDB, 2,
                                                     "sal/f.inl", 9, aux);
  const quorel::sal::xio::SCSIReadException copy(original);
  EXPECT_EQ(copy.asString(), original.asString());
  EXPECT_EQ(copy.auxData(), aux);
}

TEST(ExceptionAssign, SlicesTargetToRootClassAndSelfAssignmentKeepsObject) {
  const sal::sys::Exception source("s()", "source", sal::i::err::domain::kSystemCall, 5, "a.inl", 1,
                                   "");
  // Held through the root class and deleted virtually: after the assignment the
  // object really is a quorel::Exception.
  std::unique_ptr<quorel::Exception> target(
      new sal::io::Exception("t()", "target", sal::i::err::domain::kApplication, 0, "b.inl", 2, ""));
  *target = source;
  EXPECT_EQ(target->asString().rfind("quorel::Exception: where='s() (1@a.inl)' why='source'", 0), 0u)
      << target->asString();
  EXPECT_TRUE(typeid(*target) == typeid(quorel::Exception));
  EXPECT_EQ(target->code(), 5);
  // Assigning an object to itself keeps it whole.
  sal::io::Exception e("t()", "target", sal::i::err::domain::kSystemCall, 4, "b.inl", 2, "");
  quorel::Exception& ref = e;
  ref = *&ref;
  EXPECT_TRUE(typeid(ref) == typeid(sal::io::Exception));
  EXPECT_EQ(ref.why(), "target");
}

// A caller's exception that owns its cause (the library's classes add no field).
class Chained : public quorel::Exception {
 public:
  Chained(const quorel::Exception& outer, const quorel::Exception& inner)
      : quorel::Exception(outer), cause(new quorel::Exception(inner)) {}
  std::unique_ptr<quorel::Exception> cause;
};

TEST(ExceptionAssign, FromAnExceptionThatTheTargetOwns) {
  const std::string why = "a cause whose message is longer than a short string";
  // In storage of its own: after the assignment a smaller quorel::Exception lives there.
  alignas(Chained) unsigned char storage[sizeof(Chained)];
  quorel::Exception* target = new (storage) Chained(make(0, 1), quorel::Exception(
      "cause()", why, sal::i::err::domain::kSystemCall, 9, "c.inl", 3, "aux"));
  *target = *static_cast<Chained*>(target)->cause;  // destroying the target frees the source
  EXPECT_STREQ(target->where(), "cause()");
  EXPECT_EQ(target->why(), why);
  EXPECT_EQ(target->code(), 9);
  EXPECT_EQ(target->auxData(), "aux");
  EXPECT_TRUE(typeid(*target) == typeid(quorel::Exception));
  target->~Exception();
}

TEST(ExceptionAssign, ACopyThatCannotAllocateLeavesTheTargetAsItWas) {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
  GTEST_SKIP() << "the sanitizer runtimes map more address space than a limit set here allows";
#else
  const pid_t pid = ::fork();
  if (pid == 0) {
    const quorel::Exception source("s()", std::string(64 << 20, 'x'), sal::i::err::domain::kApplication, 0, "s.inl",
                                   1, "");
    sal::io::Exception target("t()", "target", sal::i::err::domain::kSystemCall, 4, "t.inl", 2, "");
    // Room for 16 MiB more than is mapped now: the 64 MiB message cannot be copied.
    long pages = 0;
    std::ifstream("/proc/self/statm") >> pages;
    const rlim_t room = static_cast<rlim_t>(pages) * static_cast<rlim_t>(::sysconf(_SC_PAGESIZE)) + (16 << 20);
    const rlimit limit{room, room};
    ::setrlimit(RLIMIT_AS, &limit);
    try {
      static_cast<quorel::Exception&>(target) = source;
    } catch (const std::bad_alloc&) {
      const bool whole = target.asString().rfind("quorel::sal::io::Exception: where='t() (2@t.inl)' why='target'", 0) == 0;
      ::_exit(whole ? 0 : 1);
    }
    ::_exit(2);
  }
  int status = 0;
  ASSERT_EQ(::waitpid(pid, &status, 0), pid);
  ASSERT_TRUE(WIFEXITED(status)) << "the child ended by signal " << WTERMSIG(status);
  EXPECT_NE(WEXITSTATUS(status), 2) << "the copy did not fail under the limit";
  EXPECT_EQ(WEXITSTATUS(status), 0) << "the target was destroyed by the failed assignment";
#endif
}

template <class Derived, class Base>
constexpr bool derivesDirectly() {
  return std::is_base_of<Base, Derived>::value && !std::is_same<Base, Derived>::value;
}

TEST(ExceptionTree, ClassesDeriveAsDocumentedAndPrintTheirDemangledNames) {
  using namespace quorel::sal;
  static_assert(derivesDirectly<quorel::Exception, std::exception>());
  static_assert(derivesDirectly<io::TimeoutException, sal::Exception>());
  static_assert(!std::is_base_of<io::Exception, io::TimeoutException>::value);
  static_assert(derivesDirectly<xio::AIOCancellationException, xio::AIOCompletionException>());
  // No class adds a field.
  static_assert(sizeof(xio::NetworkUnreachableException) == sizeof(quorel::Exception));
  // ExitException stays outside the tree so that no handler swallows an exit.
  static_assert(std::is_empty<sys::exec::ExitException>::value);
  static_assert(!std::is_base_of<std::exception, sys::exec::ExitException>::value);
  // asString() names the dynamic type, demangled.
  const sal::xio::ConnectionRefusedException e("c()", "refused", sal::i::err::domain::kSystemCall, 111,
                                          "x.inl", 3, "");
  EXPECT_EQ(e.asString().rfind("quorel::sal::xio::ConnectionRefusedException: where='c() (3@x.inl)'", 0),
            0u);
}

constexpr int kThrowLine = __LINE__ + 3;
template <class T>
void throwFromTemplate(T) {
  QUOREL_THROW(InvalidArgumentException)("bad value", sal::i::err::domain::kApplication, 3);
}

TEST(ThrowMacro, RecordsSignatureWithTemplateArgumentsRealLineAndRelativePath) {
  auto e = test::caught<InvalidArgumentException>([] { throwFromTemplate(7); });
  ASSERT_TRUE(e);
  EXPECT_STREQ(e->where(), "void quorel::{anonymous}::throwFromTemplate(T) [with T = int]");
  EXPECT_EQ(e->line(), kThrowLine);
  EXPECT_STREQ(e->file(), util::site::relative(__FILE__));
  // The relative path strips up to the last project directory.
  EXPECT_STREQ(util::site::relative("/w/quorel/src/quorel/sal/sys/time.inl"), "sal/sys/time.inl");
  EXPECT_STREQ(util::site::relative("sal/impl/vm.inl"), "sal/impl/vm.inl");
}

}  // namespace
}  // namespace quorel
