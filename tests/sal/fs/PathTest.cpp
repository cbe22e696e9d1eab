// Path: the lexical operations on path texts, ordering, and absolute().
#include <errno.h>
#include <stdlib.h>
#include <unistd.h>

#include <string>

#include <gtest/gtest.h>

#include <quorel/quorel.h>

#include "support/expect.h"
#include "support/fault.h"

namespace quorel {
namespace {

using sal::fs::Path;

TEST(Path, NormalFormParentNameStemAndExtension) {
  struct Case {
    const char *text, *normal, *parent, *name, *stem, *extension;
  };
  const Case cases[] = {
      {"", "", "", "", "", ""},
      {"/", "/", "/", "", "", ""},
      {"//", "/", "/", "", "", ""},
      {".", ".", ".", ".", ".", ""},
      {"..", "..", ".", "..", "..", ""},
      {"a/", "a", ".", "a", "a", ""},
      {"//a//", "/a", "/", "a", "a", ""},
      {"a//b///", "a/b", "a", "b", "b", ""},
      {"a/./b/../c", "a/c", "a/./b/..", "c", "c", ""},
      {"/..", "/", "/", "..", "..", ""},
      {"/../a/..", "/", "/../a", "..", "..", ""},
      {"/a/../../b", "/b", "/a/../..", "b", "b", ""},
      {"../../a", "../../a", "../..", "a", "a", ""},
      {"a/../..", "..", "a/..", "..", "..", ""},
      {"a/b/../../../c", "../c", "a/b/../../..", "c", "c", ""},
      {"./..//.", "..", "./..", ".", ".", ""},
      {"a/..", ".", "a", "..", "..", ""},
      {"/home/.profile", "/home/.profile", "/home", ".profile", ".profile", ""},
      {"d/a.", "d/a.", "d", "a.", "a", "."},
      {"/srv/a.tar.gz/", "/srv/a.tar.gz", "/srv", "a.tar.gz", "a.tar", ".gz"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(std::string("'") + c.text + "'");
    const Path path(c.text);
    EXPECT_EQ(path.normal().text(), c.normal);
    EXPECT_EQ(path.parent().text(), c.parent);
    EXPECT_EQ(path.name(), c.name);
    EXPECT_EQ(path.stem(), c.stem);
    EXPECT_EQ(path.extension(), c.extension);
    EXPECT_EQ(path.stem() + path.extension(), path.name());
  }
}

TEST(Path, JoinAndComparisonByComponents) {
  const char* joins[][3] = {
      {"a", "b", "a/b"},   {"a/", "b", "a/b"}, {"/", "b", "/b"}, {"a", "/b", "/b"},
      {"a", "", "a"},      {"", "b", "b"},     {"", "", ""},     {"a//", "b/c/", "a//b/c/"},
  };
  for (const auto& j : joins) EXPECT_EQ((Path(j[0]) / j[1]).text(), j[2]) << j[0] << " / " << j[1];
  EXPECT_EQ(Path("a//b/"), Path("a/b"));
  EXPECT_EQ(Path("/"), Path("//"));
  EXPECT_NE(Path("a/./b"), Path("a/b"));
  EXPECT_NE(Path(""), Path("."));
  // In order: relative before absolute; by components ("a" < "a-b" though
  // "a/b" > "a-b" as text); bytewise, a byte of 0x80 or more after ASCII.
  const char* ordered[] = {"", "a", "a/b", "a-b", "a\x7f", "a\x80", "a\xff/a", "z", "/", "/a", "/a/b//", "/b"};
  for (std::size_t i = 0; i < sizeof ordered / sizeof *ordered; ++i) {
    for (std::size_t k = 0; k < sizeof ordered / sizeof *ordered; ++k) {
      const int expected = i < k ? -1 : i > k ? 1 : 0;
      EXPECT_EQ(Path(ordered[i]).compare(ordered[k]), expected) << "'" << ordered[i] << "' vs '" << ordered[k] << "'";
      EXPECT_EQ(Path(ordered[i]) < Path(ordered[k]), i < k);
    }
  }
}

TEST(Path, AbsoluteFromTheCurrentDirectory) {
  char* current = ::getcwd(nullptr, 0);
  ASSERT_NE(current, nullptr);
  const std::string here(current);
  ::free(current);
  EXPECT_EQ(Path("a/../b").absolute().text(), here + "/a/../b");
  EXPECT_EQ(Path("").absolute().text(), here);
  EXPECT_EQ(Path("/x/./y").absolute().text(), "/x/./y");

  test::fault::Injection fail("getcwd", ENOENT);
  EXPECT_EQ(Path("/x").absolute().text(), "/x");  // asks nothing
  auto e = QUOREL_EXPECT_THROW(Path("x").absolute(), sal::sys::Exception, "::getcwd() failed", 2, ENOENT);
  ASSERT_TRUE(e);
  EXPECT_STREQ(e->where(), "const std::string quorel::sal::sys::exec::proc::currentDirectory()");
}

}  // namespace
}  // namespace quorel
