// Link enumeration over rtnetlink: the two dumps, their decoding, and the
// retries that keep a list whole.
#include <quorel/sal/inet/impl/Link.h>

#include <errno.h>
#include <linux/if_link.h>
#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <net/if_arp.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <utility>

#include <quorel/sal/inet/Exception.h>
#include <quorel/util/Throw.h>

#include <quorel/sal/inet/impl/link.inl>

namespace quorel {
namespace sal {
namespace inet {
namespace impl {
namespace link {

namespace {

// Answers of dumps are at most 32 KiB on current kernels; a larger one is
// noticed (receive() reports its whole length) and read again with room.
constexpr std::size_t kAnswerSize = 32768;

// How a dump went.
enum class Outcome { kComplete, kInterrupted, kAnswerTooLarge };

// The routing socket of one enumeration, closed however it ends.
class Socket {
 public:
  Socket() : fd_(open()) {}
  ~Socket() { close(fd_); }
  Socket(const Socket&) = delete;
  Socket& operator=(const Socket&) = delete;
  int fd() const { return fd_; }

 private:
  int fd_;
};

// A dump request: the header, the family message and one attribute.
struct Request {
  nlmsghdr header;
  union {
    ifinfomsg link;
    ifaddrmsg address;
  } body;
  rtattr attribute;
  pod::uint32 value;
};

[[noreturn]] void malformed(const char* request) {
  QUOREL_THROW(inet::Exception)("the " + std::string(request) + " answer is malformed",
                                sal::i::err::domain::kInterfaceEnumeration, EPROTO);
}

[[noreturn]] void refused(const char* request, int error) {
  QUOREL_THROW(inet::Exception)("the kernel refused the " + std::string(request) + " dump",
                                sal::i::err::domain::kInterfaceEnumeration, error);
}

// Decodes one answer, handing each entry message to each. Returns true when
// the dump's last answer (NLMSG_DONE) was in it; interrupted is set when any
// message carried NLM_F_DUMP_INTR.
template <class Each>
bool walk(const char* answer, std::size_t size, pod::uint32 sequence, const char* request, bool& interrupted,
          Each each) {
  std::size_t offset = 0;
  while (offset < size) {
    if (size - offset < sizeof(nlmsghdr)) malformed(request);
    const nlmsghdr& message = *reinterpret_cast<const nlmsghdr*>(answer + offset);
    if (message.nlmsg_len < sizeof(nlmsghdr) || message.nlmsg_len > size - offset) malformed(request);
    offset += NLMSG_ALIGN(message.nlmsg_len);
    if (message.nlmsg_seq != sequence) continue;  // not an answer to this request
    if (message.nlmsg_flags & NLM_F_DUMP_INTR) interrupted = true;
    if (message.nlmsg_type == NLMSG_DONE) {
      // A dump that failed part-way ends with the negative errno here.
      int error = 0;
      if (message.nlmsg_len >= NLMSG_LENGTH(sizeof error)) std::memcpy(&error, NLMSG_DATA(&message), sizeof error);
      if (error < 0) refused(request, -error);
      return true;
    }
    if (message.nlmsg_type == NLMSG_ERROR) {
      if (message.nlmsg_len < NLMSG_LENGTH(sizeof(nlmsgerr))) malformed(request);
      const int error = static_cast<const nlmsgerr*>(NLMSG_DATA(&message))->error;
      if (error != 0) refused(request, -error);
      continue;
    }
    each(message);
  }
  return false;
}

// The answer buffer of one enumeration: uninitialised (the kernel writes
// it), grown when an answer does not fit.
class Buffer {
 public:
  Buffer() : words_(new pod::uint32[kAnswerSize / sizeof(pod::uint32)]), size_(kAnswerSize) {}
  char* data() { return reinterpret_cast<char*>(words_.get()); }
  std::size_t size() const { return size_; }
  void grow(std::size_t size) {
    const std::size_t words = (size + sizeof(pod::uint32) - 1) / sizeof(pod::uint32);
    words_.reset(new pod::uint32[words]);
    size_ = words * sizeof(pod::uint32);
  }

