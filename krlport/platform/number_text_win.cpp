#include "krlport/platform/number_text.h"

#include <locale.h>
#include <stdlib.h>

namespace krl_internal {

namespace {

// Made once and never freed. msvcrt has _create_locale and _strtod_l but no
// _strtof_l. Null when the runtime can't make the locale: plain strtod then,
// right as long as the host keeps the "C" locale.
_locale_t c_locale() {
  static const _locale_t loc = ::_create_locale(LC_ALL, "C");
  return loc;
}

}  // namespace

double c_text_to_double(const char* text, char** end) {
  const _locale_t loc = c_locale();
  return loc != nullptr ? ::_strtod_l(text, end, loc) : ::strtod(text, end);
}

float c_text_to_float(const char* text, char** end) {
  // Narrowing rounds once more; IEEE conversion turns a double above the
  // float range into infinity, as strtof would give HUGE_VALF.
  return static_cast<float>(c_text_to_double(text, end));
}

}  // namespace krl_internal
