#!/usr/bin/env python3
"""The layering check of the library's sources (ctest: layering).

  krl_check_layering.py <source dir> <file listing the installed headers>

Fails (exit 1, one line per finding) when
  (a) a file includes a header of a subsystem above its own (platform < frame
      < exceptions < threads < streams < portable < services), or an installed
      header includes a header of krlport/platform/;
  (b) a file outside krlport/platform/ includes an OS header or makes an OS
      call (POSIX, Win32, Winsock, the C library's locale and reentrant
      variants, GCC's atomic builtins, __thread);
  (c) a header of krlport/platform/ includes a system header or names a
      system type: the platform headers are OS-neutral.
Tests and their support files are skipped by (a) and (b): they may make OS
calls to observe the library, and a test may use a class together with the
classes above it that use it (they are not part of the library). The two installed
headers whose interface has Winsock/BSD types (in_addr, timeval, hostent)
may include the headers of those types, and ALLOWED_INCLUDES below lists the
upward includes the design asks for, each with its reason.
"""
import os
import re
import sys

LAYERS = ["platform", "frame", "exceptions", "threads", "streams", "portable", "services"]
RANK = {name: i for i, name in enumerate(LAYERS)}

# Headers of the operating system (POSIX, Linux, Win32, Winsock, the C
# runtime's Windows-only headers). A prefix ending in '/' names a directory.
OS_HEADERS = [
    "unistd.h", "pthread.h", "sys/", "netinet/", "arpa/", "netdb.h", "dlfcn.h", "fcntl.h",
    "poll.h", "dirent.h", "pwd.h", "grp.h", "signal.h", "csignal", "sched.h", "semaphore.h",
    "spawn.h", "termios.h", "syslog.h", "ucontext.h", "linux/", "asm/", "elf.h", "link.h",
    "execinfo.h", "ifaddrs.h", "net/", "langinfo.h", "locale.h", "xlocale.h", "utime.h",
    "windows.h", "winsock.h", "winsock2.h", "ws2tcpip.h", "mswsock.h", "iphlpapi.h",
    "winbase.h", "winnt.h", "winuser.h", "winreg.h", "winerror.h", "psapi.h", "lmcons.h",
    "process.h", "direct.h", "io.h", "share.h", "sys/timeb.h", "tlhelp32.h", "shlobj.h",
    "intrin.h", "x86intrin.h",
]

# Calls and names of the operating system, the C library's system-specific
# variants and the compiler's builtins. A name counts as a call only where it
# is called unqualified or through the global '::' (x.close() and
# KRLPipe::close() are the library's own).
OS_CALLS = [
    "close", "ioctl", "ioctlsocket", "closesocket", "poll", "accept4", "fcntl", "mkdir", "rmdir",
    "chmod", "fchmod", "fstat", "lstat", "fileno", "unlink", "getpid", "gettid", "getuid",
    "geteuid", "uname", "kill", "nanosleep", "usleep", "sched_yield", "strtod_l", "newlocale",
    "freelocale", "uselocale", "ctime_r", "localtime_r", "gmtime_r", "gethostbyname_r",
    "gethostbyaddr_r", "getpwuid_r", "syscall", "dlopen", "dlclose", "dlsym", "dlerror",
    "clock_gettime", "gettimeofday", "sigaction", "sigprocmask", "futex", "mmap", "munmap",
    "sysconf", "readlink", "realpath",
    "_mkdir", "_chmod", "_fstat", "_fileno", "_unlink", "_getpid", "_ftime", "_getdrive",
    "_searchenv", "_beginthreadex", "_stricmp",
]
OS_NAMES = [
    r"pthread_\w+", r"PTHREAD_\w+", r"SOCK_CLOEXEC", r"SOCK_NONBLOCK", r"O_NONBLOCK", r"FIONBIO",
    r"in_addr_t", r"suseconds_t", r"socklen_t", r"h_errno", r"locale_t",
    r"__thread", r"__atomic_\w+", r"__sync_\w+",
    r"GetLastError", r"SetLastError", r"WSA\w+", r"CreateThread", r"TerminateThread",
    r"GetCurrentThreadId", r"CRITICAL_SECTION", r"\w+CriticalSection", r"CreateEvent\w*",
    r"SetEvent", r"WaitForSingleObject", r"MsgWaitForMultipleObjects", r"CloseHandle",
    r"LoadLibrary(?:A|W|ExA|ExW)?", r"FreeLibrary", r"GetProcAddress", r"Tls(?:Alloc|Free|GetValue|SetValue)",
    r"Interlocked\w+", r"Reg\w+Key\w*", r"RegQueryValue\w*", r"GetUserName\w*",
    r"LookupAccountName\w*", r"GetVersionEx\w*", r"GetProcessMemoryInfo", r"MultiByteToWideChar",
    r"HANDLE", r"DWORD", r"SOCKET", r"HMODULE",
]
# What a platform header must not name: the handles stay opaque.
PLATFORM_HEADER_NAMES = [
    r"pthread_\w+", r"__thread", r"timespec", r"HANDLE", r"DWORD", r"SOCKET", r"HMODULE",
    r"CRITICAL_SECTION", r"hostent", r"sockaddr\w*", r"in_addr",
]

