// The exception registry: every live CORBA_Exception::Description of the
// process, keyed by repository id. Internal: the exported way in is
// CORBA_Exception::Description::desc.
//
// The first Description creates the registry on the heap; it is never freed,
// so it outlives every Description, also during unload. The key refers to the
// Description's own id text, which lives as long as the entry. There is no
// lock: entries come and go while modules load and unload, and desc must not
// run then. Lookups may run on many threads at once (each reads exceptions
// from its own stream), and a lookup stores the hint, so the registry is the
// table of KRLDictionary with a hint word that concurrent readers may share.
#ifndef KRLPORT_EXCEPTIONS_REGISTRY_H_
#define KRLPORT_EXCEPTIONS_REGISTRY_H_

#include <cstdint>

#include "krlport/exceptions/exception.h"
#include "krlport/frame/dictionary.h"
#include "krlport/frame/string_wrapper.h"

namespace krl_internal {

class ExceptionRegistry {
 public:
  typedef KRLStringWrapper key_type;
  typedef const CORBA_Exception::Description* mapped_type;
  typedef KRLDictionaryNode<key_type, mapped_type> node_type;

  ExceptionRegistry() { Core::init(*this); }
  ~ExceptionRegistry() { Core::destroy(*this, false); }
  ExceptionRegistry(const ExceptionRegistry&) = delete;
  ExceptionRegistry& operator=(const ExceptionRegistry&) = delete;

  // As KRLDictionary's: add gives false for a present key; lookup copies the
  // value and gives true, or gives false. lookup may run on several threads
  // at once, as long as nothing adds or removes meanwhile.
  bool add(const key_type& key, mapped_type value) { return Core::add(*this, key, value); }
  bool lookup(const key_type& key, mapped_type& value) {
    const node_type* node = Core::lookup_node(*this, key);
    if (node == nullptr) return false;
    value = node->_value;
    return true;
  }
  bool remove(const key_type& key) {
    bool hint_hit;
    const unsigned long slot = Core::removal_slot(*this, key, hint_hit);
    if (slot == Core::kNone) return false;
    Core::remove_slot(*this, slot, false);
    if (hint_hit) _last_slot = 0;
    return true;
  }

  // The fields of KRLDictionary, the hint shared by concurrent lookups, then
  // the slot words.
  unsigned long _capacity;
  unsigned long _count;
  node_type** _table;
  node_type* _inline_table[kDictionaryInlineSlots];
  unsigned short _free_count;
  node_type* _free_nodes[kDictionaryFreeNodes];
  SharedWord _last_slot;
  unsigned long _bits;
  unsigned long _mask;
  void (*_cleanup)(key_type, mapped_type);  // never set
  std::uint32_t* _hashes;
  std::uint32_t _inline_hashes[kDictionaryInlineSlots];

 private:
  typedef DictionaryCore<ExceptionRegistry> Core;
};

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
