/// @file
/// KRLPortable: the portable interface over the operating system's clock,
/// process, file, version, property and text services, its IPv4 addresses and
/// host names, and its TCP sockets. Static members only; never instantiated.
///
/// Times are either a timeval or an unsigned long long count of milliseconds.
/// The clock's grain is one millisecond: tv_usec read from it is always a
/// multiple of 1000. None of these operations takes a lock, and all are safe
/// from any thread unless their comment says otherwise.
#ifndef KRLPORT_PORTABLE_PORTABLE_H_
#define KRLPORT_PORTABLE_PORTABLE_H_

// timeval, sockaddr and sockaddr_in come from the socket library's headers.
#ifdef _WIN32
#include <winsock2.h>
#else
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/time.h>
#endif

#include "krlport/frame/export.h"
#include "krlport/portable/host_records.h"
#include "krlport/threads/mutex.h"

/// The portable interface over the operating system; static members only.
/// See the file description for time units and thread-safety.
class KRL_EXPORT KRLPortable {
 public:
  /// @name Clock and time arithmetic
  ///@{

  /// Both read the wall clock, cut to milliseconds.
  static void gettimeofday(timeval& tv);
  /// As gettimeofday(*tv).
  static void vgettimeofday(timeval* tv);
  /// end - start (earlier first), with tv_usec brought into 0..1000000. A
  /// difference of exactly 1000000 microseconds is left as it is.
  static timeval elapsed(const timeval& start, const timeval& end);
  /// Zero when equal, positive when a is later: the difference of the
  /// seconds, or when they are equal of the microseconds.
  static long compare_time(timeval& a, timeval& b);
  /// a in milliseconds minus milliseconds, reckoned in 32 bits and wrapping.
  static long compare_time(timeval& a, unsigned long long milliseconds);
  /// tv_sec takes the low 32 bits of milliseconds / 1000.
  static void convert(unsigned long long milliseconds, timeval& tv);
  /// tv_sec * 1000 + tv_usec / 1000 in 64 bits; partial milliseconds drop.
  static unsigned long long convert(const timeval& tv);
  /// Blocks for the given milliseconds (cut to 32 bits); 0 only gives up the
  /// processor.
  static void sleep(unsigned long milliseconds);
  /// Blocks for the given seconds (times 1000 in 32 bits); 0 only gives up
  /// the processor.
  static void vsleep(unsigned long seconds);

  ///@}

  /// @name Process, error, file and text helpers
  ///@{

  /// The calling process's id.
  static unsigned long process_id();
  /// Ends the process at once. Reports nothing, whether or not the process
  /// existed or could be ended. Ids of 0 and below are ignored.
  static void vkill(long pid);
  /// The calling thread's last error number (errno; GetLastError on Windows).
  static unsigned long vGetErrorNo();
  /// Text of vGetErrorNo(); the caller frees it with CORBA::string_free.
  static char* _get_error_str();
  /// True when the path names anything, a directory included.
  static unsigned char vFileExists(const char* path);
  /// Looks for the file name in the current directory, then in each PATH
  /// entry, and writes its full path to out, or an empty string. out must
  /// hold PATH_MAX (4096) bytes. True when found.
  static unsigned char vwhence(const char* name, char* out);
  /// Case-insensitive comparison, as strcasecmp.
  static int vstricmp(const char* a, const char* b);
  /// The constant 1024; unrelated to the system's descriptor limit.
  static unsigned long max_fds();
  /// Always false.
  static unsigned char max_fd_reached(int fd);
  /// The host calls this before it uses any socket operation. The first call
  /// starts the socket library (WSAStartup, version 1.1, on Windows; nothing
  /// needs starting on Linux) and sets the started flag, whatever the outcome;
  /// later calls return at once. Throws CORBA_BAD_INV_ORDER (4,
  /// COMPLETED_MAYBE) when the start-up fails, which it never does on Linux.
  /// Not for racing threads.
  static void win_startup();
  /// Copies the system version, cut to 16 bits per field, into out. False,
  /// out untouched, when the version can't be read.
  static unsigned char get_sysversion(KRLSysVersion& out);
  /// BaseUtil::GetProperty: not owned by the caller.
  static char* get_property(const char* name);
  /// UTF-16 form of a UTF-8 text; the caller frees it with
  /// CORBA::wstring_free. Null for null, and for text that is not UTF-8
  /// (after a message on cout).
  static unsigned short* _convert_to_wide(const char* text);

  ///@}

  /// @name Addresses and host names (IPv4 only: family 2, AF_INET)
  ///
  /// Texts the caller owns are freed with CORBA::string_free. Two things are
  /// cached for the life of the process: this host's name and its dotted
  /// address. Name look-ups run under _mutex, so a slow resolver delays every
  /// other conversion; a resolver that keeps answering "try again" is asked at
  /// most 5 times per call.
  ///@{

