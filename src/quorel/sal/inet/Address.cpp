// Address: the value type over impl::Address and the impl::addr functions.
#include <quorel/sal/inet/Address.h>

#include <quorel/sal/inet/impl/addr.inl>
#include <quorel/util/Exception.h>
#include <quorel/util/Throw.h>

namespace quorel {
namespace sal {
namespace inet {

namespace {

pod::uint32* wordsOf(impl::Address& a, int& count) {
  if (a.storage.any.sa_family == AF_INET) {
    count = 1;
    return &a.storage.v4.sin_addr.s_addr;
  }
  count = 4;
  return reinterpret_cast<pod::uint32*>(a.storage.v6.sin6_addr.s6_addr);
}

}  // namespace

Address::Address() : handle_(new impl::Address) {}

Address::Address(i::family::code family) : handle_(new impl::Address) {
  if (static_cast<unsigned int>(family) > i::family::kIPv6) {
    QUOREL_THROW(InvalidArgumentException)("unrecognized address family", sal::i::err::domain::kApplication,
                                           family);
  }
  handle_->storage.any.sa_family = family == i::family::kIPv4 ? AF_INET : AF_INET6;
}

Address::Address(const std::string& text, i::family::code family, unsigned short port) : Address(family) {
  setPort(port);
  impl::addr::str::to(handle_->storage.any, text);
}

Address::Address(const std::string& text, i::family::code family) : Address(family) {
  impl::addr::str::to(handle_->storage.any, text);
}

Address::Address(const Handle& handle) : handle_(handle) {}

Address Address::createMask(i::family::code family, int prefixLength) {
  const unsigned int length = static_cast<unsigned int>(prefixLength);
  if (family == i::family::kIPv4 && length > 32) {
    QUOREL_THROW(InvalidArgumentException)("prefix length must be [0, 32]", sal::i::err::domain::kApplication,
                                           prefixLength);
  }
  if (family == i::family::kIPv6 && length > 128) {
    QUOREL_THROW(InvalidArgumentException)("prefix length must be [0, 128]", sal::i::err::domain::kApplication,
                                           prefixLength);
  }
  if (family != i::family::kIPv4 && family != i::family::kIPv6) {
    QUOREL_THROW(InvalidArgumentException)("invalid address family specified", sal::i::err::domain::kApplication,
                                           0);
  }
  Address mask(family);
  impl::addr::createMaskOn(mask.handle_->storage.any, prefixLength);
  return mask;
}

Address Address::broadcastAddressFrom(const Address& address, const Address& mask) {
  Address broadcast = address.clone();
  impl::Address maskCopy = mask.handle_.reference();
  int count = 0;
  pod::uint32* words = wordsOf(*broadcast.handle_.operator->(), count);
  int maskCount = 0;
  const pod::uint32* maskWords = wordsOf(maskCopy, maskCount);
  for (int i = 0; i < count; ++i) words[i] |= ~maskWords[i];
  return broadcast;
}

Address Address::adopt(impl::Address* address) { return Address(Handle(address)); }

Address Address::clone() const { return Address(Handle(new impl::Address(handle_.reference()))); }

const sockaddr& Address::key() const { return handle_->storage.any; }

i::family::code Address::family() const {
  switch (handle_->storage.any.sa_family) {
    case AF_INET: return i::family::kIPv4;
    case AF_INET6: return i::family::kIPv6;
  }
  return i::family::kUnspecified;
}

unsigned short Address::port() const {
  const impl::Address& a = handle_.reference();
  if (a.storage.any.sa_family == AF_INET) return impl::addr::portOf(a.storage.v4);
  if (a.storage.any.sa_family == AF_INET6) return impl::addr::portOf(a.storage.v6);
  return 0;
}

unsigned int Address::scopeID() const { return handle_->storage.v6.sin6_scope_id; }

void Address::setPort(unsigned short port) {
  impl::Address& a = *handle_.operator->();
  if (a.storage.any.sa_family == AF_INET) {
    impl::addr::setPortOf(a.storage.v4, port);
  } else {
    impl::addr::setPortOf(a.storage.v6, port);
  }
}

void Address::setScopeID(unsigned int scopeID) { handle_->storage.v6.sin6_scope_id = scopeID; }

int Address::prefixLength() const { return impl::addr::prefixLengthOf(handle_->storage.any); }

void Address::setMask(const Address& mask) {
  impl::Address maskCopy = mask.handle_.reference();
  int count = 0;
  pod::uint32* words = wordsOf(*handle_.operator->(), count);
  int maskCount = 0;
  const pod::uint32* maskWords = wordsOf(maskCopy, maskCount);
  for (int i = 0; i < count; ++i) words[i] &= maskWords[i];
}

void Address::setMask(int prefixLength) { setMask(createMask(family(), prefixLength)); }

std::string Address::asString() const { return impl::addr::str::from(handle_->storage.any); }

bool Address::operator<(const Address& other) const {
  const impl::Address& a = handle_.reference();
  const impl::Address& b = other.handle_.reference();
  if (a.storage.any.sa_family != b.storage.any.sa_family) return a.storage.any.sa_family < b.storage.any.sa_family;
  if (a.storage.any.sa_family == AF_INET) return a.storage.v4 < b.storage.v4;
  if (a.storage.any.sa_family == AF_INET6) return a.storage.v6 < b.storage.v6;
  return false;
}

bool Address::operator==(const Address& other) const {
  const impl::Address& a = handle_.reference();
  const impl::Address& b = other.handle_.reference();
  if (a.storage.any.sa_family != b.storage.any.sa_family) return false;
  if (a.storage.any.sa_family == AF_INET) return a.storage.v4.sin_addr.s_addr == b.storage.v4.sin_addr.s_addr;
  if (a.storage.any.sa_family == AF_INET6) return a.storage.v6 == b.storage.v6;
  return false;
}

}  // namespace inet
}  // namespace sal
}  // namespace quorel
