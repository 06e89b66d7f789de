/// @file
/// The string holders on the typed streams: reading a CORBA_String_var or a
/// CORBA_WString_var from a KRListream, writing a CORBA_WString_var to a
/// KRLostream. A CORBA_String_var is written through its conversion to
/// const char*, so it needs no operator of its own here.
#ifndef KRLPORT_STREAMS_STRING_STREAM_OPS_H_
#define KRLPORT_STREAMS_STRING_STREAM_OPS_H_

#include "krlport/frame/export.h"
#include "krlport/frame/string_var.h"
#include "krlport/frame/wstring_var.h"
#include "krlport/streams/istream.h"
#include "krlport/streams/ostream.h"

/// On a stream without a std::istream (a derived stream): an unsigned long
/// length, then that many bytes through the virtual get(char*, unsigned int);
/// the length counts the terminator, which arrives with the bytes. Every byte
/// read is kept: a terminator is added behind them, never over the last. A holder
/// that owns a buffer of at least that length refills it in place. Length 0
/// makes v nil when CORBA_String_var::_allowing_null_string is set, and throws
/// CORBA_MARSHAL() otherwise, leaving v as it was.
/// On a text stream: operator>>(char*&) into a fresh pointer; v adopts it.
KRL_EXPORT KRListream& operator>>(KRListream& s, CORBA_String_var& v);

/// Frees the held string, then reads through operator>>(unsigned short*&) into
/// a fresh pointer.
KRL_EXPORT KRListream& operator>>(KRListream& s, CORBA_WString_var& v);

/// The held string through operator<<(const unsigned short*); nil is written as
/// the empty wide string.
KRL_EXPORT KRLostream& operator<<(KRLostream& s, const CORBA_WString_var& v);

#endif  // KRLPORT_STREAMS_STRING_STREAM_OPS_H_
