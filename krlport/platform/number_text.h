// Internal OS layer for reading numbers from text in the "C" locale, whatever
// locale the host has set (the decimal point is always '.'). Internal: used by
// the typed input stream.
#ifndef KRLPORT_PLATFORM_NUMBER_TEXT_H_
#define KRLPORT_PLATFORM_NUMBER_TEXT_H_

namespace krl_internal {

// strtod and strtof in the "C" locale: the same results, end and overflow
// values (HUGE_VAL, HUGE_VALF) included. Safe from any thread.
double c_text_to_double(const char* text, char** end);
float c_text_to_float(const char* text, char** end);

}  // namespace krl_internal

#endif  // KRLPORT_PLATFORM_NUMBER_TEXT_H_
