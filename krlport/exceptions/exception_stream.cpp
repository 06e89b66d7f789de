// The stream form of the exception family: the bodies and readable forms of
// CORBA_Exception and CORBA_SystemException, and the operators that carry any
// exception over a typed stream by its repository id.
#include <cstdint>
#include <cstring>
#include <ostream>
#include <type_traits>

#include "krlport/exceptions/exception.h"
#include "krlport/exceptions/registry.h"
#include "krlport/exceptions/system_exception.h"
#include "krlport/frame/string_var.h"
#include "krlport/services/logger.h"
#include "krlport/services/logger_internal.h"
#include "krlport/streams/istream.h"
#include "krlport/streams/ostream.h"
#include "krlport/streams/string_stream_ops.h"

namespace krl_internal {
namespace {

// A completion status read from a stream is not checked, so _completed may
// hold a value outside the enumeration. CORBA::CompletionStatus has no fixed
// underlying type, and such a value is not one of the type: loading it as the
// enum is undefined. The stream code therefore moves it as raw bits.
using StatusBits = std::conditional_t<sizeof(CORBA::CompletionStatus) == sizeof(unsigned long),
                                      unsigned long, std::uint32_t>;
static_assert(sizeof(StatusBits) == sizeof(CORBA::CompletionStatus),
              "the completion status is moved as raw bits of its own size");

unsigned long status_bits(const CORBA::CompletionStatus& status) {
  StatusBits bits;
  std::memcpy(&bits, &status, sizeof bits);
  return bits;
}

void set_status_bits(CORBA::CompletionStatus& status, unsigned long value) {
  const StatusBits bits = static_cast<StatusBits>(value);
  std::memcpy(&status, &bits, sizeof bits);
}

const char* status_text(unsigned long status) {
  switch (status) {
    case CORBA::COMPLETED_YES:
      return "YES";
    case CORBA::COMPLETED_NO:
      return "NO";
    case CORBA::COMPLETED_MAYBE:
      return "MAYBE";
    default:
      return "Invalid status";
  }
}

}  // namespace
}  // namespace krl_internal

void CORBA_Exception::_write(KRLostream&) const {}

void CORBA_Exception::_copy(KRListream&) {}

void CORBA_Exception::_pretty_print(KRLostream& s) const { s << "Exception: " << _name() << endl; }

void CORBA_SystemException::_write(KRLostream& s) const {
  s << _minor << krl_internal::status_bits(_completed);
}

void CORBA_SystemException::_copy(KRListream& s) {
  unsigned long completed = krl_internal::status_bits(_completed);
  s >> _minor >> completed;
  krl_internal::set_status_bits(_completed, completed);
}

void CORBA_SystemException::_pretty_print(KRLostream& s) const {
  s << "Exception: " << _desc().name() << endl;
  const char* const text = _explanation.in();
  if (text != nullptr && text[0] != '\0') s << "\tExplanation: " << text << endl;
  s << "\tMinor: " << _minor << endl;
  s << "\tCompletion Status: " << krl_internal::status_text(krl_internal::status_bits(_completed))
    << endl;
}

KRLostream& operator<<(KRLostream& s, const CORBA_Exception& e) {
  s << e._repository_id();
  e._write(s);
  return s;
}

KRListream& operator>>(KRListream& s, CORBA_Exception*& e) {
  e = nullptr;
  if (krl_internal::exception_registry() == nullptr) {
    throw CORBA_BAD_INV_ORDER(4, CORBA::COMPLETED_MAYBE);
  }
  CORBA_String_var id;
  s >> id;
  const CORBA_Exception::Description* const desc = CORBA_Exception::Description::desc(id.in());
  CORBA_Exception* (*const factory)() = desc != nullptr ? desc->factory() : nullptr;
  // The abstract classes are registered without a factory, and a factory
  // may report a failed allocation with null: both read as an unknown id.
  CORBA_Exception* const made = factory != nullptr ? factory() : nullptr;
  if (made == nullptr) {
    // The body's form is unknown, so it stays unread.
    e = new CORBA_UNKNOWN();
    return s;
  }
  e = made;  // stored first: the caller owns it if _copy throws
  e->_copy(s);
  return s;
}

std::ostream& operator<<(std::ostream& s, const CORBA_Exception& e) {
  KRLostream typed(s);
  // The slots themselves: out() and its like give a standard stream for an
  // empty slot, which is no log stream.
  if (krl_internal::is_log_stream(s)) {
    e._pretty_print(typed);
  } else {
    e._write(typed);
  }
  return s;
}
