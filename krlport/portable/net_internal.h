// Internal helpers shared by the address, TCP and pipe code of KRLPortable,
// and the seams their tests use in place of the resolver and the back-off
// sleep. Internal: use KRLPortable and KRLPipe instead.
#ifndef KRLPORT_PORTABLE_NET_INTERNAL_H_
#define KRLPORT_PORTABLE_NET_INTERNAL_H_

#include <cstddef>

#include "krlport/portable/host_records.h"

struct sockaddr;

namespace krl_internal {

// Size of every reason text built here, terminator included.
constexpr std::size_t kReasonSize = 256;

// Writes before + name + after into out, cutting name (null reads as "") so
// that the whole text fits in kReasonSize bytes and after stays whole.
void format_reason(char (&out)[kReasonSize], const char* before, const char* name,
                   const char* after);

// Throws CORBA_NO_RESOURCES for the socket error "no descriptor free"
// (EMFILE, WSAEMFILE), else CORBA_COMM_FAILURE; minor error, COMPLETED_NO.
[[noreturn]] void throw_socket_error(int error);

// CORBA_BAD_PARAM, minor 8, COMPLETED_NO, reason "Could not map <host> into
// IP address".
[[noreturn]] void throw_unmapped_host(const char* host);

// A name look-up with BaseUtil::vgethostbyname_r's contract.
using HostLookup = hostent* (*)(const char* name, vhostname* work);
// Every look-up of the address code goes through here.
hostent* look_up_host(const char* name, vhostname* work);
// Test seam: replaces the resolver; null restores it. Set it while no other
// thread looks names up.
void set_host_lookup(HostLookup lookup);

// Debug-log mask of the records tcpConnect writes for each failed attempt and
// each back-off sleep.
constexpr unsigned long kConnectTraceMask = 0x20000001;

// Sleeps milliseconds between connection attempts (64-bit, in pieces).
void backoff_sleep(unsigned long long milliseconds);
// Test seam: called instead of sleeping; null restores real sleeps.
void set_backoff_sleep(void (*sleep)(unsigned long long milliseconds));

// One connection attempt, with KRLPortable::tcpConnect(fd, error, ...)'s
// contract; tcpConnect(host, ...) makes every attempt through here.
using ConnectAttempt = void (*)(int& fd, int& error, sockaddr* address, int address_length,
                                unsigned long long timeout);
// Test seam: replaces the attempt; null restores it.
void set_connect_attempt(ConnectAttempt attempt);

}  // namespace krl_internal

#endif  // KRLPORT_PORTABLE_NET_INTERNAL_H_
