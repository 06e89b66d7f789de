#include "krlport/services/arg_list.h"

#include <cctype>
#include <cstring>
#include <memory>

#include "krlport/exceptions/system_exception.h"

KRLArgList::KRLArgList(int& argc, char* const* argv, const char* prefix) {
  KRLArgList::argInit(argc, argv, prefix);
}

KRLArgList::~KRLArgList() {}

unsigned char KRLArgList::getArg(const char* name) {
  return _args.contains(CORBA_String_var(name)) ? 1 : 0;
}

char* KRLArgList::getArgValue(const char* name) {
  CORBA_String_var value(static_cast<const char*>(nullptr));
  if (!_args.get(CORBA_String_var(name), value)) return nullptr;
  return CORBA::string_dup(value);
}

unsigned long KRLArgList::getArgCount() { return _args.count(); }

void KRLArgList::putArgValue(const char* name, const char* value) {
  CORBA_String_var old_value;
  _args.put(CORBA_String_var(name), CORBA_String_var(value), old_value);
}

void KRLArgList::argInit(int& argc, char* const* argv, const char* prefix) {
  if (prefix == nullptr || prefix[0] != '-' ||
      !std::isalnum(static_cast<unsigned char>(prefix[1]))) {
    throw CORBA_BAD_PARAM();
  }
  // The arguments that stay, in order; copied back over argv at the end.
  std::unique_ptr<char*[]> kept_args(new char*[argc + 1]);
  const std::size_t len = std::strlen(prefix);
  int kept = 0;
  for (int i = 0; i < argc; ++i) {
    if (std::strncmp(argv[i], prefix, len) != 0) {
      kept_args[kept++] = argv[i];
      continue;
    }
    const char* name = argv[i] + 1;
    const char* value = nullptr;
    if (i + 1 < argc && argv[i + 1][0] != '-') value = argv[++i];
    putArgValue(name, value);
  }
  argc = kept;
  char** out = const_cast<char**>(argv);
  for (int k = 0; k < kept; ++k) out[k] = kept_args[k];
}
