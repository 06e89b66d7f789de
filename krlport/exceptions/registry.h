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

// After d was given the fields of another Description: if the entry of
// old_id is d's, it moves to d's present id, unless that id is taken (then d
// stays outside). So no entry is left that names d under an id it no longer
// has, and that would outlive d. May throw std::bad_alloc, with d outside.
void rekey_description(const CORBA_Exception::Description& d, const char* old_id);

}  // namespace krl_internal

#endif  // KRLPORT_EXCEPTIONS_REGISTRY_H_
