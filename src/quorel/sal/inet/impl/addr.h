/// \file
/// Socket address arithmetic and numeric text conversion.
#ifndef QUOREL_SAL_INET_IMPL_ADDR_H
#define QUOREL_SAL_INET_IMPL_ADDR_H

#include <netinet/in.h>
#include <sys/socket.h>

#include <string>

namespace quorel {
namespace sal {
namespace inet {
namespace impl {
namespace addr {

namespace str {
/// Numeric text of the address (no port, brackets or prefix); "" when it has
/// no family. Throws inet::Exception "failed convert a socket address to
/// string" (address resolution domain, the resolver's code).
const std::string from(const sockaddr& address);
/// Replaces the whole address (port included) with the numeric text's, in the
/// address's current family (IPv4 if it is AF_INET, else IPv6). Host names are
/// refused. Throws inet::Exception "::getaddrinfo('<text>') failed" or
/// "... returned no result".
void to(sockaddr& address, const std::string& text);
}  // namespace str

/// Leading one bits, read leniently: whole 255 bytes count 8, the first other
/// byte counts its leading ones if it is a contiguous mask byte and 8 if not;
/// later bytes are ignored (255.255.0.255 is 16, 255.255.37.0 is 24).
int prefixLengthOf(const sockaddr& address);
/// The address becomes the mask of prefixLength leading one bits.
void createMaskOn(sockaddr& address, int prefixLength);

unsigned short portOf(const sockaddr_in& address);
unsigned short portOf(const sockaddr_in6& address);
void setPortOf(sockaddr_in& address, unsigned short port);
void setPortOf(sockaddr_in6& address, unsigned short port);

}  // namespace addr
}  // namespace impl
}  // namespace inet
}  // namespace sal
}  // namespace quorel

/// Orderings of the system's address types: addresses compare in host byte
/// order; ports are never compared.
bool operator<(in_addr a, in_addr b);
bool operator<(const sockaddr_in& a, const sockaddr_in& b);
bool operator<(const in6_addr& a, const in6_addr& b);
bool operator<(const sockaddr_in6& a, const sockaddr_in6& b);
bool operator==(const in6_addr& a, const in6_addr& b);
bool operator==(const sockaddr_in6& a, const sockaddr_in6& b);

#endif
