// KRLPortable: the portable interface over the operating system's clock,
// process, file, version, property and text services (and, in later files,
// its addresses and sockets). Static members only; never instantiated.
//
// Times are either a timeval or an unsigned long long count of milliseconds.
// The clock's grain is one millisecond: tv_usec read from it is always a
// multiple of 1000. None of these operations takes a lock, and all are safe
// from any thread unless their comment says otherwise.
#ifndef KRLPORT_PORTABLE_PORTABLE_H_
#define KRLPORT_PORTABLE_PORTABLE_H_

#include <sys/time.h>

#include "krlport/frame/export.h"
#include "krlport/portable/host_records.h"
#include "krlport/threads/mutex.h"

class KRL_EXPORT KRLPortable {
 public:
  // --- Clock and time arithmetic ---

  // Both read the wall clock, cut to milliseconds.
  static void gettimeofday(timeval& tv);
  static void vgettimeofday(timeval* tv);
  // end - start (earlier first), with tv_usec brought into 0..1000000. A
  // difference of exactly 1000000 microseconds is left as it is.
  static timeval elapsed(const timeval& start, const timeval& end);
  // Zero when equal, positive when a is later: the difference of the
  // seconds, or when they are equal of the microseconds.
  static long compare_time(timeval& a, timeval& b);
  // a in milliseconds minus milliseconds, reckoned in 32 bits and wrapping.
  static long compare_time(timeval& a, unsigned long long milliseconds);
  // tv_sec takes the low 32 bits of milliseconds / 1000.
  static void convert(unsigned long long milliseconds, timeval& tv);
  // tv_sec * 1000 + tv_usec / 1000 in 64 bits; partial milliseconds drop.
  static unsigned long long convert(const timeval& tv);
  // Blocks for the given milliseconds (cut to 32 bits); 0 only gives up the
  // processor.
  static void sleep(unsigned long milliseconds);
  // Blocks for the given seconds (times 1000 in 32 bits); 0 only gives up
  // the processor.
  static void vsleep(unsigned long seconds);

  // --- Process, error, file and text helpers ---

  static unsigned long process_id();
  // Ends the process at once. Reports nothing, whether or not the process
  // existed or could be ended. Ids of 0 and below are ignored.
  static void vkill(long pid);
  // The calling thread's last error number (errno).
  static unsigned long vGetErrorNo();
  // Text of vGetErrorNo(); the caller frees it with CORBA::string_free.
  static char* _get_error_str();
  // True when the path names anything, a directory included.
  static unsigned char vFileExists(const char* path);
  // Looks for the file name in the current directory, then in each PATH
  // entry, and writes its full path to out, or an empty string. out must
  // hold PATH_MAX (4096) bytes. True when found.
  static unsigned char vwhence(const char* name, char* out);
  // Case-insensitive comparison, as strcasecmp.
  static int vstricmp(const char* a, const char* b);
  // The constant 1024; unrelated to the system's descriptor limit.
  static unsigned long max_fds();
  // Always false.
  static unsigned char max_fd_reached(int fd);
  // The host calls this before it uses any socket operation. Nothing needs
  // starting on this system: the first call sets the started flag, later
  // calls return at once, and it never throws here. Not for racing threads.
  static void win_startup();
  // Copies the system version, cut to 16 bits per field, into out. False,
  // out untouched, when the version can't be read.
  static unsigned char get_sysversion(KRLSysVersion& out);
  // BaseUtil::GetProperty: not owned by the caller.
  static char* get_property(const char* name);
  // UTF-16 form of a UTF-8 text; the caller frees it with
  // CORBA::wstring_free. Null for null, and for text that is not UTF-8
  // (after a message on cout).
  static unsigned short* _convert_to_wide(const char* text);

 private:
  KRLPortable();

  // Guards inet_ntoa and the host-name caches; recursive, held across name
  // look-ups. Defined in the load-order unit.
  static KRLMutex _mutex;
};

#endif  // KRLPORT_PORTABLE_PORTABLE_H_
