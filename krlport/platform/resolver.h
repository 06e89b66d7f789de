// Internal OS layer for host names and IPv4 address texts: the resolver's
// look-ups by name and by address, this host's name, and the dotted-text
// conversions of the socket library. One function per call, no policy: the
// retries, caches and the lock around them belong to KRLPortable.
// Internal: use KRLPortable or BaseUtil instead.
#ifndef KRLPORT_PLATFORM_RESOLVER_H_
#define KRLPORT_PLATFORM_RESOLVER_H_

#include <cstddef>
#include <cstdint>

namespace krl_internal {

// The resolver's "try again" error: TRY_AGAIN (h_errno) on Linux,
// WSATRY_AGAIN (11002) on Windows.
extern const int kResolverTryAgain;

// Looks a host up by name, or by address (addr holds len bytes of an address
// of family type). Returns the result, a hostent record of the socket
// library, or null with error set to the resolver's error (h_errno;
// WSAGetLastError on Windows). entry is a hostent too.
//
// On Linux the look-up is reentrant: the result is built in entry and in data
// (size bytes), and stays valid as long as they do. On Windows it is
// gethostbyname / gethostbyaddr, whose result lives in the socket library's
// per-thread storage until the thread's next look-up; entry and data are not
// used there. Safe from any thread either way.
void* lookup_host_by_name(const char* name, void* entry, char* data, std::size_t size, int& error);
void* lookup_host_by_address(const void* addr, int len, int type, void* entry, char* data,
                             std::size_t size, int& error);

// This host's name (gethostname) into out, size bytes at most; what the call
// leaves there on failure is unspecified. True on success.
bool local_host_name(char* out, std::size_t size);

// inet_addr: the address a dotted text stands for, in network order. False
// for a text it doesn't take, and for 255.255.255.255, which reads as
// INADDR_NONE.
bool parse_ipv4(const char* text, std::uint32_t& address);

// inet_ntoa: the dotted text of an address in network order, in the socket
// library's one buffer (per thread on Windows, per process on Linux), which
// the next call overwrites. The caller holds KRLPortable::_mutex from the
// call until it has copied the text.
const char* ipv4_text(std::uint32_t address);

}  // namespace krl_internal

#endif  // KRLPORT_PLATFORM_RESOLVER_H_
