/// \file
/// The state behind inet::Link and the rtnetlink enumeration that fills it.
///
/// Links come from the kernel's routing socket (rtnetlink), not from
/// "getifaddrs()". Both read the same two kernel dumps (links and
/// addresses), but reading them here:
/// - lists every link, also those without a link-layer address (tun,
///   wireguard, ipip), which "getifaddrs()" reports with no address record of
///   their own and so easily get lost;
/// - carries what "getifaddrs()" has no field for: the MTU, the link type and
///   kind, IPv6 address scope and address flags;
/// - sees an interrupted dump (NLM_F_DUMP_INTR: links or addresses changed
///   while the kernel was answering) and reads it again, so a list is never
///   half old, half new;
/// - asks the kernel to leave out the per-link statistics, which make up most
///   of a link's record and which nothing here reports, so an enumeration
///   moves a fraction of the bytes.
#ifndef QUOREL_SAL_INET_IMPL_LINK_H
#define QUOREL_SAL_INET_IMPL_LINK_H

#include <cstddef>
#include <string>
#include <vector>

#include <quorel/sal/inet/LinkAddress.h>
#include <quorel/util/pod.h>

namespace quorel {
namespace sal {
namespace inet {
namespace impl {

/// One network link: its identity, state and addresses.
struct Link {
  std::string name;
  int index = 0;
  unsigned int flags = 0;  // IFF_*
  unsigned int mtu = 0;
  unsigned short type = 0;  // ARPHRD_*
  std::string kind;         // "veth", "bridge", "tun", ...; empty for a plain device
  std::string hardware;     // the link-layer address bytes; empty when there is none
  std::vector<inet::LinkAddress> addresses;
};

namespace link {

/// Reads the host's links with their addresses, sorted by index. A dump
/// that the kernel marks interrupted is read again (up to kAttempts times);
/// an entry that cannot be read (no name, a malformed attribute, an address
/// of a link removed before the link dump) is left out, never fatal.
/// Throws inet::Exception: a failed system call in the system-call domain
/// ("::socket(AF_NETLINK, NETLINK_ROUTE) failed", "::sendto(RTM_GETLINK)
/// failed", "::recvmsg(RTM_GETADDR) failed"), a failure of the enumeration
/// itself in the interface enumeration domain ("the kernel refused the
/// RTM_GETLINK dump" with its errno, "the RTM_GETADDR answer is malformed"
/// EPROTO, "the link enumeration was interrupted 8 times in a row" EAGAIN).
std::vector<Link> enumerate();
constexpr int kAttempts = 8;

// Platform calls, one each.

/// A routing socket. Throws inet::Exception "::socket(AF_NETLINK,
/// NETLINK_ROUTE) failed" (system-call domain, errno).
int open();
/// Never throws.
void close(int socket);
/// Sends request (a whole netlink message) to the kernel. Throws
/// inet::Exception "::sendto(<what>) failed".
void request(int socket, const void* message, std::size_t size, const char* what);
/// Receives one answer into buffer and returns its whole length, which is
/// larger than size when the answer did not fit (and was lost). Retries
/// after EINTR. Throws inet::Exception "::recvmsg(<what>) failed".
std::size_t receive(int socket, void* buffer, std::size_t size, const char* what);

}  // namespace link
}  // namespace impl
}  // namespace inet
}  // namespace sal
}  // namespace quorel

#endif
