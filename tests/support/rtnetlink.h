// Odd answers from the kernel's routing socket: a stand-in for recvmsg that
// lets a test change each answer libquorel.so receives.
//
//   test::rtnetlink::Rewrite interrupt([](char* answer, ssize_t size, int call) {
//     if (call == 1) test::rtnetlink::first(answer)->nlmsg_flags |= NLM_F_DUMP_INTR;
//     return size;
//   });
#ifndef QUOREL_TESTS_SUPPORT_RTNETLINK_H
#define QUOREL_TESTS_SUPPORT_RTNETLINK_H

#include <linux/netlink.h>
#include <sys/socket.h>

#include <cstring>
#include <functional>

#include "support/fault.h"

namespace quorel {
namespace test {
namespace rtnetlink {

// Given each answer (its bytes and length) and the count of answers so far
// (1 for the first); returns the length the library sees.
typedef std::function<ssize_t(char* answer, ssize_t size, int call)> Edit;

inline nlmsghdr* first(char* answer) { return reinterpret_cast<nlmsghdr*>(answer); }

// Makes the answer the end of its dump: one NLMSG_DONE of the same sequence.
inline ssize_t endOfDump(char* answer) {
  nlmsghdr* header = first(answer);
  const __u32 sequence = header->nlmsg_seq;
  std::memset(answer, 0, NLMSG_LENGTH(sizeof(int)));
  header->nlmsg_len = NLMSG_LENGTH(sizeof(int));
  header->nlmsg_type = NLMSG_DONE;
  header->nlmsg_flags = NLM_F_MULTI;
  header->nlmsg_seq = sequence;
  return static_cast<ssize_t>(header->nlmsg_len);
}

class Rewrite {
 public:
  explicit Rewrite(Edit edit) : standIn_("recvmsg", reinterpret_cast<void*>(&receive)) {
    current() = std::move(edit);
    calls() = 0;
  }
  ~Rewrite() { current() = nullptr; }
  Rewrite(const Rewrite&) = delete;
  Rewrite& operator=(const Rewrite&) = delete;

  static int& calls() {
    static int count = 0;
    return count;
  }

 private:
  static Edit& current() {
    static Edit edit;
    return edit;
  }
  // The test program's own call of recvmsg reaches the real one.
  static ssize_t receive(int fd, msghdr* message, int flags) {
    const ssize_t size = ::recvmsg(fd, message, flags);
    if (size <= 0 || !current()) return size;
    return current()(static_cast<char*>(message->msg_iov[0].iov_base), size, ++calls());
  }

  fault::StandIn standIn_;
};

}  // namespace rtnetlink
}  // namespace test
}  // namespace quorel

#endif
