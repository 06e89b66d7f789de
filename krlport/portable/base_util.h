/// @file
/// BaseUtil: the lower layer of host properties under KRLPortable: the
/// property look-up, the system version, the user name, process memory and the
/// reentrant host-name look-ups. Static members only; never instantiated.
#ifndef KRLPORT_PORTABLE_BASE_UTIL_H_
#define KRLPORT_PORTABLE_BASE_UTIL_H_

#include "krlport/frame/export.h"
#include "krlport/portable/host_records.h"

/// Host properties below KRLPortable; static members only. Each member is
/// safe from any thread unless its comment says otherwise.
class KRL_EXPORT BaseUtil {
 public:
  /// Looks in the environment first, then in the property file; an empty
  /// environment value counts as unset. Returns a
  /// pointer into the environment block or into the one shared property
  /// buffer, which the next file read overwrites: copy it before another
  /// thread can call in. Null when the name is found nowhere. Not owned.
  static char* GetProperty(const char* name);

  /// Returns a new record the caller deletes, or null when the version can't
  /// be read (the reason goes to cerr).
  static vsysinfo* get_sysversion();

  /// Name of the effective user, worked out on the first call and cached for
  /// the life of the process; "Win_User" when nothing else is known. Two first
  /// calls racing may both work it out; either result is valid.
  static const char* user_name();

  /// The calling process's id.
  static unsigned long getpid();

  /// Virtual size and resident size of this process in KiB; both 0 when they
  /// can't be read. A size above INT_MAX KiB (2 TiB) gives INT_MAX.
  static void GetProcessMemory(int& commit, int& resident);

  /// Reentrant look-ups. The result points into *work (or is null, with
  /// work->error set to the resolver's h_errno). Safe from any thread as long
  /// as each thread has its own work record.
  static hostent* vgethostbyname_r(const char* name, vhostname* work);
  /// By address: addr holds len bytes of an address of family type.
  static hostent* vgethostbyaddr_r(const char* addr, int len, int type, vhostname* work);

 private:
  BaseUtil();

  // The last value read from the property file; shared by all threads.
  static char _property[512];
};

#endif  // KRLPORT_PORTABLE_BASE_UTIL_H_
