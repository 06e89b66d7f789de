#include "krlport/exceptions/registry.h"

namespace krl_internal {
namespace {

ExceptionRegistry* _registry = nullptr;  // never freed

}  // namespace

ExceptionRegistry* exception_registry() { return _registry; }

void register_description(const CORBA_Exception::Description& d) {
  if (_registry == nullptr) _registry = new ExceptionRegistry();
  _registry->add(KRLStringWrapper(d.repository_id()), &d);
}

void unregister_description(const char* repository_id) {
  if (_registry != nullptr) _registry->remove(KRLStringWrapper(repository_id));
}

void rekey_description(const CORBA_Exception::Description& d, const char* old_id) {
  const CORBA_Exception::Description* held = nullptr;
  if (_registry == nullptr || !_registry->lookup(KRLStringWrapper(old_id), held) || held != &d) {
    return;
  }
  _registry->remove(KRLStringWrapper(old_id));
  _registry->add(KRLStringWrapper(d.repository_id()), &d);
}

}  // namespace krl_internal

const CORBA_Exception::Description* CORBA_Exception::Description::desc(const char* repository_id) {
  krl_internal::ExceptionRegistry* registry = krl_internal::exception_registry();
  if (registry == nullptr) return nullptr;
  const Description* d = nullptr;
  return registry->lookup(KRLStringWrapper(repository_id), d) ? d : nullptr;
}
