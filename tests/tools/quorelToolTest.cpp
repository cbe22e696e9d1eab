// The quorel command-line tool, run as users run it.
#include <sys/stat.h>
#include <sys/utsname.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "../../tools/quorel/json.h"
#include "support/netns.h"

namespace {

struct ToolRun {
  int status;
  std::string out;
};

// Runs the tool with arguments (a shell word list); captures stdout and, unless
// told otherwise, stderr (which otherwise goes nowhere).
ToolRun run(const std::string& arguments, bool withErrors = true) {
  const std::string command =
      std::string(QUOREL_TOOL_PATH) + " " + arguments + (withErrors ? " 2>&1" : " 2>/dev/null");
  FILE* pipe = ::popen(command.c_str(), "r");
  ToolRun result{-1, ""};
  if (pipe == nullptr) return result;
  char buffer[512];
  size_t n;
  while ((n = std::fread(buffer, 1, sizeof buffer, pipe)) > 0) result.out.append(buffer, n);
  const int status = ::pclose(pipe);
  result.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  return result;
}

// A command line, its exit status and its whole output.
struct Row {
  std::string args;
  int status;
  std::string out;
};

void expectRows(const std::vector<Row>& rows) {
  for (const Row& row : rows) {
    const ToolRun r = run(row.args);
    EXPECT_EQ(r.status, row.status) << row.args;
    EXPECT_EQ(r.out, row.out) << row.args;
  }
}

void writeFile(const std::string& path, const std::string& text) {
  FILE* f = std::fopen(path.c_str(), "w");
  std::fputs(text.c_str(), f);
  std::fclose(f);
}

TEST(QuorelTool, WithoutArgumentsDescribesTheHost) {
  const ToolRun r = run("");
  EXPECT_EQ(r.status, 0);
  EXPECT_EQ(r.out.rfind("system     Linux", 0), 0u) << r.out;
  // The kernel's machine and the library's word size, each its own.
  utsname names;
  ASSERT_EQ(::uname(&names), 0);
  const std::string build = sizeof(void*) == 4 ? "\nbuild      linux26 ia32 i386, 32-bit library\n"
                                               : "\nbuild      linux26 x86_64 x86_64, 64-bit library\n";
  for (const std::string& line : {std::string(" (") + names.machine + ")\nprocessor  ", std::string("\nmemory     "),
                                  std::string("\nvirtual    "), std::string("\nfirmware   "), build}) {
    EXPECT_NE(r.out.find(line), std::string::npos) << line << " in " << r.out;
  }
  EXPECT_EQ(run("help").out.rfind("usage: quorel [--json] [--verbose] COMMAND", 0), 0u);
}

// Commands whose whole output is known: the status and every byte of it.
TEST(QuorelTool, CommandsPrintExactlyTheirTexts) {
  const std::string kHint = " (run 'quorel help' for usage)\n";
  expectRows({
      {"explain 5 0x8000000", 0, "domain 5: SCSI CDB error\ncode 134217728 (0x8000000): SG_IO driver_status 0x08 DRIVER_SENSE\n"},
      {"explain 2 13", 0, "domain 2: system call error\ncode 13 (0xd): Permission denied\n"},
      {"explain 9 0xffffffff", 0, "domain 9: unknown error domain\ncode -1 (0xffffffff): unknown error code\n"},
      {"version 300.1.2.3.4", 0, "44.1.2.3\n"},
      {"version 1.x", 2, "quorel: invalid version '1.x'" + kHint},
      {"resolve 127.0.0.1 80", 0,
       "IPv4  127.0.0.1  port 80  family:AF_INET(2) type:SOCK_STREAM(1) protocol:IPPROTO_TCP(2)\n"},
      {"addr 192.168.1.20/24", 0,
       "address    192.168.1.20\nnetwork    192.168.1.0\nmask       255.255.255.0\nprefix     24\n"
       "broadcast  192.168.1.255\n"},
      {"sense 70 00 05 00 00 00 00 0a 00 00 00 00 24 00", 0,
       "key/asc/ascq  05/24/00 (ILLEGAL REQUEST / INVALID FIELD IN CDB)\nbytes         70000500 0000000A 00000000 2400\n"},
      {"run --env QUOREL_X=1 --env QUOREL_Y=a=b --cwd /tmp sh -c 'echo $QUOREL_X $QUOREL_Y $(pwd); exit 3'", 3,
       "1 a=b /tmp\n"},
      {"run sh -c 'kill -9 $$'", 1, "quorel: sh was ended by a signal\n"},
      {"run /nonexistent/quorel", 1,
       "quorel: unable to locate the specified file to excute - No such file or directory\n"},
      {"run --cwd /nonexistent/quorel true", 1,
       "quorel: ::chdir(\"/nonexistent/quorel\") failed - No such file or directory\n"},
      {"run /dev/null", 1, "quorel: ::execve('/dev/null') failed - Permission denied\n"},
      {"run echo x --help", 0, "x --help\n"},  // a program's own --help is its own
      {"help frobnicate", 2, "quorel: no command 'frobnicate'" + kHint},
      {"--json version 2.6.32", 0, "{\"version\": \"2.6.32\", \"major\": 2, \"minor\": 6, \"patch\": 32, \"build\": 0}\n"},
      {"explain 2 13 --json", 0,
       "{\"domain\": 2, \"domainText\": \"system call error\", \"code\": 13, \"text\": \"Permission denied\"}\n"},
      {"addr 10.1.2.3/8 --json", 0,
       "{\"address\": \"10.1.2.3\", \"network\": \"10.0.0.0\", \"mask\": \"255.0.0.0\", \"prefix\": 8, "
       "\"broadcast\": \"10.255.255.255\"}\n"},
      {"sense 70 00 05 00 00 00 00 0a 00 00 00 00 24 00 --json", 0,
       "{\"description\": \"05/24/00 (ILLEGAL REQUEST / INVALID FIELD IN CDB)\", \"bytes\": \"70000500 0000000A "
       "00000000 2400\"}\n"},
      {"stat /nonexistent/quorel --json", 0, "[{\"path\": \"/nonexistent/quorel\", \"exists\": false}]\n"},
      {"nvme status 0x4002", 0,
       "status 0x4002: Invalid Field in Command (status type 0, code 0x02, do not retry)\ntype 0: Generic Command "
       "Status\n"},
      {"nvme status 0x0371 --json", 0,
       "{\"status\": 881, \"type\": 3, \"typeText\": \"Path Related Status\", \"code\": 113, \"text\": \"Command "
       "Aborted By Host\", \"retryDelay\": 0, \"more\": false, \"doNotRetry\": false}\n"},
      {"nvme id /dev/null", 1,
       "quorel: NVMe Identify Controller failed: ::ioctl(NVME_IOCTL_ADMIN_CMD) failed - Inappropriate ioctl for "
       "device\n"},
      {"links no-such-link0", 1, "quorel: no link is named 'no-such-link0' - No such device\n"},
  });
  // Outputs that depend on the host or the moment: their fixed parts.
  EXPECT_NE(run("resolve ::1").out.find("IPv6  ::1  port 0"), std::string::npos);
  EXPECT_NE(run("addr 2001:db8::7/64").out.find("broadcast  2001:db8::ffff:ffff:ffff:ffff"), std::string::npos);
  EXPECT_EQ(run("links lo").out.rfind("1: lo <up,running,loopback> mtu 65536 link 00:00:00:00:00:00\n"
                                      "    inet 127.0.0.1/8 scope host\n", 0), 0u);
  EXPECT_NE(run("--json links").out.find("{\"index\": 1, \"name\": \"lo\", \"state\": [\"up\", \"running\", "
                                         "\"loopback\"], \"mtu\": 65536"), std::string::npos);
  EXPECT_NE(run("sense 72062900").out.find("06/29/00 (UNIT ATTENTION / POWER ON, RESET, OR BUS DEVICE RESET OCCURRED)"),
            std::string::npos);
  const std::string clock = run("clock").out;
  for (const char* name : {"micro  ", "milli  ", "tick   "}) EXPECT_NE(clock.find(name), std::string::npos) << clock;
  const std::string uuid = run("uuid 3").out;
  EXPECT_EQ(uuid.size(), 3 * 37u) << uuid;
  EXPECT_EQ(uuid[14], '1');
}

TEST(QuorelTool, CatCopiesFilesThroughTheStreams) {
  const std::string dir = "/tmp/quorel-cat-" + std::to_string(::getpid());
  ::mkdir(dir.c_str(), 0700);
  writeFile(dir + "/a", "first\n");
  writeFile(dir + "/b", "second line\n");
  ToolRun r = run("cat --bs 3 " + dir + "/a " + dir + "/b");
  EXPECT_EQ(r.status, 0);
  EXPECT_EQ(r.out, "first\nsecond line\n");
  r = run("cat " + dir + "/missing");
  EXPECT_EQ(r.status, 1);
  EXPECT_EQ(r.out, "quorel: ::open('" + dir + "/missing', O_LARGEFILE F_SETFD=FD_CLOEXEC) failed - No such file or directory\n");
  std::remove((dir + "/a").c_str());
  std::remove((dir + "/b").c_str());
  ::rmdir(dir.c_str());
}

TEST(QuorelTool, StatDescribesFilesAndDevices) {
  const ToolRun r = run("stat /tmp /dev/null /nonexistent/quorel");
  EXPECT_EQ(r.status, 0);
  EXPECT_NE(r.out.find("/tmp\n  type        directory\n"), std::string::npos) << r.out;
  EXPECT_NE(r.out.find("/dev/null\n  type        character device\n  owner       --\n"), std::string::npos);
  EXPECT_NE(r.out.find("  RC(10)      device I/O control failed for SCSI Read Capacity (10) - system call error:25"),
            std::string::npos);
  EXPECT_NE(r.out.find("  kernel      ::ioctl(BLKSSZGET) failed: "), std::string::npos);
  EXPECT_NE(r.out.find("/nonexistent/quorel\n  exists      no\n"), std::string::npos);
}

// The figures line of quorel read: "bytes N  ios N  IOPS N  MB/s N  mean latency N us  elapsed N s".
long long figure(const std::string& out, const std::string& name) {
  const size_t at = out.find("\n" + name + " ") != std::string::npos ? out.find("\n" + name + " ") + 1
                                                                      : out.find("  " + name + " ") + 2;
  if (at == std::string::npos + 2) return -1;
  return std::atoll(out.c_str() + at + name.size() + 1);
}

TEST(QuorelTool, ReadRunsOnATemporaryFileThroughEachDispatcher) {
  // A directory of its own: no other run of the tool leaves files in it.
  char directory[] = "/tmp/quorel-tool-read-XXXXXX";
  ASSERT_NE(::mkdtemp(directory), nullptr);
  ASSERT_EQ(::setenv("TMPDIR", directory, 1), 0);
  ToolRun r = run("read --size 1M");
  EXPECT_EQ(r.status, 0) << r.out;
  EXPECT_NE(r.out.find("(temporary): 1 MiB, async depth 32, 4 KiB blocks, sequential, buffered\n"),
            std::string::npos) << r.out;
  EXPECT_EQ(figure(r.out, "bytes"), 1 << 20) << r.out;
  EXPECT_EQ(figure(r.out, "ios"), 256) << r.out;
  EXPECT_GT(figure(r.out, "IOPS"), 0) << r.out;
  r = run("read --sync --bs 64K --size 1M --random");
  EXPECT_EQ(r.status, 0) << r.out;
  EXPECT_NE(r.out.find(": 1 MiB, sync, 64 KiB blocks, random, buffered\n"), std::string::npos) << r.out;
  EXPECT_EQ(figure(r.out, "ios"), 16) << r.out;

  r = run("read --uring --depth 8 --bs 16K --size 1M");
  if (r.out.find("::io_uring_setup() failed") == std::string::npos) {  // a kernel that gives no io_uring
    EXPECT_EQ(r.status, 0) << r.out;
    EXPECT_NE(r.out.find(": 1 MiB, uring depth 8, 16 KiB blocks, sequential, buffered\n"), std::string::npos) << r.out;
    EXPECT_EQ(figure(r.out, "ios"), 64) << r.out;
  }

  r = run("read --direct --depth 8 --size 2M");
  if (r.out.find("Invalid argument") == std::string::npos) {  // a temporary directory without O_DIRECT
    EXPECT_EQ(r.status, 0) << r.out;
    EXPECT_EQ(figure(r.out, "bytes"), 2 << 20) << r.out;
  }
  // The temporary files are gone.
  ::unsetenv("TMPDIR");
  EXPECT_EQ(::rmdir(directory), 0) << "the tool left files in " << directory;
}

TEST(QuorelTool, NetBenchEchoesOverLoopbackThroughTheSelector) {
  const ToolRun r = run("net-bench --connections 4 --seconds 1 --size 1K");
  EXPECT_EQ(r.status, 0) << r.out;
  EXPECT_NE(r.out.find(": 4 connections, 1024-byte messages, 1 s\n"), std::string::npos) << r.out;
  EXPECT_EQ(r.out.rfind("echo over 127.0.0.1 port ", 0), 0u) << r.out;
  EXPECT_GT(figure(r.out, "round trips"), 0) << r.out;
  EXPECT_GT(figure(r.out, "per second"), 0) << r.out;
}

TEST(QuorelTool, ReadOfAFileStopsAtItsEndAndDiscardReportsTheDevicesRefusal) {
  const std::string path = "/tmp/quorel-tool-read-" + std::to_string(::getpid());
  writeFile(path, std::string(10000, 'x'));
  ToolRun r = run("read " + path + " --bs 4K");
  EXPECT_EQ(r.status, 0) << r.out;
  EXPECT_EQ(figure(r.out, "ios"), 2) << r.out;  // whole blocks only
  EXPECT_EQ(figure(r.out, "bytes"), 8192) << r.out;

  r = run("discard " + path + " --offset 0 --length 0 --trim");
  EXPECT_EQ(r.status, 0) << r.out;
  EXPECT_EQ(r.out.rfind("discarded 0 bytes at 0 of " + path + " by ATA TRIM in ", 0), 0u) << r.out;
  std::remove(path.c_str());
}

// Which SCSI command a read sends is seen in its header line; on a regular
// file (512-byte blocks) the command itself then fails.
TEST(QuorelTool, ScsiReadsAndDiscardsNeverWrapTheirAddresses) {
  const std::string big = "/tmp/quorel-tool-big-" + std::to_string(::getpid());
  const std::string small = big + "-small";
  ASSERT_EQ(::truncate64((std::fclose(std::fopen(big.c_str(), "w")), big.c_str()), (1LL << 41) + (1 << 20)), 0);
  ASSERT_EQ(::truncate64((std::fclose(std::fopen(small.c_str(), "w")), small.c_str()), 1 << 20), 0);
  const std::string failed = "\nquorel: device I/O control failed for SCSI Read ";
  const std::string kHint = " (run 'quorel help' for usage)\n";
  const struct {
    std::string args;
    int status;
    std::string out;  // the whole output if it starts with "quorel: ", else a part of it
  } rows[] = {
      // The device reaches past what 10 bytes address (2^32 blocks): 16 bytes.
      {"read " + big + " --scsi --size 1M", 1, failed + "(16) - Inappropriate ioctl for device\n"},
      // A request of more than 65535 blocks: 16 bytes.
      {"read " + small + " --scsi --bs 32M", 0, ", SCSI READ(16)\n"},
      {"read " + small + " --scsi --bs 4K", 1, failed + "(10) - "},
      {"read " + big + " --scsi --rw10 --size 1M", 1, failed + "(10) - "},
      {"read " + big + " --scsi --rw32 --size 1M", 1, failed + "(32) - "},
      // Forced to 10 bytes, what they cannot carry is refused.
      {"read " + big + " --scsi --rw10", 2,
       "quorel: READ(10) addresses only the first 4294967296 blocks and this read reaches block 4294969343 "
       "(leave out --rw10, or read less with --size)" + kHint},
      // More blocks than a READ(10) counts: a request goes in several.
      {"read " + small + " --scsi --rw10 --bs 32M", 0, ", SCSI READ(10)\n"},
      {"read " + small + " --scsi --bs 1000", 2,
       "quorel: --bs must be a whole number of 512-byte blocks with --scsi" + kHint},
      // The last block ATA TRIM names is 2^48 - 1 (128 PiB in 512-byte blocks):
      // past it a TRIM is refused whole; UNMAP addresses 64 bits.
      {"discard " + big + " --offset 131072T --length 512 --trim", 2,
       "quorel: ATA TRIM addresses only the first 281474976710656 blocks and this range reaches block "
       "281474976710656" + kHint},
      {"discard " + big + " --offset 131071T --length 1T --satl", 1,
       "quorel: ATA TRIM (SATL) failed - Inappropriate ioctl for device\n"},
      {"discard " + big + " --offset 131072T --length 512 --unmap", 1,
       "quorel: device I/O control failed for SCSI UNMAP - Inappropriate ioctl for device\n"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.args);
    const ToolRun r = run(row.args);
    EXPECT_EQ(r.status, row.status) << r.out;
    if (row.out.rfind("quorel: ", 0) == 0) {
      EXPECT_EQ(r.out, row.out);
    } else {
      EXPECT_NE(r.out.find(row.out), std::string::npos) << r.out;
    }
  }
  std::remove(big.c_str());
  std::remove(small.c_str());
}

TEST(QuorelTool, ASignalToRunEndsTheProgram) {
  // The main thread, which takes the atomic pool's locks, blocks the signals
  // (HUP, INT, QUIT, TERM, TSTP) whose handler takes them; a tool thread takes them.
  ToolRun r = run("run sh -c 'echo $PPID; for t in /proc/$PPID/task/*; do echo ${t##*/} $(grep SigBlk $t/status | cut -f2); "
                  "done'");
  EXPECT_EQ(r.status, 0);
  std::istringstream lines(r.out);
  long long tool = 0, task = 0;
  std::string mask;
  lines >> tool;
  const unsigned long long kFrame = 0x84007;
  bool mainBlocks = false, anotherTakes = false;
  while (lines >> task >> mask) {
    const unsigned long long blocked = std::stoull(mask, nullptr, 16);
    if (task == tool) mainBlocks = (blocked & kFrame) == kFrame;
    if (task != tool) anotherTakes = anotherTakes || (blocked & kFrame) == 0;
  }
  EXPECT_TRUE(mainBlocks) << r.out;
  EXPECT_TRUE(anotherTakes) << r.out;

  // The program blocks every signal itself; the tool ends it.
  r = run("run sleep 30 2>&1 & until grep -q . /proc/$!/task/*/children 2>/dev/null; do sleep 0.05; done; "
          "kill -TERM $!; wait $!");
  EXPECT_EQ(r.status, 1);
  EXPECT_EQ(r.out, "quorel: sleep was ended by a signal\n");
}

TEST(QuorelTool, LockRunsOneHolderAtATime) {
  const std::string file = "/tmp/quorel-tool-lock-" + std::to_string(::getpid());
  writeFile(file, "0\n");
  // Four holders, each adding 1 twenty times by read, then write.
  const std::string add = "i=0; while [ $i -lt 20 ]; do n=$(cat " + file + "); echo $((n + 1)) > " + file +
                          "; i=$((i + 1)); done";
  const std::string name = "quorel-tool-test-" + std::to_string(::getpid());
  const std::string one = std::string(QUOREL_TOOL_PATH) + " lock " + name + " sh -c '" + add + "'";
  const ToolRun r = run("version 1 && (" + one + " & " + one + " & " + one + " & " + one + " & wait)");
  EXPECT_EQ(r.status, 0) << r.out;
  FILE* f = std::fopen(file.c_str(), "r");
  char buffer[32] = {};
  ASSERT_NE(std::fgets(buffer, sizeof buffer, f), nullptr);
  std::fclose(f);
  std::remove(file.c_str());
  std::remove(("/tmp/quorel.sal.sys.exec.NamedMutex-" + name).c_str());  // lock files stay by design
  EXPECT_EQ(std::atoi(buffer), 80);
}

const char* const kCommands[] = {"info",    "stat",    "ls",      "rm",   "read",      "discard", "sense", "explain",
                                 "uuid",    "version", "resolve", "addr", "net-bench", "cat",     "run",   "lock",
                                 "clock",   "links",   "fw",   "nvme"};

TEST(QuorelTool, EveryCommandHasItsHelpAndItsPlaceInTheManualPage) {
  const std::string usage = run("help").out;
  const std::string manual = run("help --man").out;
  EXPECT_EQ(manual.rfind(".TH QUOREL 1 ", 0), 0u);
  // The page the build made (without running the tool) is the tool's own.
  const std::string tool = QUOREL_TOOL_PATH;
  std::ifstream page(tool.substr(0, tool.rfind('/')) + "/quorel.1");
  std::ostringstream built;
  built << page.rdbuf();
  EXPECT_EQ(built.str(), manual);
  for (const char* command : kCommands) {
    SCOPED_TRACE(command);
    EXPECT_NE(usage.find(std::string("\n  ") + command), std::string::npos);
    EXPECT_NE(manual.find(std::string(".TP\n.B ") + command), std::string::npos);
    const ToolRun help = run(std::string("help ") + command);
    EXPECT_EQ(help.status, 0);
    EXPECT_EQ(help.out.rfind(std::string("usage: quorel ") + command, 0), 0u) << help.out;
    EXPECT_EQ(run(std::string(command) + " --help").out, help.out);  // the same text, nothing run
  }
  EXPECT_EQ(run("--help").out, usage);
}

TEST(QuorelTool, JsonForScriptsAndVerboseFailures) {
  const std::string uuids = run("uuid 2 --json").out;
  EXPECT_EQ(uuids.size(), 2 + 2 * 38 + 2 + 1u) << uuids;  // ["…", "…"]
  for (const char* command : {"--json", "--json clock", "--json resolve localhost 80", "--json read --size 64K",
                              "--json net-bench --connections 2 --seconds 1"}) {
    const ToolRun r = run(command);
    EXPECT_EQ(r.status, 0) << command;
    EXPECT_TRUE(r.out.size() > 2 && (r.out[0] == '{' || r.out[0] == '[') && r.out.back() == '\n') << r.out;
    EXPECT_EQ(r.out.find('\n'), r.out.size() - 1) << "one line: " << r.out;
  }
  const std::string info = run("--json").out;
  EXPECT_NE(info.find(sizeof(void*) == 4 ? "\"build\": {\"os\": \"linux26\", \"cpu\": \"ia32\", \"arch\": \"i386\"}"
                                         : "\"build\": {\"os\": \"linux26\", \"cpu\": \"x86_64\", \"arch\": \"x86_64\"}"),
            std::string::npos) << info;
  EXPECT_NE(info.find("\"machine\": \""), std::string::npos) << info;
  const ToolRun verbose = run("--verbose cat /nonexistent/quorel");
  EXPECT_EQ(verbose.status, 1);
  EXPECT_EQ(verbose.out.rfind("quorel: quorel::sal::xio::OpenException: where='", 0), 0u) << verbose.out;
  EXPECT_NE(verbose.out.find("@sal/xio/impl/fopen.inl)"), std::string::npos) << verbose.out;
}

// True when text is well-formed UTF-8: every sequence decodes, in its shortest
// form, to U+0000..U+10FFFF outside the surrogates U+D800..U+DFFF.
bool isUtf8(const std::string& text) {
  static const unsigned long kLeast[] = {0, 0, 0x80, 0x800, 0x10000};
  for (size_t at = 0; at < text.size();) {
    const unsigned char lead = static_cast<unsigned char>(text[at]);
    const size_t length = lead < 0x80 ? 1 : lead >> 5 == 6 ? 2 : lead >> 4 == 14 ? 3 : lead >> 3 == 30 ? 4 : 0;
    if (length == 0 || at + length > text.size()) return false;
    unsigned long code = length == 1 ? lead : lead & (0xffu >> (length + 1));
    for (size_t n = 1; n < length; ++n) {
      const unsigned char next = static_cast<unsigned char>(text[at + n]);
      if (next >> 6 != 2) return false;
      code = code << 6 | (next & 0x3fu);
    }
    if (code < kLeast[length] || code > 0x10ffff || (code >= 0xd800 && code <= 0xdfff)) return false;
    at += length;
  }
  return true;
}

// A file name is bytes: --json writes it as valid UTF-8, a name that is not
// UTF-8 readably (U+FFFD for each stray byte) with its exact bytes beside it.
TEST(QuorelTool, JsonWritesAnyFileNameAsUtf8AndKeepsItsBytes) {
  char directory[] = "/tmp/quorel-tool-json-XXXXXX";
  ASSERT_NE(::mkdtemp(directory), nullptr);
  const std::string bytes = std::string(directory) + "/a\xff\xfe", accented = std::string(directory) + "/\xc3\xa9";
  writeFile(bytes, std::string(8192, 'x'));
  writeFile(accented, "");
  const std::string readable = "{\"path\": \"" + std::string(directory) + "/a\\ufffd\\ufffd\", \"path_hex\": \"";
  const struct {
    std::string args, next;  // the member after the path's two
  } rows[] = {{"--json stat '" + bytes + "' '" + accented + "'", "\", \"exists\": true, "},
              {"--json read '" + bytes + "' --bs 4K", "\", \"bytes\": 8192, "}};
  for (const auto& row : rows) {
    SCOPED_TRACE(row.args);
    const ToolRun r = run(row.args);
    EXPECT_EQ(r.status, 0) << r.out;
    EXPECT_TRUE(isUtf8(r.out)) << r.out;
    const size_t at = r.out.find(readable);
    EXPECT_NE(at, std::string::npos) << r.out;
    if (at == std::string::npos) continue;
    // The companion gives the name back, byte for byte.
    std::string back;
    size_t n = at + readable.size();
    for (; n + 1 < r.out.size() && std::isxdigit(static_cast<unsigned char>(r.out[n])); n += 2) {
      back += static_cast<char>(std::stoi(r.out.substr(n, 2), nullptr, 16));
    }
    EXPECT_EQ(back, bytes);
    EXPECT_EQ(r.out.find(row.next, n), n) << r.out;
    EXPECT_EQ(r.out.find("_hex", n), std::string::npos) << "one companion only: " << r.out;
  }
  // A name that is UTF-8 comes out as it is, without a companion.
  EXPECT_NE(run(rows[0].args).out.find("}, {\"path\": \"" + accented + "\", \"exists\": true, "), std::string::npos);
  const ToolRun listed = run("--json ls " + std::string(directory));
  EXPECT_TRUE(isUtf8(listed.out)) << listed.out;
  EXPECT_NE(listed.out.find("{\"name\": \"a\\ufffd\\ufffd\", \"name_hex\": \"61fffe\", \"type\": \"file\", "),
            std::string::npos) << listed.out;
  EXPECT_NE(listed.out.find("{\"name\": \"\xc3\xa9\", \"type\": \"file\", "), std::string::npos) << listed.out;
  std::remove(bytes.c_str());
  std::remove(accented.c_str());
  EXPECT_EQ(::rmdir(directory), 0);
}

TEST(QuorelTool, LsListsWithTypesAndRmRemovesTreesWithoutFollowingLinks) {
  char directory[] = "/tmp/quorel-tool-rm-XXXXXX";
  ASSERT_NE(::mkdtemp(directory), nullptr);
  const std::string d = directory;
  ASSERT_EQ(::mkdir((d + "/tree").c_str(), 0700), 0);
  ASSERT_EQ(::mkdir((d + "/kept").c_str(), 0700), 0);
  writeFile(d + "/kept/file", "stays");
  ASSERT_EQ(::symlink((d + "/kept").c_str(), (d + "/tree/link").c_str()), 0);
  const std::string top = run("ls " + d).out;  // in the file system's order
  EXPECT_TRUE(top == "directory        kept\ndirectory        tree\n" ||
              top == "directory        tree\ndirectory        kept\n") << top;
  EXPECT_EQ(run("ls " + d + "/tree").out, "link             link\n");
  const ToolRun refused = run("rm " + d + "/tree");
  EXPECT_EQ(refused.status, 2);
  EXPECT_NE(refused.out.find("is a directory (rm -r removes it with its contents)"), std::string::npos) << refused.out;
  EXPECT_EQ(run("--json rm -r " + d + "/tree").out, "[{\"path\": \"" + d + "/tree\", \"removed\": 2}]\n");
  EXPECT_EQ(run("ls " + d + "/kept").out, "file             file\n");
  EXPECT_EQ(run("rm -r " + d).out, d + ": 3 entries removed\n");
  const ToolRun missing = run("ls " + d);
  EXPECT_EQ(missing.status, 1);
  EXPECT_EQ(missing.out, "quorel: ::open('" + d + "') failed - No such file or directory\n");
}

// The writer behind every --json output: which bytes are UTF-8, and the forms
// that keep the exact bytes of a string that is not.
TEST(QuorelToolJson, StringsComeOutAsUtf8AndKeepTheirBytes) {
  namespace json = tool::json;
  const struct {
    std::string text, quoted;
    bool exact;
  } rows[] = {
      {std::string("q\"b\\n\nt\tc\x01\x1f\x7f~\0", 14), "\"q\\\"b\\\\n\\nt\\tc\\u0001\\u001f\\u007f~\\u0000\"", true},
      // Two, three and four bytes, the edges of their ranges, and a real U+FFFD.
      {"\xc2\x80\xdf\xbf \xe0\xa0\x80\xed\x9f\xbf\xee\x80\x80\xef\xbf\xbd \xf0\x90\x80\x80\xf4\x8f\xbf\xbf",
       "\"\xc2\x80\xdf\xbf \xe0\xa0\x80\xed\x9f\xbf\xee\x80\x80\xef\xbf\xbd \xf0\x90\x80\x80\xf4\x8f\xbf\xbf\"", true},
      // Overlong forms, a surrogate, past U+10FFFF, bytes that start nothing,
      // a lone continuation: each byte on its own.
      {"\xc0\xaf|\xc1\xbf|\xe0\x9f\xbf|\xf0\x8f\xbf\xbf", "\"??|??|???|????\"", false},
      {"\xed\xa0\x80|\xf4\x90\x80\x80|\xf5\xff\xfe|\x80", "\"???|????|???|?\"", false},
      // A sequence cut short, then text: the next byte is read afresh.
      {"\xe2\x82" "a\xf0\x9f\x98\xc3\xa9\xe2\x82", "\"??a???\xc3\xa9??\"", false},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(json::hex(row.text));
    std::string expected;
    for (char c : row.quoted) expected += c == '?' ? std::string("\\ufffd") : std::string(1, c);
    std::string out = "x";
    EXPECT_EQ(json::quoteInto(out, row.text), row.exact);
    EXPECT_EQ(out, "x" + expected);
    EXPECT_EQ(json::item(row.text),
              row.exact ? expected : "{\"text\": " + expected + ", \"hex\": \"" + json::hex(row.text) + "\"}");
  }
  EXPECT_EQ(json::Object().add("path", "/tmp/a\xff\xfe").add("name", std::string("\xc3\xa9")).add("n", 1).str(),
            "{\"path\": \"/tmp/a\\ufffd\\ufffd\", \"path_hex\": \"2f746d702f61fffe\", \"name\": \"\xc3\xa9\", \"n\": 1}");
  EXPECT_EQ(json::array({json::item("a"), json::item("\xff")}), "[\"a\", {\"text\": \"\\ufffd\", \"hex\": \"ff\"}]");
}

TEST(QuorelTool, FailuresWriteNothingToStandardOutput) {
  for (const char* args : {"cat /nonexistent/quorel", "read --bs 1x", "frobnicate", "--json stat",
                           "run /nonexistent/quorel", "discard /dev/null --offset 0 --length 512 --unmap"}) {
    const ToolRun r = run(args, false);
    EXPECT_NE(r.status, 0) << args;
    EXPECT_EQ(r.out, "") << args;
  }
  EXPECT_EQ(run("cat --bs 1G /dev/null").status, 2);  // sizes share one syntax; buffers stop at 64M
  EXPECT_EQ(run("cat --bs 64M /dev/null").status, 0);
}

TEST(QuorelTool, BadArgumentsGiveOneLineAndStatusTwo) {
  for (const char* args : {"explain 2", "explain two 13", "explain 2 0x100000000", "explain 2 99999999999",
                           "clock now", "uuid -1", "uuid 1 2", "version 1..2", "addr 10.0.0.1/33", "addr host/8",
                           "resolve", "cat --bs", "cat --bs 0 x", "sense 7", "sense zz", "stat", "read --depth 0",
                           "read --depth 5000", "read --size -1", "read --rw10", "read x --scsi --rw10 --rw16",
                           "read --sync --depth 4", "read --frob", "read x --scsi --uring", "read /nonexistent/quorel",
                           "discard /tmp --offset 0 --length 1", "discard /tmp --offset 1 --length 512 --unmap",
                           "discard /tmp --offset 0 --length 1K --unmap --trim", "run --env =x true",
                           "run --env x true", "run --cwd", "lock name", "help a b", "net-bench --connections 0",
                           "net-bench --seconds", "net-bench --size 1x", "net-bench --size 65537", "net-bench 4", "links lo eth0", "fw", "fw frob",
                           "fw list x", "fw allow tcp", "fw allow sctp 1", "fw remove tcp 1", "fw deny udp 1 to x", "nvme",
                           "nvme frob", "nvme id", "nvme status 0x8000", "nvme read /dev/null --frob",
                           "nvme discard /dev/null --offset 0"}) {
    const ToolRun r = run(args);
    EXPECT_EQ(r.status, 2) << args;
    EXPECT_EQ(r.out.rfind("quorel: ", 0), 0u) << args << ": " << r.out;
    EXPECT_EQ(r.out.find('\n'), r.out.size() - 1) << args << ": " << r.out;
  }
}

TEST(Firewall, TheToolKeepsTheChainInANamespace) {
  QUOREL_NETNS_OR_SKIP();
  quorel::test::netns::Namespace ns;
  ns.run([] {
    for (const char* program : {"iptables", "ip6tables"}) {
      std::string why;
      if (quorel::test::netns::command({program, "-w", "5", "-S"}, &why) != 0) {
        GTEST_SKIP() << "skipped: " << program << " does not work here: " << why;
      }
    }
    const std::string kDone = "quorel.inet.fw.inbound: ";
    expectRows({
        {"fw install", 0, kDone + "installed\n"},
        {"fw deny tcp 23", 0, kDone + "added deny tcp 23\n"},
        {"fw allow udp 5000:5010 from 10.1.2.3/8", 0, kDone + "added allow udp 5000:5010 from 10.0.0.0/8\n"},
        {"fw allow tcp 443 from 2001:db8::1", 0, kDone + "added allow tcp 443 from 2001:db8::1/128\n"},
        {"fw allow tcp 0", 1, "quorel: a port must be from 1 to 65535\n"},
        {"fw list", 0, "deny tcp 23\nallow udp 5000:5010 from 10.0.0.0/8\nallow tcp 443 from 2001:db8::1/128\n"},
        {"--json fw list", 0,
         "[{\"action\": \"deny\", \"protocol\": \"tcp\", \"firstPort\": 23, \"lastPort\": 23, \"source\": null}, "
         "{\"action\": \"allow\", \"protocol\": \"udp\", \"firstPort\": 5000, \"lastPort\": 5010, \"source\": "
         "\"10.0.0.0/8\", \"family\": \"IPv4\"}, {\"action\": \"allow\", \"protocol\": \"tcp\", \"firstPort\": 443, "
         "\"lastPort\": 443, \"source\": \"2001:db8::1/128\", \"family\": \"IPv6\"}]\n"},
        {"fw remove deny tcp 23", 0, kDone + "removed deny tcp 23\n"},
        {"fw flush", 0, kDone + "flushed\n"},
        {"fw list", 0, ""},
        {"fw uninstall --json", 0, "{\"chain\": \"quorel.inet.fw.inbound\", \"done\": \"uninstalled\"}\n"},
    });
  });
}

}  // namespace