  /// This host's name, read once (empty if that failed). Never null.
  static const char* host_name();
  /// Dotted address of host: a dotted text comes back as given, a name is
  /// looked up, null or empty means this host (cached). Null when not found.
  static char* ip_addr(const char* host);
  /// ip_addr(host); family is not looked at.
  static char* ipAddr(int family, const char* host);
  /// Stores the four address bytes of host (null or empty: this host) at out.
  /// False, out untouched, for a family other than 2 or an unknown name.
  static unsigned char ipAddr(int family, void* out, const char* host);
  /// Sets length to 4, then ipAddr(2, out, host).
  static unsigned char ipAddr(void* out, int& length, const char* host);
  /// The dotted address of sa; port gets its port in host order.
  static char* convert(const sockaddr_in& sa, unsigned short& port);
  /// Zeroes sa and fills address and port; a name of this host becomes
  /// 127.0.0.1, null or empty the wild address. sin_family stays 0 for the
  /// caller to set. Throws CORBA_COMM_FAILURE() when the name is unknown.
  static void convert(const char* host, unsigned short port, sockaddr_in& sa);

  /// The sa* operations act on family 2 only: setters leave another family
  /// untouched, saGetPort gives -1 for it.
  static void saSetPort(sockaddr* sa, int port);
  /// The port of sa in host order; -1 for another family.
  static int saGetPort(sockaddr* sa);
  /// Port of the socket's own name; -1 when it has none.
  static int saGetPort(int fd);
  /// Sets the wild address (INADDR_ANY).
  static void saSetWild(sockaddr* sa);
  /// Sets 127.0.0.1.
  static void saSetLoopback(sockaddr* sa);
  /// This host's own address (unchanged if that can't be found).
  static void saSetLocal(sockaddr* sa);
  /// True for 127.0.0.1 only.
  static unsigned char saIsLoopback(sockaddr* sa);
  /// True when inet_addr takes text (255.255.255.255 does not count).
  static unsigned char isValidIP(int family, const char* text);

  /// True when host is 127.0.0.1 or resolves to the same dotted text as this
  /// host. Texts are compared, so 127.1 is not local.
  static unsigned char is_local(const char* host);
  /// Null or empty: true with no look-up; else is_local(host).
  static unsigned char isLocal(const char* host);
  /// is_local of the peer's address. Throws CORBA_BAD_INV_ORDER (4,
  /// COMPLETED_MAYBE) for a negative fd.
  static unsigned char is_peer_local(int fd);
  /// Dotted address of the peer, its port in port; null (port untouched) when
  /// the socket has no peer. Throws CORBA_BAD_INV_ORDER for a negative fd.
  static char* peer_addr(int fd, unsigned short& port);
  /// ip_addr(host) and family 2, or CORBA_BAD_PARAM (8, COMPLETED_NO) with the
  /// reason "Could not map <host> into IP address".
  static char* host2ip(int& family, const char* host);
  /// Looks name up into one static record shared by all callers, which the
  /// next call overwrites: one thread at a time. Threads use
  /// BaseUtil::vgethostbyname_r with their own vhostname instead.
  static hostent* gethostbyname(const char* name);

  ///@}

  /// @name TCP connections
  ///
  /// Sockets are plain int descriptors (on Windows the SOCKET's value) and
  /// belong to the caller from the moment they are returned. Socket errors
  /// are thrown as CORBA_NO_RESOURCES for "too many open sockets" (EMFILE,
  /// WSAEMFILE 10024), else CORBA_COMM_FAILURE, minor the system's socket
  /// error number (errno; WSAGetLastError on Windows, where a refused connect
  /// is 10061), COMPLETED_NO. No lock is held apart from _mutex inside the
  /// name look-ups.
  ///@{

  /// Connects to host:port (null, empty or this host: 127.0.0.1 first). timeout
  /// in milliseconds, 0 for none, is given whole to each attempt; a refusal is
  /// retried at once (on this host's own address if the target was loopback),
  /// then after sleeps of 1, 2, 4 ... seconds taken out of timeout. With a
  /// timeout the socket is returned non-blocking. bind_address: a dotted
  /// address to bind the client side to, or null / empty. Throws
  /// CORBA_TIMEOUT when an attempt's wait runs out, CORBA_BAD_PARAM (8) for a
  /// host or bind_address that can't be used, else by the socket-error rule.
  /// Leaves no descriptor open when it throws. Each failed attempt and each
  /// back-off sleep is a debug-log record under mask 0x20000001
  /// (KRLDebugLog::enable).
  static int tcpConnect(const char* host, unsigned short port, unsigned long long timeout,
                        const char* bind_address);
  /// One attempt on the open socket fd. On return error is 0 and fd connected,
  /// or error is the socket error number and fd closed and set to -1. Throws
  /// CORBA_TIMEOUT (fd closed, -1) when timeout ran out.
  static void tcpConnect(int& fd, int& error, sockaddr* address, int address_length,
                         unsigned long long timeout);
  /// A blocking listening socket (backlog 1024) on the first port, from port
  /// to port + port_range, that binds; port 0 lets the system choose. Null or
  /// empty host: the wild address. The error of the last port tried is thrown.
  static int createTcpListenerSocket(const char* host, unsigned short port,
                                     unsigned long port_range);
  /// Accepts one connection; the new socket is the caller's.
  static int socketAccept(int listener);
  /// Throws code by the socket-error rule; the text is not used.
  [[noreturn]] static void socketError(int code, const char* text);
  ///@}

 private:
  KRLPortable();

  // Guards inet_ntoa and the host-name caches; recursive, held across name
  // look-ups. Defined in the load-order unit.
  static KRLMutex _mutex;
};

#endif  // KRLPORT_PORTABLE_PORTABLE_H_
