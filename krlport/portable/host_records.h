/// @file
/// vsysinfo, KRLSysVersion and vhostname: the small records that the clock,
/// version and name look-up helpers of KRLPortable and BaseUtil hand out.
#ifndef KRLPORT_PORTABLE_HOST_RECORDS_H_
#define KRLPORT_PORTABLE_HOST_RECORDS_H_

// hostent comes from the socket library's headers.
#ifdef _WIN32
#include <winsock2.h>
#else
#include <netdb.h>
#endif

#include <cstdint>

#include "krlport/frame/export.h"

/// Host version as BaseUtil::get_sysversion reports it: on Linux the major and
/// minor number of the kernel release; on Windows the system's version, with
/// 95 or 98 as the major number on the Windows 9x line. Allocated with new;
/// the caller deletes it.
struct KRL_EXPORT vsysinfo {
  std::int32_t major;  ///< major number
  std::int32_t minor;  ///< minor number
};

/// Caller-owned copy of a vsysinfo, each field cut to its low 16 bits.
struct KRL_EXPORT KRLSysVersion {
  std::uint16_t major;  ///< low 16 bits of vsysinfo::major
  std::uint16_t minor;  ///< low 16 bits of vsysinfo::minor
};

/// Work record of one reentrant name look-up, owned by the caller. On Linux
/// the hostent that BaseUtil::vgethostbyname_r / vgethostbyaddr_r return
/// lives in _entry and _data, so it stays valid as long as this record and
/// until its next use. On Windows the result is the socket library's own
/// per-thread record, valid until the thread's next look-up, and _entry and
/// _data stay unused; the layout is the same on both systems.
struct KRL_EXPORT vhostname {
  char buffer[256];  ///< scratch; no operation reads or writes it
  /// The resolver's error of the last failed look-up (h_errno on Linux,
  /// WSAGetLastError on Windows); untouched on success.
  std::int32_t error;
  /// The result the look-up returns a pointer to.
  hostent _entry;
  /// Room for the names and addresses the resolver stores behind _entry.
  /// Enough for a hosts-file entry with many aliases; a larger answer fails
  /// with NETDB_INTERNAL rather than being cut.
  char _data[8192];
};

#endif  // KRLPORT_PORTABLE_HOST_RECORDS_H_
