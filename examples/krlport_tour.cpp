// krlport-tour: a short walk through the library as a host uses it. It links
// the shared library only, so everything it touches is exported interface.
#include <cstdio>
#include <iostream>
#include <sstream>

#include <krlport/krlport.h>
#include <krlport/streams/istream.h>
#include <krlport/streams/ostream.h>

namespace {

void heading(const char* title) { std::cout << "\n== " << title << '\n'; }

void strings() {
  heading("strings");
  CORBA_String_var id("IDL:omg.org/CORBA/TRANSACTION_ROLLEDBACK:1.0");
  const char* buffer = id.in();
  id = "IDL:omg.org/CORBA/BAD_PARAM:1.0";  // fits: the holder refills its own buffer
  std::cout << "holder now holds " << id
            << (id.in() == buffer ? " in its old buffer" : " in a new buffer") << '\n';
  std::cout << "CORBA::hash(\"abc\") = " << CORBA::hash("abc") << '\n';
}

void registry_and_raise() {
  heading("exceptions by repository id");
  const char* id = "IDL:omg.org/CORBA/BAD_PARAM:1.0";
  const CORBA_Exception::Description* d = CORBA_Exception::Description::desc(id);
  std::cout << id << " -> " << (d ? d->name() : "(not registered)") << '\n';
  if (d == nullptr) return;

  CORBA_Exception_var e = d->factory()();  // an empty object of the class
  try {
    e->_raise();
  } catch (const CORBA_SystemException& x) {
    std::printf("caught %s as CORBA_SystemException: minor 0x%lX, completed %d\n", x._name(),
                x.minor(), static_cast<int>(x.completed()));
  }
  try {
    throw CORBA_TIMEOUT(10061, CORBA::COMPLETED_NO, "peer did not answer");
  } catch (const CORBA_Exception& x) {
    const CORBA_SystemException* s =
        CORBA_SystemException::_downcast(const_cast<CORBA_Exception*>(&x));
    std::printf(
        "caught %s as CORBA_Exception: minor %lu (a vendor code, stored unchanged), \"%s\"\n",
        x._name(), s->minor(), s->explanation());
  }
  std::cout << "unknown id -> "
            << (CORBA_Exception::Description::desc("IDL:nowhere/Nothing:1.0") ? "found" : "null")
            << '\n';
}

void exception_on_a_stream() {
  heading("an exception on a typed stream");
  std::stringstream wire;
  KRLostream out(wire);
  out << CORBA_COMM_FAILURE(10061, CORBA::COMPLETED_NO, "the explanation stays here");
  std::cout << "on the wire: " << wire.str() << '\n';

  KRListream in(wire);
  CORBA_Exception* e = nullptr;
  in >> e;  // found by its repository id, made by its factory, body read back
  try {
    e->_raise();
  } catch (const CORBA_COMM_FAILURE& x) {
    std::printf("read back and raised as %s: minor %lu, explanation \"%s\"\n", x._name(), x.minor(),
                x.explanation());
  }
  CORBA::release(e);
}

struct Key {
  unsigned long value;
};
unsigned long _krl_hash(const Key& k) { return k.value; }
long compare(const Key& a, const Key& b) { return static_cast<long>(a.value - b.value); }

void dictionary() {
  heading("KRLDictionary");
  KRLDictionary<KRLStringWrapper, long> d;
  const char* names[] = {"UNKNOWN", "BAD_PARAM", "NO_MEMORY", "TIMEOUT"};
  for (long i = 0; i < 4; ++i) d.insert(names[i], i);
  long v = -1;
  std::cout << d._count << " entries in " << d._capacity << " inline slots; TIMEOUT -> "
            << (d.lookup("TIMEOUT", v) ? v : -1) << '\n';
  try {
    d.insert("BAD_PARAM", 9);
  } catch (const CORBA_BAD_PARAM& x) {
    std::cout << "inserting a present key throws " << x._name() << '\n';
  }
  KRLDictionary<Key, int> big;
  for (unsigned long i = 0; i < 1000; ++i) big.insert(Key{i}, static_cast<int>(i));
  std::cout << big._count << " entries grew the table to " << big._capacity << " slots\n";
}

}  // namespace

int main() {
  KRLPortLibManager::initialize();
  std::cout << "krlport-tour: inited = " << KRLPortLibManager::inited << '\n';
  strings();
  registry_and_raise();
  exception_on_a_stream();
  dictionary();
  return 0;
}
