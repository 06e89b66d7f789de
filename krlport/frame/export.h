/// @file
/// KRL_EXPORT marks the exported interface of the library (libkrlport_r_6.so
/// on Linux, krlport_r_6.dll on Windows).
///
/// Only declarations that carry this macro are visible to the host. Every
/// exception class must carry it, or a handler in the host cannot catch what
/// the library throws.
#ifndef KRLPORT_FRAME_EXPORT_H_
#define KRLPORT_FRAME_EXPORT_H_

#if defined(_WIN32)
// The DLL's own sources are compiled with KRLPORT_BUILDING_DLL and export;
// a host imports. KRLPORT_STATIC is for code linked with the static library.
#if defined(KRLPORT_BUILDING_DLL)
/// Puts a declaration into the DLL's export table.
#define KRL_EXPORT __declspec(dllexport)
#elif defined(KRLPORT_STATIC)
#define KRL_EXPORT
#else
#define KRL_EXPORT __declspec(dllimport)
#endif
#else
/// Gives a declaration default visibility, so the host sees it (the library
/// is built with -fvisibility=hidden).
#define KRL_EXPORT __attribute__((visibility("default")))
#endif

#endif  // KRLPORT_FRAME_EXPORT_H_
