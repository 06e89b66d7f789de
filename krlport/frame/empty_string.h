// The shared empty string of default CORBA_String_var holders. Everything that
// frees a holder's buffer recognises it by address and leaves it alone.
#ifndef KRLPORT_FRAME_EMPTY_STRING_H_
#define KRLPORT_FRAME_EMPTY_STRING_H_

namespace krl_internal {

// Points at read-only storage: writing through it faults, which is the point.
extern char* const _empty_string;

}  // namespace krl_internal

#endif  // KRLPORT_FRAME_EMPTY_STRING_H_
