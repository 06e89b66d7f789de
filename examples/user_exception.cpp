// user_exception: a user exception as an IDL compiler would generate it, and
// what the library does with it. For the IDL
//
//   module Bank {
//     exception InsufficientFunds { string account; long balance; long requested; };
//   };
//
// the generated class derives from CORBA_UserException and brings its own
// Description (which registers the class by repository id while the module is
// loaded), _raise, _deep_copy, _factory, _downcast and its stream form
// (_write and _copy, the fields in declaration order). The program raises it,
// keeps it in the thread's environment, writes it to a typed stream and reads
// it back as its own class. It checks every result and exits with 1 on the
// first mismatch. It links the shared library only.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <sstream>
#include <string>

#include <krlport/krlport.h>

// --- What the IDL compiler writes (header part) ---

class Bank_InsufficientFunds : public CORBA_UserException {
 public:
  Bank_InsufficientFunds() : balance(0), requested(0) {}
  Bank_InsufficientFunds(const char* account_, long balance_, long requested_)
      : account(account_), balance(balance_), requested(requested_) {}
  Bank_InsufficientFunds(const Bank_InsufficientFunds& e)
      : CORBA_UserException(e), account(e.account), balance(e.balance), requested(e.requested) {}
  Bank_InsufficientFunds& operator=(const Bank_InsufficientFunds& e) {
    account = e.account;
    balance = e.balance;
    requested = e.requested;
    return *this;
  }
  ~Bank_InsufficientFunds() override {}

  const Description& _desc() const override { return _description; }
  // Throws with the static type of this class, so a handler for it (or any
  // base) catches it, wherever the object came from.
  void _raise() const override { throw *this; }
  // The caller owns the copy.
  CORBA_Exception* _deep_copy() override { return new Bank_InsufficientFunds(*this); }
  using CORBA_Exception::_deep_copy;

  // The body on a stream: the fields in declaration order. operator<< puts
  // the repository id in front; operator>> reads the id, makes an object by
  // _factory and lets it read the body through _copy.
  void _write(KRLostream& s) const override { s << account.in() << balance << requested; }
  void _copy(KRListream& s) override { s >> account >> balance >> requested; }

  // A new default object, for the registry; the caller owns it.
  static CORBA_Exception* _factory() { return new Bank_InsufficientFunds; }
  // e if it is this class (or derived from it), else null.
  static Bank_InsufficientFunds* _downcast(CORBA_Exception* e) {
    return e != nullptr && e->_desc().can_cast(_description)
               ? static_cast<Bank_InsufficientFunds*>(e)
               : nullptr;
  }
  static const Bank_InsufficientFunds* _downcast(const CORBA_Exception* e) {
    return _downcast(const_cast<CORBA_Exception*>(e));
  }

  static const Description _description;

  CORBA_String_var account;
  long balance;
  long requested;
};

// --- What the IDL compiler writes (source part) ---

// Joins the registry at load and leaves it at unload. Its base is the
// Description of CORBA_UserException, which is what makes _downcast of
// CORBA_UserException, and the casts of this class, work.
const CORBA_Exception::Description Bank_InsufficientFunds::_description(
    "Bank::InsufficientFunds", "IDL:Bank/InsufficientFunds:1.0", &Bank_InsufficientFunds::_factory,
    &CORBA_UserException::_description, nullptr);

// --- The program ---

namespace {

void check(bool ok, const char* what) {
  std::printf("%s %s\n", ok ? "ok  " : "FAIL", what);
  if (!ok) std::exit(1);
}

bool same_fields(const Bank_InsufficientFunds* e, const char* account, long balance,
                 long requested) {
  return e != nullptr && std::strcmp(e->account.in(), account) == 0 && e->balance == balance &&
         e->requested == requested;
}

void registered() {
  const CORBA_Exception::Description* d =
      CORBA_Exception::Description::desc("IDL:Bank/InsufficientFunds:1.0");
  check(d == &Bank_InsufficientFunds::_description, "the class is registered by its id");
  check(d->factory() == &Bank_InsufficientFunds::_factory, "its factory is found with it");
  check(d->can_cast(CORBA_UserException::_description) != 0, "it is a user exception");
  check(d->can_cast(CORBA_SystemException::_description) == 0, "and not a system exception");
}

// Raised through a base pointer, caught as its own class; the handler keeps
// a copy in the thread's environment, since the caught object dies with it.
void raise_and_keep() {
  CORBA_Exception_var e = new Bank_InsufficientFunds("DE-4711", 100, 250);
  try {
    e->_raise();
    check(false, "_raise throws");
  } catch (const Bank_InsufficientFunds& x) {
    check(same_fields(&x, "DE-4711", 100, 250), "caught as Bank_InsufficientFunds, fields intact");
    CORBA::current_environment().exception(x._deep_copy());
  }
  CORBA_Exception* kept = CORBA::current_environment().exception();
  check(CORBA_UserException::_downcast(kept) != nullptr,
        "the environment holds a user exception after the handler");
  check(same_fields(Bank_InsufficientFunds::_downcast(kept), "DE-4711", 100, 250),
        "... a Bank_InsufficientFunds with the same fields");
  check(std::strcmp(kept->_name(), "Bank::InsufficientFunds") == 0 &&
            std::strcmp(kept->_repository_id(), "IDL:Bank/InsufficientFunds:1.0") == 0,
        "its name and repository id come from its Description");
}

// Written to a typed stream, read back by a reader that names no class.
void over_a_stream() {
  const CORBA_Exception* kept = CORBA::current_environment().exception();
  std::stringstream wire;
  KRLostream out(wire);
  out << *kept;
  const std::string text = wire.str();
  check(text == "31\"IDL:Bank/InsufficientFunds:1.0\"\n8\"DE-4711\"\n100 250 ",
        "the stream holds the id and the fields in order");

  KRListream in(wire);
  CORBA_Exception* read = nullptr;
  in >> read;  // the registry's factory makes it, _copy reads the body
  CORBA_Exception_var owner(read);
  check(read != nullptr && read != kept, "operator>> made a new object");
  check(same_fields(Bank_InsufficientFunds::_downcast(read), "DE-4711", 100, 250),
        "it came back as Bank_InsufficientFunds with the same fields");
  try {
    read->_raise();
    check(false, "_raise throws");
  } catch (const CORBA_UserException& x) {
    check(Bank_InsufficientFunds::_downcast(&x) != nullptr, "and raises as its own class");
  }
}

// A reader that does not know the id (the class is not linked into it) gets
// a CORBA_UNKNOWN and leaves the body in the stream.
void unknown_to_the_reader() {
  std::stringstream wire("27\"IDL:Bank/AccountFrozen:1.0\"\n8\"DE-4711\"\n");
  KRListream in(wire);
  CORBA_Exception* read = nullptr;
  in >> read;
  CORBA_Exception_var owner(read);
  check(CORBA_UNKNOWN::_downcast(read) != nullptr, "an unregistered id reads as CORBA_UNKNOWN");
  CORBA_String_var next;
  in >> next;
  check(std::strcmp(next.in(), "DE-4711") == 0, "the unread body is still in the stream");
}

}  // namespace

int main() {
  registered();
  raise_and_keep();
  over_a_stream();
  unknown_to_the_reader();
  // The main thread never calls KRLThreadLocal::_exit_thread: drop the kept
  // exception by hand.
  CORBA::current_environment().clear();
  check(CORBA::current_environment().exception() == nullptr, "the environment is empty again");
  std::printf("user_exception: all checks passed\n");
  return 0;
}