# The interface of these installed headers has in_addr, timeval and hostent
# in it, so they include the headers of those types (Winsock's on Windows).
PUBLIC_NETWORK_HEADERS = {
    "krlport/portable/portable.h": ["winsock2.h", "ws2tcpip.h", "netinet/in.h", "sys/time.h",
                                    "sys/socket.h", "netdb.h", "arpa/inet.h"],
    "krlport/portable/host_records.h": ["winsock2.h", "ws2tcpip.h", "netdb.h", "netinet/in.h"],
}

# Upward includes the library's own design asks for: (file, included header
# or "*") -> reason. Nothing else may reach up; keep each entry argued.
ALLOWED_INCLUDES = {
    ("krlport/frame/load_order.cpp", "*"):
        "every object built at load is defined in this one file, in load order, so it sees them all",
    ("krlport/frame/dictionary.h", "krlport/exceptions/system_exception.h"):
        "inserting a present key throws CORBA_BAD_PARAM",
    ("krlport/frame/resource.h", "krlport/threads/spin_mutex.h"):
        "a count block carries its spin mutex, built with the block",
    ("krlport/frame/count_block_pool.h", "krlport/threads/spin_mutex.h"):
        "the pool's count blocks carry the resource's spin mutex",
    ("krlport/frame/count_block_pool.h", "krlport/threads/spin_pool.h"):
        "the count-block pool shares the spin-record pool's free-list code",
    ("krlport/frame/rw_dictionary.h", "krlport/threads/rw_lock.h"):
        "the read-write dictionary is a dictionary under a read-write lock",
    ("krlport/exceptions/environment.h", "krlport/threads/mutex.h"):
        "the environment of a thread is a thread-local object under the registry's lock",
    ("krlport/exceptions/environment.h", "krlport/threads/thread_local.h"):
        "the environment of a thread is a thread-local object (CurrentEnvironment)",
    ("krlport/exceptions/environment.cpp", "krlport/threads/thread_local_internal.h"):
        "current_environment reads the thread-local objects' per-thread cache inline",
    ("krlport/exceptions/exception_stream.cpp", "krlport/streams/istream.h"):
        "the typed-stream form of an exception",
    ("krlport/exceptions/exception_stream.cpp", "krlport/streams/ostream.h"):
        "the typed-stream form of an exception",
    ("krlport/exceptions/exception_stream.cpp", "krlport/streams/string_stream_ops.h"):
        "the typed-stream form of an exception's strings",
    ("krlport/exceptions/exception_stream.cpp", "krlport/services/logger.h"):
        "printing an exception asks the logger whether the stream is one of its log streams",
    ("krlport/exceptions/exception_stream.cpp", "krlport/services/logger_internal.h"):
        "printing an exception asks the logger whether the stream is one of its log streams",
    ("krlport/threads/mutex.cpp", "krlport/portable/base_util.h"):
        "KRLMutex::shutdown reads the system version through BaseUtil",
    ("krlport/threads/thread.cpp", "krlport/portable/portable.h"):
        "KRLThread::yield is KRLPortable::vsleep(0)",
    ("krlport/portable/portable_tcp.cpp", "krlport/services/vdlogger.h"):
        "tcpConnect writes its attempts and back-off sleeps to the debug log",
}