 private:
  std::unique_ptr<pod::uint32[]> words_;  // netlink messages are 4-byte aligned
  std::size_t size_;
};

// Sends a dump request and reads its answers until the end.
template <class Each>
Outcome dump(int socket, Request& request, const char* name, Buffer& buffer, Each each) {
  link::request(socket, &request, request.header.nlmsg_len, name);
  bool interrupted = false;
  for (bool done = false; !done;) {
    const std::size_t size = receive(socket, buffer.data(), buffer.size(), name);
    if (size > buffer.size()) {
      buffer.grow(size);
      return Outcome::kAnswerTooLarge;
    }
    done = walk(buffer.data(), size, request.header.nlmsg_seq, name, interrupted, each);
  }
  return interrupted ? Outcome::kInterrupted : Outcome::kComplete;
}

Request dumpRequest(pod::uint16 type, pod::uint32 sequence) {
  Request request;
  std::memset(&request, 0, sizeof request);
  request.header.nlmsg_type = type;
  request.header.nlmsg_flags = NLM_F_REQUEST | NLM_F_DUMP;
  request.header.nlmsg_seq = sequence;
  if (type == RTM_GETLINK) {
    request.body.link.ifi_family = AF_UNSPEC;
    // Leave out the statistics: most of each record, and unused here.
    request.attribute.rta_type = IFLA_EXT_MASK;
    request.attribute.rta_len = RTA_LENGTH(sizeof request.value);
    request.value = RTEXT_FILTER_SKIP_STATS;
    request.header.nlmsg_len = sizeof request;
  } else {
    request.body.address.ifa_family = AF_UNSPEC;
    request.header.nlmsg_len = NLMSG_LENGTH(sizeof(ifaddrmsg));
  }
  return request;
}

std::string textOf(const rtattr& attribute) {
  const char* text = static_cast<const char*>(RTA_DATA(&attribute));
  return std::string(text, ::strnlen(text, RTA_PAYLOAD(&attribute)));
}

// The attributes of a message, or false when one is malformed.
template <class Each>
bool attributes(const rtattr* first, int length, Each each) {
  const rtattr* attribute = first;
  for (; RTA_OK(attribute, length); attribute = RTA_NEXT(attribute, length)) each(*attribute);
  return length < static_cast<int>(sizeof(rtattr));
}

bool decodeLink(const nlmsghdr& message, Link& link) {
  if (message.nlmsg_type != RTM_NEWLINK || message.nlmsg_len < NLMSG_LENGTH(sizeof(ifinfomsg))) return false;
  const ifinfomsg& info = *static_cast<const ifinfomsg*>(NLMSG_DATA(&message));
  link.index = info.ifi_index;
  link.flags = info.ifi_flags;
  link.type = info.ifi_type;
  const bool wellFormed = attributes(IFLA_RTA(&info), IFLA_PAYLOAD(&message), [&link](const rtattr& attribute) {
    switch (attribute.rta_type) {
      case IFLA_IFNAME:
        link.name = textOf(attribute);
        break;
      case IFLA_MTU:
        if (RTA_PAYLOAD(&attribute) >= sizeof link.mtu) std::memcpy(&link.mtu, RTA_DATA(&attribute), sizeof link.mtu);
        break;
      case IFLA_ADDRESS:
        link.hardware.assign(static_cast<const char*>(RTA_DATA(&attribute)), RTA_PAYLOAD(&attribute));
        break;
      case IFLA_LINKINFO:
        attributes(static_cast<const rtattr*>(RTA_DATA(&attribute)), static_cast<int>(RTA_PAYLOAD(&attribute)),
                   [&link](const rtattr& inner) {
                     if (inner.rta_type == IFLA_INFO_KIND) link.kind = textOf(inner);
                   });
        break;
      default:
        break;
    }
  });
  return wellFormed && link.index > 0 && !link.name.empty();
}

inet::Address addressOf(int family, const void* bytes, unsigned int scopeID) {
  impl::Address* address = new impl::Address;
  if (family == AF_INET) {
    address->storage.v4.sin_family = AF_INET;
    std::memcpy(&address->storage.v4.sin_addr, bytes, sizeof address->storage.v4.sin_addr);
  } else {
    address->storage.v6.sin6_family = AF_INET6;
    std::memcpy(&address->storage.v6.sin6_addr, bytes, sizeof address->storage.v6.sin6_addr);
    address->storage.v6.sin6_scope_id = scopeID;
  }
  return inet::Address::adopt(address);
}

bool decodeAddress(const nlmsghdr& message, int& index, impl::LinkAddress& entry) {
  if (message.nlmsg_type != RTM_NEWADDR || message.nlmsg_len < NLMSG_LENGTH(sizeof(ifaddrmsg))) return false;
  const ifaddrmsg& info = *static_cast<const ifaddrmsg*>(NLMSG_DATA(&message));
  if (info.ifa_family != AF_INET && info.ifa_family != AF_INET6) return false;
  const std::size_t size = info.ifa_family == AF_INET ? 4 : 16;
  const void* local = nullptr;
  const void* address = nullptr;
  const void* broadcast = nullptr;
  bool sized = true;
  entry.flags = info.ifa_flags;
  const bool wellFormed = attributes(IFA_RTA(&info), IFA_PAYLOAD(&message), [&](const rtattr& attribute) {
    const void* data = RTA_DATA(&attribute);
    const std::size_t length = RTA_PAYLOAD(&attribute);
    switch (attribute.rta_type) {
      case IFA_LOCAL:
        local = data;
        sized = sized && length == size;
        break;
      case IFA_ADDRESS:
        address = data;
        sized = sized && length == size;
        break;
      case IFA_BROADCAST:
        broadcast = data;
        sized = sized && length == size;
        break;
      case IFA_FLAGS:  // all the flags; the header holds only the low eight
        if (length >= sizeof entry.flags) std::memcpy(&entry.flags, data, sizeof entry.flags);
        break;
      case IFA_LABEL:
        entry.label = textOf(attribute);
        break;
      default:
        break;
    }
  });
  if (!wellFormed || !sized || (local == nullptr && address == nullptr)) return false;
  if (info.ifa_prefixlen > size * 8 || info.ifa_index == 0) return false;
  // IFA_LOCAL is the link's own address; IFA_ADDRESS, where both are given
  // and differ, the far end of a point-to-point link.
  const unsigned int scopeID = info.ifa_scope == RT_SCOPE_LINK && size == 16 ? info.ifa_index : 0;
  entry.address = addressOf(info.ifa_family, local != nullptr ? local : address, scopeID);
  if (local != nullptr && address != nullptr && std::memcmp(local, address, size) != 0)
    entry.peer = addressOf(info.ifa_family, address, scopeID);
  if (broadcast != nullptr && size == 4) entry.broadcast = addressOf(AF_INET, broadcast, 0);
  entry.prefixLength = info.ifa_prefixlen;
  entry.scope = info.ifa_scope;
  index = static_cast<int>(info.ifa_index);
  return true;
}

}  // namespace

std::vector<Link> enumerate() {
  Buffer buffer;
  std::vector<Link> links;
  std::vector<std::pair<int, impl::LinkAddress>> addresses;
  for (int interrupted = 0;;) {
    Socket socket;
    links.clear();
    addresses.clear();
    // The addresses first: the kernel sizes the answers to a dump after the
    // reader's last receive, so the larger link records then arrive in one
    // answer instead of two.
    Request addressRequest = dumpRequest(RTM_GETADDR, 1);
    Outcome outcome = dump(socket.fd(), addressRequest, "RTM_GETADDR", buffer, [&addresses](const nlmsghdr& message) {
      std::pair<int, impl::LinkAddress> entry;
      if (decodeAddress(message, entry.first, entry.second)) addresses.push_back(std::move(entry));
    });
    if (outcome == Outcome::kComplete) {
      Request linkRequest = dumpRequest(RTM_GETLINK, 2);
      outcome = dump(socket.fd(), linkRequest, "RTM_GETLINK", buffer, [&links](const nlmsghdr& message) {
        Link link;
        if (decodeLink(message, link)) links.push_back(std::move(link));
      });
    }
    if (outcome == Outcome::kInterrupted && ++interrupted == kAttempts) {
      QUOREL_THROW(inet::Exception)("the link enumeration was interrupted " + std::to_string(kAttempts) +
                                        " times in a row",
                                    sal::i::err::domain::kInterfaceEnumeration, EAGAIN);
    }
    if (outcome != Outcome::kComplete) continue;

    const auto byIndex = [](const Link& a, const Link& b) { return a.index < b.index; };
    std::stable_sort(links.begin(), links.end(), byIndex);
    links.erase(std::unique(links.begin(), links.end(),
                            [](const Link& a, const Link& b) { return a.index == b.index; }),
                links.end());
    for (std::pair<int, impl::LinkAddress>& entry : addresses) {
      Link key;
      key.index = entry.first;
      const auto at = std::lower_bound(links.begin(), links.end(), key, byIndex);
      // An address of a link removed before the link dump: left out.
      if (at != links.end() && at->index == entry.first) at->addresses.emplace_back(std::move(entry.second));
    }
    return links;
  }
}

}  // namespace link
}  // namespace impl
}  // namespace inet
}  // namespace sal
}  // namespace quorel
