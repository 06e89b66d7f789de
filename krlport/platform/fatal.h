// Internal: ends the process on a broken invariant. For failures that the
// library cannot report the way its interface states, so that they are never
// swallowed.
#ifndef KRLPORT_PLATFORM_FATAL_H_
#define KRLPORT_PLATFORM_FATAL_H_

namespace krl_internal {

// A platform call that cannot fail did: writes "krlport: <call> failed:
// <error text> (<err>)" to stderr and aborts.
[[noreturn]] void fatal_error(const char* call, int err);

// A precondition of the library's interface is broken: writes
// "Assertion failed: <expr>, file <file>, line <line>" to stderr and aborts.
// Unlike assert(), it stays in release builds.
[[noreturn]] void assertion_failed(const char* expr, const char* file, int line);

}  // namespace krl_internal

#endif  // KRLPORT_PLATFORM_FATAL_H_
