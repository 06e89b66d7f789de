// Internal OS layer for the socket calls of KRLPortable and KRLPipe: the
// calls whose descriptor type, closing, blocking mode, connect wait or error
// numbers differ between systems. One function per OS service, no policy: the
// retry rules and the exceptions belong to portable/.
// Internal: use KRLPortable or KRLPipe instead.
//
// Descriptors are the library's int form on every system. On Windows that is
// the SOCKET handle's value: handles are significant in their low 32 bits
// only, so the value fits an int and -1 stands for INVALID_SOCKET.
//
// Addresses are the socket library's sockaddr records, passed as untyped
// pointers with their length in bytes.
//
// Error numbers are the system's own socket errors, captured at the call:
// errno on Linux, WSAGetLastError on Windows (where a refused connect is
// 10061). A function that can fail returns that number, 0 on success.
#ifndef KRLPORT_PLATFORM_SOCKET_H_
#define KRLPORT_PLATFORM_SOCKET_H_

#include <cstddef>

namespace krl_internal {

// The socket errors the library tests by name, in the system's numbers.
// EINTR, EWOULDBLOCK and EINPROGRESS (WSAEINTR 10004, WSAEWOULDBLOCK 10035,
// WSAEINPROGRESS 10036) stay inside this layer.
extern const int kSocketNoDescriptor;  // EMFILE, WSAEMFILE (10024)
extern const int kSocketAddressInUse;  // EADDRINUSE, WSAEADDRINUSE (10048)
extern const int kSocketRefused;       // ECONNREFUSED, WSAECONNREFUSED (10061)

// Starts the socket library for this process: WSAStartup asking for version
// 1.1 on Windows, whose result it returns; nothing to start on Linux (0).
// Never undone.
int start_sockets();

// A new socket in fd, blocking, or -1. On Linux close-on-exec.
int open_socket(int family, int type, int protocol, int& fd);

// Releases fd (closesocket on Windows: close() there would leak it). Errors
// are not reported: the descriptor is gone either way.
void close_socket(int fd);

// Switches fd to non-blocking mode (FIONBIO).
int set_nonblocking(int fd);

int bind_socket(int fd, const void* address, int length);
int listen_socket(int fd, int backlog);

// Accepts one connection into fd (-1 on failure); peer gets length bytes at
// most of its address, and length what was written. Restarts when a signal
// cuts the wait short. On Linux the new socket is close-on-exec.
int accept_socket(int listener, void* peer, int& length, int& fd);

// Starts a connect; 0 when connected at once.
int connect_socket(int fd, const void* address, int length);

// True when error from connect_socket means a connection still under way, to
// be waited for with wait_connected: a non-blocking connect in progress
// (EINPROGRESS; WSAEWOULDBLOCK or WSAEINPROGRESS), or on Linux a blocking
// connect that a signal cut short (EINTR), which goes on in the kernel.
bool connect_under_way(int error);

// Waits for a connect under way on fd to finish, well or not, for timeout_ms
// milliseconds (negative: no limit), restarting after signals with the same
// time-out. Returns 1 when it finished, with error its outcome (0 connected,
// else the error of the connect, read from SO_ERROR, or kSocketRefused when
// that can't be read); 0 when the time ran out; -1 with error set when the
// wait itself failed. A failed connect shows in select's exception set on
// Windows, so both the write and the exception set are watched there.
int wait_connected(int fd, long long timeout_ms, int& error);

// The address fd is bound to, or of its peer: length bytes at most, and
// length what was written.
int socket_name(int fd, void* address, int& length);
int peer_name(int fd, void* address, int& length);

// Sets SO_REUSEADDR to on.
int set_address_reuse(int fd, bool on);

// One send or recv with flags 0: the byte count, or -1. A length beyond the system's limit for one
// call (INT_MAX on Windows) is cut to it.
long long send_bytes(int fd, const char* data, std::size_t length);
long long receive_bytes(int fd, char* data, std::size_t length);

}  // namespace krl_internal

#endif  // KRLPORT_PLATFORM_SOCKET_H_
