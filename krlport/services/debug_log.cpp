#include "krlport/services/debug_log.h"

#include "krlport/services/vdlogger.h"

using krl_internal::KRLDebugLogger;

int KRLDebugLog::log_to(const char* file, char* path, unsigned int size) {
  return krl_internal::debug_log_to(KRLDebugLogger::instance(), file, path, size) ? 1 : 0;
}

int KRLDebugLog::enable(unsigned long mask) {
  if (!krl_internal::is_valid_debug_mask(mask)) return 0;
  KRLDebugLogger::instance().enable(mask);
  return 1;
}

int KRLDebugLog::disable(unsigned long mask) {
  if (!krl_internal::is_valid_debug_mask(mask)) return 0;
  KRLDebugLogger::instance().disable(mask);
  return 1;
}

int KRLDebugLog::record(int tag, unsigned long mask, const char* source, int line,
                        const char* text) {
  if (!krl_internal::is_valid_debug_mask(mask)) return 0;
  return KRLDebugLogger::instance().record(tag, mask, source, line, text) ? 1 : 0;
}
