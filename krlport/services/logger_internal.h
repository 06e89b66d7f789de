// Internal: library-only access to KRLLogger. Not installed.
#ifndef KRLPORT_SERVICES_LOGGER_INTERNAL_H_
#define KRLPORT_SERVICES_LOGGER_INTERNAL_H_

#include <ostream>

#include "krlport/services/logger.h"

namespace krl_internal {

// For the exception operator on std::ostream: true when stream is, by
// address, in one of the logger's slots. Builds the logger. A standard stream
// that out(), err() or log() give for an empty slot is no log stream.
bool is_log_stream(const std::ostream& stream);

}  // namespace krl_internal

#endif  // KRLPORT_SERVICES_LOGGER_INTERNAL_H_
