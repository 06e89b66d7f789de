// Internal OS layer for files and directories: the path form of the system,
// status, making directories, modes, removal, the descriptor of a C stream,
// the current drive, and the local-time text of a clock reading. One call per
// function; the callers in services/ own the rules around them.
// Internal: use KRLLogger or KRLDebugLog instead.
#ifndef KRLPORT_PLATFORM_FILE_H_
#define KRLPORT_PLATFORM_FILE_H_

#include <cstddef>
#include <cstdint>
#include <cstdio>

namespace krl_internal {

// The separator of path components: '\\' on Windows, '/' else.
char path_separator();

// How many leading characters of path are its root, where a walk down the
// directories starts: "X:\" (3) on Windows, a leading '/' (1) else, and 0
// for a path without one.
std::size_t path_root_length(const char* path);

// A buffer for one path of the system: 260 on Windows (MAX_PATH), PATH_MAX
// else.
#ifdef _WIN32
constexpr std::size_t kPathBufferSize = 260;
#else
constexpr std::size_t kPathBufferSize = 4096;
#endif

// What the library asks of a file's status.
struct FileStatus {
  std::uint64_t size;  // bytes
  bool regular;        // a plain file, not a directory or device
};

// Status of the file path names (_stat); false when there is none.
bool file_status(const char* path, FileStatus& out);

// Status of the open file descriptor refers to (_fstat); false on failure.
bool descriptor_status(int descriptor, FileStatus& out);

// Makes the directory path (_mkdir; mode 0777 less the umask where modes
// exist). True when it was made, or when something of that name came to
// exist meanwhile (another process made it).
bool make_directory(const char* path);

// Restricts the regular file open as descriptor, named path, to its owner:
// read and write (mode 0600, _chmod with _S_IREAD | _S_IWRITE). A device or
// pipe keeps its mode. Best effort: a failure leaves the mode as it was.
void make_owner_only(int descriptor, const char* path);

// Removes the file path names (_unlink); false on failure.
bool remove_file(const char* path);

// Opens path for appending, kept out of child processes; null on failure.
std::FILE* open_for_append(const char* path);

// The descriptor under stream (_fileno), or -1.
int stream_descriptor(std::FILE* stream);

// True when the path names anything, a directory included.
bool path_exists(const char* path);

// Looks for name in the current directory, then in each entry of PATH
// (_searchenv; Linux splits PATH at ':'). Writes the full path of the first
// file found to out (no size is known; kPathBufferSize bytes are assumed) or
// an empty string. Returns !out.empty().
bool search_path(const char* name, char* out);

// The current drive, 1 for A: (_getdrive); 0 where the system has no drives.
int current_drive();

// Seconds since the epoch, from the C library's clock (time).
std::int64_t current_time_seconds();

// The local-time text of ctime for seconds, "Wed Nov 25 18:55:15 2026",
// without its newline, into out (at least 25 bytes). An empty text when the
// time cannot be converted. Thread-safe, unlike ctime.
void local_time_text(std::int64_t seconds, char* out, std::size_t size);

}  // namespace krl_internal

#endif  // KRLPORT_PLATFORM_FILE_H_
