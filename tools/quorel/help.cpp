// The tool's help: one table of commands gives the usage summary, each
// command's help and the manual page, so the three cannot disagree.
#include <iostream>
#include <sstream>
#include <string>

#include "command.h"

namespace tool {

namespace {

struct Command {
  const char* name;
  const char* synopsis;  // the arguments after the name
  const char* summary;   // one line for the usage summary
  const char* details;   // paragraphs for help COMMAND and the manual page
};

const Command kCommands[] = {
    {"info", "", "the host: system, processor, memory, virtualisation, firmware, build (the default)",
     "Describes the host as the library sees it: operating system, kernel version and the kernel's machine, "
     "processor and online count, memory and page size, whether it runs in a virtual machine, the firmware "
     "identity read from the DMI table, and the build target with the library's word size."},
    {"stat", "PATH...", "existence, type, owner access, size and block size; READ CAPACITY for devices",
     "For each PATH: whether it exists, its type, the owner's read and write permission, its size and block "
     "size. For block and character devices also the results of READ CAPACITY (10) and (16) sent to the "
     "device, or why they failed, and what the kernel reports; for an NVMe namespace the size that Identify "
     "Namespace gives."},
    {"ls", "[PATH]", "the entries of a directory (default: the current one) with their types",
     "Lists the entries of the directory PATH, never \".\" or \"..\", each with its type: directory, file, "
     "link, fifo, socket, block device, character device, or unknown. Links are not followed. With --json "
     "each entry also gives its inode number."},
    {"rm", "[-r] PATH...", "remove files, and with -r directories with everything in them",
     "Removes each PATH. A directory needs -r, which removes it with its contents without ever following "
     "a symbolic link: a link inside goes, what it leads to stays. Prints how many entries went."},
    {"read", "[PATH] [--async|--uring|--sync] [--depth N] [--bs SIZE] [--size SIZE] [--ios N] [--direct] [--random] "
             "[--scsi [--rw10|--rw16|--rw32]]",
     "read through a dispatcher; bytes, I/Os, IOPS, MB/s and mean latency",
     "Reads the first SIZE bytes of PATH (without PATH: a temporary 64 MiB file, removed afterwards) "
     "through a dispatcher: asynchronous (native AIO, or io_uring with --uring) with N requests in flight "
     "(default 32) or synchronous, in requests of --bs bytes (default 4K), --ios of them (default: SIZE once over), "
     "sequential or at random offsets, buffered or with O_DIRECT, or as SCSI READ commands. A SCSI READ "
     "is of 10 bytes, unless the device or the read reaches past block 2^32 - 1, which 10 bytes cannot "
     "address, or a request is more than the 65535 blocks they count: then it is of 16. --rw10, --rw16 or "
     "--rw32 choose the size; with --rw10, a read past block 2^32 - 1 is refused, never wrapped. With --scsi, "
     "--bs is a whole number of the device's blocks, and a request larger than one command carries (the "
     "device queue's max_hw_sectors_kb and max_segments, 65535 blocks in 10 bytes) goes in as many commands "
     "as it needs. Progress goes to standard error when it is a terminal."},
    {"discard", "PATH --offset O --length L (--unmap|--trim|--satl) [--force]",
     "release a range of a disk by SCSI UNMAP or ATA TRIM",
     "Releases L bytes at offset O of the device PATH through the synchronous dispatcher: SCSI UNMAP, ATA "
     "TRIM, or ATA TRIM inside SCSI ATA PASS-THROUGH (--satl). Offset and length are multiples of the "
     "device's block size. A long range goes in pieces no larger than the device's discard limit, each in "
     "as many UNMAP descriptors or TRIM entries, and commands, as it needs; a TRIM range past block "
     "2^48 - 1, which TRIM cannot address, is refused. The device is opened exclusively: one that is "
     "mounted, part of a volume or held open by another program is refused and left as it is, unless "
     "--force."},
    {"nvme", "id|smart PATH | read PATH [--offset O] [--length L] [--bs SIZE] | discard PATH --offset O --length L "
             "[--force] | status CODE",
     "NVMe pass-through: Identify, SMART / health, reads, deallocation, status texts",
     "Sends NVMe commands through the kernel's pass-through ioctls. id prints Identify Controller (model, serial, "
     "firmware, version, MDTS) and, for a namespace node such as /dev/nvme0n1, Identify Namespace (size, LBA "
     "format, metadata); a controller node such as /dev/nvme0 takes id and smart. smart prints the SMART / health "
     "information log. read reads L bytes (default: 64 MiB or up to the end) at O through the NVMe dispatcher in "
     "requests of --bs bytes (default 1M), each sent in as many Read commands as the device's limits need, and "
     "reports the rate. discard deallocates L bytes at O by Dataset Management, in as many commands as it takes; "
     "it opens the namespace exclusively and refuses one that is mounted or held (--force deallocates anyway). "
     "Offsets and lengths are multiples of the namespace's block size. status decodes a completion status: its "
     "type, code and retry bits."},
    {"sense", "HEX...", "decode SCSI sense bytes given in hexadecimal",
     "Decodes fixed or descriptor format sense data: key, additional sense code and qualifier with their "
     "texts, and the bytes in groups of four. Spaces and colons between digits are ignored."},
    {"explain", "DOMAIN CODE", "the texts of an error code",
     "Prints the texts of an error domain (0 application, 1 C run-time, 2 system call, 3 dynamic linker, "
     "4 address resolution, 5 SCSI command, 6 interface enumeration) and of a code in it. CODE is decimal, "
     "negative or 0x-prefixed hexadecimal."},
    {"uuid", "[N]", "N new time-based identifiers (default 1)", "Prints N new time-based identifiers."},
    {"version", "TEXT", "a dotted version number as the library reads it",
     "Parses TEXT as a version of up to four numbers and prints it back."},
    {"resolve", "HOST [SERVICE]", "each resolver result for a host name",
     "Prints each result of resolving HOST (and SERVICE): family, numeric address, port and description."},
    {"addr", "TEXT/PREFIX", "network, mask, prefix length and broadcast of an address prefix",
     "Prints the network, mask, prefix length and broadcast address of an IPv4 or IPv6 prefix."},
    {"links", "[NAME]", "the host's links with their addresses, like a short ip addr",
     "Lists every link of the host (or the one named) by index: name, state flags, MTU, kind, hardware "
     "address, then each IPv4 and IPv6 address with its prefix length, broadcast address and scope; an IPv6 "
     "link-local address names its link. Links that are down or have no hardware address are listed too. "
     "With --json each link is an object with its addresses as an array."},
    {"net-bench", "[--connections N] [--seconds S] [--size BYTES]",
     "echo round trips per second over loopback through the selector",
     "Runs an echo server built on the library's selector on 127.0.0.1, at a port the system chooses, in a "
     "thread of its own, and N client connections (default 100) in another: each sends a message of BYTES "
     "bytes (default 64, at most 64K), reads it back whole, checks it and sends it again, for S seconds "
     "(default 2). Prints the round trips and round trips per second. A first check that the selector and "
     "the sockets work on this machine: a failure prints its message (exit status 1). Each "
     "connection takes two descriptors; the tool raises its soft limit (ulimit -n) as far as N needs."},
    {"cat", "[--bs SIZE] FILE...", "files to standard output through the buffered streams",
     "Copies the files to standard output through buffered streams of SIZE bytes (default 64K)."},
    {"run", "[--detach] [--cwd DIR] [--env NAME=VALUE]... PROGRAM ARGS...",
     "start a program and exit with its status",
     "Starts PROGRAM (found on PATH) with this environment plus the given variables, waits for it and exits "
     "with its status; 1 with a message when a signal ended it or it could not be started (no directory "
     "DIR, a file that is not executable). SIGINT, SIGTERM and SIGQUIT to the tool end "
     "the program, which starts with every signal blocked. --detach starts it in a session of its own and "
     "returns at once."},
    {"lock", "NAME PROGRAM ARGS...", "run a program while holding a named mutex",
     "Runs PROGRAM as run does while holding the named mutex NAME (a record lock on a file in /tmp), so "
     "that one such program runs at a time, like flock(1)."},
    {"fw", "install|uninstall|list|flush | allow|deny|remove ... tcp|udp PORT[:LAST] [from ADDRESS[/PREFIX]]",
     "the inbound firewall chain: install it, add, remove and list its rules",
     "Keeps the chain quorel.inet.fw.inbound in the filter table of iptables and ip6tables, hooked once into "
     "INPUT ahead of its other rules. install creates and hooks it (again: nothing happens), uninstall "
     "unhooks and deletes it with its rules, flush deletes its rules, list prints them in the words allow "
     "and deny take. allow and deny append a rule that lets in or drops TCP or UDP packets to PORT (or the "
     "ports PORT to LAST) from anywhere, in both families, or from the network ADDRESS/PREFIX (a host without "
     "PREFIX) in its own family; remove deletes one such rule. Rules of other tools are never touched. A "
     "program that fails gives its status and its own message; one that does not end within 20 seconds is "
     "killed."},
    {"clock", "", "the wall clock and the monotonic tick",
     "Prints the wall clock in microseconds, milliseconds and seconds since the epoch, and the monotonic "
     "tick in nanoseconds."},
};

const char kCommon[] =
    "Sizes take K, M, G and T suffixes (powers of 1024). --json prints the result as JSON for scripts "
    "(every command that reports data); --verbose prints a failure's whole diagnostic line; --help "
    "prints a command's help. Exit status: 0 success, 1 a library operation failed (the message is the "
    "exception's short form), 2 bad usage.";

const Command* find(const std::string& name) {
  for (const Command& c : kCommands) {
    if (name == c.name) return &c;
  }
  return nullptr;
}

// Words wrapped to width columns after indent spaces.
std::string wrapped(const std::string& text, int indent, int width) {
  std::istringstream words(text);
  std::string out, line, word;
  while (words >> word) {
    if (!line.empty() && static_cast<int>(line.size() + 1 + word.size()) > width - indent) {
      out += std::string(static_cast<size_t>(indent), ' ') + line + "\n";
      line.clear();
    }
    line += (line.empty() ? "" : " ") + word;
  }
  if (!line.empty()) out += std::string(static_cast<size_t>(indent), ' ') + line + "\n";
  return out;
}

// Text for the manual page: backslashes and leading dots escaped.
std::string troff(const std::string& text) {
  std::string out;
  for (char c : text) {
    if (c == '\\') {
      out += "\\e";
    } else if (c == '-') {
      out += "\\-";
    } else {
      out += c;
    }
  }
  if (!out.empty() && (out[0] == '.' || out[0] == '\'')) out = "\\&" + out;
  return out;
}

}  // namespace

std::string usage() {
  std::string text = "usage: quorel [--json] [--verbose] COMMAND [ARGUMENTS]\n\ncommands:\n";
  for (const Command& c : kCommands) {
    const std::string head = std::string("  ") + c.name + (*c.synopsis != '\0' ? std::string(" ") + c.synopsis : "");
    text += head.size() <= 22 ? head + std::string(23 - head.size(), ' ') + c.summary + "\n"
                              : head + "\n" + wrapped(c.summary, 23, 100);
  }
  return text + "\n" + wrapped(kCommon, 0, 100) + "\nquorel help COMMAND describes a command.\n";
}

bool isCommand(const std::string& name) { return find(name) != nullptr; }

std::string helpFor(const std::string& name) {
  const Command* c = find(name);
  if (c == nullptr) throw UsageError{"no command '" + name + "'"};
  return std::string("usage: quorel ") + c->name + (*c->synopsis != '\0' ? std::string(" ") + c->synopsis : "") +
         "\n\n" + wrapped(c->details, 2, 100) + "\n" + wrapped(kCommon, 2, 100);
}

std::string manualPage() {
  std::string page =
      ".TH QUOREL 1 \"\" \"quorel\" \"User Commands\"\n"
      ".SH NAME\nquorel \\- diagnostics, storage I/O and processes through the quorel library\n"
      ".SH SYNOPSIS\n.B quorel\n[\\fB\\-\\-json\\fR] [\\fB\\-\\-verbose\\fR] \\fICOMMAND\\fR [\\fIARGUMENTS\\fR]\n"
      ".SH DESCRIPTION\n" + troff(kCommon) + "\n.SH COMMANDS\n";
  for (const Command& c : kCommands) {
    page += ".TP\n.B " + std::string(c.name) + (*c.synopsis != '\0' ? " " + troff(c.synopsis) : "") + "\n" +
            troff(c.details) + "\n";
  }
  return page + ".SH EXIT STATUS\n0 success, 1 a library operation failed, 2 bad usage.\n";
}

}  // namespace tool
