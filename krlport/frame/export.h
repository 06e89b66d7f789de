/// @file
/// KRL_EXPORT marks the exported interface of libkrlport_r_6.so.
///
/// The library is built with -fvisibility=hidden; only declarations that carry
/// this macro are visible to the host. Every exception class must carry it, or a
/// handler in the host cannot catch what the library throws.
#ifndef KRLPORT_FRAME_EXPORT_H_
#define KRLPORT_FRAME_EXPORT_H_

/// Gives a declaration default visibility, so the host sees it.
#define KRL_EXPORT __attribute__((visibility("default")))

#endif  // KRLPORT_FRAME_EXPORT_H_
