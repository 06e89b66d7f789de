#include "krlport/services/getopt.h"

#include <cstdio>
#include <cstring>

char* optarg = nullptr;
int optind = 1;
int opterr = 1;
int optopt = 0;

namespace {

// The position in the current element; empty means that the next call starts
// on the next element.
char kEmpty[] = "";
const char* place = kEmpty;

constexpr int kError = '?';

// argv[0] behind its last '/'; a backslash does not count.
const char* program_name(char* const* argv) {
  const char* slash = std::strrchr(argv[0], '/');
  return slash != nullptr ? slash + 1 : argv[0];
}

}  // namespace

#if defined(_WIN32)
int getopt(int argc, char* const* argv, const char* optstring) {
#else
int getopt(int argc, char* const* argv, const char* optstring) noexcept {
#endif
  if (*place == '\0') {
    if (optind >= argc || argv[optind][0] != '-') {
      place = kEmpty;
      return -1;
    }
    place = argv[optind];
    if (place[1] != '\0') {
      ++place;
      if (*place == '-') {  // "--" and anything behind two dashes end the scan
        ++optind;
        place = kEmpty;
        return -1;
      }
    }  // a lone "-": place stays on the dash
  }
  // The option character, taken as a signed character and widened.
  optopt = static_cast<signed char>(*place++);  // NOLINT(bugprone-signed-char-misuse)
  const char* listed = optopt == ':' ? nullptr : std::strchr(optstring, optopt);
  if (listed == nullptr) {
    if (optopt == '-') return -1;  // a lone "-" is not consumed
    if (*place == '\0') ++optind;
    if (opterr) std::printf("%s: illegal option -- %c\n", program_name(argv), optopt);
    return kError;
  }
  if (listed[1] != ':') {
    optarg = nullptr;
    if (*place == '\0') ++optind;
    return optopt;
  }
  if (*place != '\0') {
    optarg = const_cast<char*>(place);
  } else if (++optind >= argc) {
    place = kEmpty;
    if (opterr) std::printf("%s: option requires an argument -- %c\n", program_name(argv), optopt);
    return kError;
  } else {
    optarg = argv[optind];
  }
  place = kEmpty;
  ++optind;
  return optopt;
}
