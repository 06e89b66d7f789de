/// @file
/// KRLPortLibManager: the class that stands for the library as a whole. It has
/// no instances; its two fields are for the host, and nothing in the library
/// reads them.
#ifndef KRLPORT_FRAME_PORT_LIB_MANAGER_H_
#define KRLPORT_FRAME_PORT_LIB_MANAGER_H_

#include "krlport/frame/export.h"

/// The library as a whole: static members only, never instantiated.
class KRL_EXPORT KRLPortLibManager {
 public:
  /// Sets inited to 1. Takes no lock; may be called any number of times. The
  /// library works the same whether or not it was called.
  static void initialize();

  static int inited;                 ///< 0 at load
  static unsigned long debug_level;  ///< 0 at load; the host's to use

 private:
  KRLPortLibManager() {}
};

#endif  // KRLPORT_FRAME_PORT_LIB_MANAGER_H_