USED_ALLOWANCES = set()

INCLUDE = re.compile(r'^\s*#\s*include\s*([<"])([^>"]+)[>"]', re.M)


def strip_code(text):
    """Comments and the contents of string and character literals become
    blanks; line ends stay, so line numbers do not move."""
    out = []
    i, n = 0, len(text)
    while i < n:
        c = text[i]
        if text.startswith("//", i):
            j = text.find("\n", i)
            j = n if j < 0 else j
            out.append(" " * (j - i))
            i = j
        elif text.startswith("/*", i):
            j = text.find("*/", i + 2)
            j = n if j < 0 else j + 2
            out.append(re.sub(r"[^\n]", " ", text[i:j]))
            i = j
        elif c == 'R' and text.startswith('R"', i) and (i == 0 or not (text[i - 1].isalnum() or text[i - 1] == "_")):
            k = text.find("(", i)
            delim = ")" + text[i + 2:k] + '"'
            j = text.find(delim, k)
            j = n if j < 0 else j + len(delim)
            out.append('""' + re.sub(r"[^\n]", " ", text[i + 2:j]))
            i = j
        elif c in "\"'":
            if c == "'" and i > 0 and text[i - 1].isalnum():  # digit separator 1'000
                out.append(c)
                i += 1
                continue
            j = i + 1
            while j < n and text[j] != c and text[j] != "\n":
                j += 2 if text[j] == "\\" else 1
            out.append(c + " " * (min(j, n) - i - 1) + (c if j < n else ""))
            i = j + 1
        else:
            out.append(c)
            i += 1
    return "".join(out)


def is_test_file(rel):
    base = os.path.basename(rel)
    return base.endswith("_test.cpp") or "test_support" in base or base.startswith("test_")


def os_header(name):
    for h in OS_HEADERS:
        if name == h or (h.endswith("/") and name.startswith(h)):
            return True
    return False


CALL = re.compile(r"\b(" + "|".join(OS_CALLS) + r")\s*\(")
NAME = re.compile(r"\b(" + "|".join(OS_NAMES) + r")\b")
PLATFORM_NAME = re.compile(r"\b(" + "|".join(PLATFORM_HEADER_NAMES) + r")\b")
KEYWORDS_BEFORE_CALL = {"return", "else", "do", "case", "throw", "co_return", "sizeof"}


def is_call(code, start):
    """True when the name at code[start] is called as the OS function: not a
    member (x.f, p->f, C::f) and not a declaration (a type name before it)."""
    before = code[:start].rstrip()
    if before.endswith(".") or before.endswith("->"):
        return False
    if before.endswith("::"):
        qual = before[:-2].rstrip()
        return not (qual and (qual[-1].isalnum() or qual[-1] in "_>"))
    m = re.search(r"([A-Za-z_]\w*)$", before)
    if m and m.group(1) not in KEYWORDS_BEFORE_CALL:
        return False  # void close(), int fileno(...) declared by the library itself
    if before.endswith("~") or before.endswith("&") and before[:-1].rstrip()[-1:].isalnum():
        return False
    return True


def own_names(code):
    """Names of the OS_CALLS list that the file declares itself (a member
    function unlink(), a function pointer close): unqualified calls of them
    are the library's own; the global ::name( form still counts."""
    names = set()
    for m in CALL.finditer(code):
        before = code[:m.start()].rstrip()
        if re.search(r"[A-Za-z_]\w*$", before) and not re.search(r"\b(?:%s)$" % "|".join(KEYWORDS_BEFORE_CALL), before):
            names.add(m.group(1))
    for m in re.finditer(r"\(\s*\*\s*(" + "|".join(OS_CALLS) + r")\s*\)", code):
        names.add(m.group(1))
    return names


def line_of(code, pos):
    return code.count("\n", 0, pos) + 1


