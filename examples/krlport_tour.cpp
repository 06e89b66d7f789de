// krlport-tour: a short walk through the library as a host uses it. It links
// the shared library only, so everything it touches is exported interface.
#include <chrono>
#include <cstdio>
#include <iostream>
#include <sstream>

#include <krlport/krlport.h>

#include <krlport/streams/istream.h>
#include <krlport/streams/ostream.h>

#include "example_sockets.h"

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

// --- The road of one call: a failing connection inside a host thread ---

// Signals the main thread from the thread's own clean-up.
KRLMutex g_done_mutex;
KRLCondition g_done;
bool g_cleaned_up = false;

// A thread-local object whose finalize() shows that the thread's clean-up ran.
class CleanUpWitness : public KRLThreadLocal {
 public:
  CleanUpWitness() : KRLThreadLocal(key()) {}
  static unsigned long key() {
    static const unsigned long k = KRLThreadLocal::get_unique_id();
    return k;
  }

 protected:
  void finalize() override {
    std::cout << "  [thread " << KRLThreadId()._tid << "] _exit_thread finalises its objects: "
              << (KRLThreadLocal::instance(key_id()) == nullptr ? "already unregistered"
                                                                : "still registered")
              << ", its environment and exception go with them\n";
    delete this;
    KRLMutex_var guard(g_done_mutex, 1);
    g_cleaned_up = true;
    g_done.signal();
  }
};

// A port on 127.0.0.1 where nothing listens.
unsigned short refused_port() {
  const int probe = KRLPortable::createTcpListenerSocket("127.0.0.1", 0, 0);
  const unsigned short port = static_cast<unsigned short>(KRLPortable::saGetPort(probe));
  example::close_socket(probe);
  return port;
}

class Caller : public KRLThread {
 protected:
  void body() override {
    const unsigned long tid = KRLThreadId()._tid;
    std::cout << "  [thread " << tid
              << "] body runs; id() now names this thread: " << (id()._tid == tid ? "yes" : "no")
              << '\n';
    new CleanUpWitness;
    connect_and_keep_the_failure();
    send_the_failure_over_a_stream();
    std::cout << "  [thread " << tid << "] body returns\n";
  }

 private:
  void connect_and_keep_the_failure() {
    const unsigned short port = refused_port();
    // tcpConnect writes a debug-log record (on standard output here) for each
    // failed attempt and each back-off sleep.
    KRLDebugLog::enable(0x20000001);
    const auto start = std::chrono::steady_clock::now();
    try {
      example::close_socket(KRLPortable::tcpConnect("127.0.0.1", port, 2500, nullptr));
    } catch (const CORBA_SystemException& e) {
      const std::chrono::duration<double> took = std::chrono::steady_clock::now() - start;
      std::printf(
          "  tcpConnect(127.0.0.1:%u, 2500 ms) threw %s, minor 0x%lX (errno %lu), after %.1f s\n",
          port, e._name(), e.minor(), e.minor() & 0xFFF, took.count());
      // The exception object dies with the handler: the environment keeps a copy.
      CORBA::current_environment().exception(e._deep_copy());
    }
    KRLDebugLog::disable(0x20000001);
    CORBA_Exception* kept = CORBA::current_environment().exception();
    std::cout << "  kept in this thread's environment: " << (kept ? kept->_name() : "(nothing)")
              << '\n';
  }

  void send_the_failure_over_a_stream() {
    std::stringstream wire;
    KRLostream out(wire);
    out << *CORBA::current_environment().exception();
    std::string text = wire.str();
    for (std::string::size_type i = 0; (i = text.find('\n', i)) != std::string::npos;)
      text.replace(i, 1, "\\n");
    std::cout << "  on the wire: " << text << '\n';
    KRListream in(wire);
    CORBA_Exception_var back;
    CORBA_Exception* read = nullptr;
    in >> read;
    back = read;
    const CORBA_COMM_FAILURE* f = CORBA_COMM_FAILURE::_downcast(read);
    std::printf("  read back as its own class: %s, minor 0x%lX\n", f ? f->_name() : "(other class)",
                f ? f->minor() : 0UL);
  }
};

void road_of_one_call() {
  heading("a failing connection inside a host thread");
  KRLPortable::win_startup();
  Caller caller;
  caller.run();
  {
    KRLMutex_var guard(g_done_mutex, 1);
    while (!g_cleaned_up) g_done.wait(g_done_mutex);
  }
  std::cout << "the ended thread's KRLThread object stays in the registry: "
            << (KRLThread::instance(caller.id()) == &caller ? "yes" : "no") << '\n';
}

}  // namespace

int main() {
  KRLPortLibManager::initialize();
  std::cout << "krlport-tour: inited = " << KRLPortLibManager::inited << '\n';
  strings();
  registry_and_raise();
  exception_on_a_stream();
  dictionary();
  road_of_one_call();
  return 0;
}
