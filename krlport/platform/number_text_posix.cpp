#include "krlport/platform/number_text.h"

#include <locale.h>
#include <stdlib.h>

namespace krl_internal {

namespace {

// Made once and never freed: the C locale object is immutable and shared.
locale_t c_locale() {
  static const locale_t loc = ::newlocale(LC_ALL_MASK, "C", static_cast<locale_t>(nullptr));
  return loc;
}

}  // namespace

double c_text_to_double(const char* text, char** end) { return ::strtod_l(text, end, c_locale()); }

float c_text_to_float(const char* text, char** end) { return ::strtof_l(text, end, c_locale()); }

}  // namespace krl_internal