def check_file(root, rel, public, library_names, findings):
    path = os.path.join(root, rel)
    with open(path, encoding="utf-8", errors="replace") as f:
        text = f.read()
    code = strip_code(text)
    parts = rel.split("/")
    layer = parts[1] if len(parts) > 2 and parts[1] in RANK else None
    in_platform = layer == "platform"
    is_header = rel.endswith(".h") or rel.endswith(".h.in")
    test = is_test_file(rel)

    def report(lineno, what):
        findings.append("%s:%d: %s" % (rel, lineno, what))

    for m in INCLUDE.finditer(text):
        lineno = text.count("\n", 0, m.start()) + 1
        if code[m.start():m.end()].strip() == "":  # inside a comment
            continue
        name = m.group(2)
        inc = re.match(r"krlport/(\w+)/", name)
        if inc and inc.group(1) in RANK:
            target = inc.group(1)
            key = (rel, name) if (rel, name) in ALLOWED_INCLUDES else (rel, "*")
            allowed = key in ALLOWED_INCLUDES
            if allowed and RANK[target] > RANK[layer or "platform"]:
                USED_ALLOWANCES.add(key)
            if layer and RANK[target] > RANK[layer] and not test and not allowed:
                report(lineno, "upward include of %s from %s (order: %s)"
                       % (name, layer, " < ".join(LAYERS)))
            if rel in public and target == "platform":
                report(lineno, "installed header includes the internal %s" % name)
        if os_header(name) or (in_platform and is_header and name in ("time.h", "ctime")):
            if in_platform and not is_header:
                continue  # the backends are where OS headers belong
            if in_platform:
                report(lineno, "system header <%s> in a platform header (they stay OS-neutral)" % name)
            elif test:
                continue
            elif name in PUBLIC_NETWORK_HEADERS.get(rel, []):
                continue
            else:
                report(lineno, "OS header <%s> outside krlport/platform/" % name)

    if in_platform:
        if is_header and not test:
            for m in PLATFORM_NAME.finditer(code):
                report(line_of(code, m.start()), "system type %s in a platform header" % m.group(1))
        return
    if test:
        return
    own = own_names(code) | library_names
    for m in CALL.finditer(code):
        if m.group(1) in own and not code[:m.start()].rstrip().endswith("::"):
            continue
        if is_call(code, m.start()):
            report(line_of(code, m.start()), "OS call %s() outside krlport/platform/" % m.group(1))
    for m in NAME.finditer(code):
        report(line_of(code, m.start()), "OS name %s outside krlport/platform/" % m.group(1))


def main():
    if len(sys.argv) != 3:
        sys.stderr.write(__doc__)
        return 2
    root = sys.argv[1]
    with open(sys.argv[2]) as f:
        public = {line.strip() for line in f if line.strip()}
    findings = []
    files = []
    for dirpath, _, names in os.walk(os.path.join(root, "krlport")):
        for name in names:
            if name.endswith((".h", ".cpp", ".inc", ".h.in")):
                files.append(os.path.relpath(os.path.join(dirpath, name), root).replace(os.sep, "/"))
    # Functions the library declares under an OS call's name (KRLPortable::
    # gettimeofday, a member unlink()): called unqualified they are its own.
    library_names = set()
    for rel in files:
        if rel.endswith(".h") and not rel.startswith("krlport/platform/") and not is_test_file(rel):
            with open(os.path.join(root, rel), encoding="utf-8", errors="replace") as f:
                library_names |= own_names(strip_code(f.read()))
    for rel in sorted(files):
        check_file(root, rel, public, library_names, findings)
    for key in sorted(set(ALLOWED_INCLUDES) - USED_ALLOWANCES):
        findings.append("%s: allowed upward include %s is not made any more: drop it from %s"
                        % (key[0], key[1], os.path.basename(__file__)))
    for line in findings:
        print(line)
    if findings:
        print("layering: %d finding(s) in %d files; the rule is in README.md, \"Layering\""
              % (len(findings), len({f.split(":")[0] for f in findings})))
        return 1
    print("layering: %d files checked, no finding" % len(files))
    return 0


if __name__ == "__main__":
    sys.exit(main())
