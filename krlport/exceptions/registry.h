// The exception registry: every live CORBA_Exception::Description of the
// process, keyed by repository id. Internal: the exported way in is
// CORBA_Exception::Description::desc.
//
// The first Description creates the registry on the heap; it is never freed,
// so it outlives every Description, also during unload. The key refers to the
// Description's own id text, which lives as long as the entry. There is no
// lock: entries come and go while modules load and unload.
#ifndef KRLPORT_EXCEPTIONS_REGISTRY_H_
#define KRLPORT_EXCEPTIONS_REGISTRY_H_

#include "krlport/exceptions/exception.h"
#include "krlport/frame/dictionary.h"
#include "krlport/frame/string_wrapper.h"

namespace krl_internal {

using ExceptionRegistry = KRLDictionary<KRLStringWrapper, const CORBA_Exception::Description*>;

// The registry, or null before the first Description was built.
ExceptionRegistry* exception_registry();

// Creates the registry if needed, then adds d under its repository id unless
// that id is taken already; a repeated id loses silently.
void register_description(const CORBA_Exception::Description& d);

// Removes the entry of repository_id, whoever registered it.
void unregister_description(const char* repository_id);

}  // namespace krl_internal

#endif  // KRLPORT_EXCEPTIONS_REGISTRY_H_
