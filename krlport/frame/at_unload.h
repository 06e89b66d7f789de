// Internal: terminators that run when the library is unloaded. Not installed.
#ifndef KRLPORT_FRAME_AT_UNLOAD_H_
#define KRLPORT_FRAME_AT_UNLOAD_H_

namespace krl_internal {

// Arranges for Fn to run when the library is unloaded (at process exit when it
// is linked statically), in reverse order with the library's other
// terminators. Call it once, when the object Fn ends has been built.
//
// Why not std::atexit: a sanitizer runtime intercepts it and runs the
// function at process exit, after the library has been unmapped.
// The destructor of a function-local static is registered with the library's
// own __dso_handle, so it runs at unload in every build.
template <void (*Fn)()>
void run_at_unload() {
  struct Terminator {
    ~Terminator() { Fn(); }
  };
  static Terminator terminator;
  (void)terminator;
}

}  // namespace krl_internal

#endif  // KRLPORT_FRAME_AT_UNLOAD_H_
