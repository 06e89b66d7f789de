// echo_server: a small threaded TCP server and its clients on 127.0.0.1.
//
// krlport is the layer that a CORBA broker and its generated code stand on:
// threads with a registry and thread-local objects, recursive mutexes and a
// condition variable, TCP helpers with time-outs, the CORBA exception family
// with a registry by repository id, and a typed text stream that carries
// values and exceptions between processes. This program uses each of them the
// way a broker does: an acceptor thread hands connections to KRLThread
// workers through a queue under a KRLMutex and a KRLCondition; clients connect
// with KRLPortable::tcpConnect and a time-out; every request and reply is
// KRLostream text, read back with KRListream, and a failed request comes back
// as the exception the server raised, as its own class.
// A "stop" request shuts the server down: the workers drain the queue and
// return, and main waits for every thread before it exits.
//
// Exits with 0 when every check passed, 1 otherwise; it ends by itself
// within a few seconds. It links the shared library only.
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <iostream>
#include <memory>
#include <mutex>
#include <sstream>
#include <string>
#include <system_error>
#include <thread>
#include <vector>

#include <krlport/krlport.h>

#include "example_sockets.h"

namespace {

const unsigned long long kConnectTimeoutMs = 2000;
const int kSocketTimeoutS = 3;                 // a peer that stops talking ends its connection
const unsigned long long kRunLimitMs = 10000;  // the whole run, by a wide margin

// --- Threads the host can wait for ---
//
// The default factory makes detached threads: nothing can wait until one has
// left the library's code after its body. A host that wants a clean exit
// installs a factory that keeps them joinable, and joins them at the end.
std::mutex g_threads_mutex;
std::vector<std::thread> g_threads;

void joinable_factory(unsigned long /*stack_size*/, void* (*start)(void*), void* arg) {
  std::lock_guard<std::mutex> guard(g_threads_mutex);
  try {
    g_threads.emplace_back(start, arg);
  } catch (const std::system_error& e) {
    throw CORBA_NO_RESOURCES(static_cast<unsigned long>(e.code().value()), CORBA::COMPLETED_NO);
  }
}

void join_all_threads() {
  std::vector<std::thread> threads;
  {
    std::lock_guard<std::mutex> guard(g_threads_mutex);
    threads.swap(g_threads);
  }
  for (std::thread& t : threads) t.join();
}

// --- A count that threads bring down and another thread waits for ---

class Countdown {
 public:
  explicit Countdown(int n) : _left(n) {}
  void done() {
    KRLMutex_var guard(_mutex, 1);
    if (--_left == 0) _zero.broadcast();
  }
  // True when the count reached 0 within ms milliseconds.
  bool wait(unsigned long long ms) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(ms);
    KRLMutex_var guard(_mutex, 1);
    while (_left > 0) {
      const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
          deadline - std::chrono::steady_clock::now());
      if (left.count() <= 0) return false;
      _zero.timedwait(_mutex, static_cast<unsigned long long>(left.count()));
    }
    return true;
  }

 private:
  KRLMutex _mutex;
  KRLCondition _zero;
  int _left;
};

// --- A typed stream on a socket ---
//
// A std::streambuf over a connected socket, so that KRLostream and KRListream
// work on the connection itself. A read that fails or times out reads as the
// end of input; the typed stream then stays failed.
class SocketBuf : public std::streambuf {
 public:
  explicit SocketBuf(int fd) : _fd(fd) {
    setg(_in, _in, _in);
    setp(_out, _out + sizeof _out);
  }
  ~SocketBuf() override { sync(); }

 protected:
  int_type underflow() override {
    const long n = example::receive_some(_fd, _in, sizeof _in);
    if (n <= 0) return traits_type::eof();
    setg(_in, _in, _in + n);
    return traits_type::to_int_type(*gptr());
  }
  int_type overflow(int_type c) override {
    if (flush() != 0) return traits_type::eof();
    if (!traits_type::eq_int_type(c, traits_type::eof())) {
      *pptr() = traits_type::to_char_type(c);
      pbump(1);
    }
    return traits_type::not_eof(c);
  }
  int sync() override { return flush(); }

 private:
  int flush() {
    for (const char* p = pbase(); p < pptr();) {
      const long n = example::send_some(_fd, p, static_cast<std::size_t>(pptr() - p));
      if (n <= 0) return -1;
      p += n;
    }
    setp(_out, _out + sizeof _out);
    return 0;
  }

  int _fd;
  char _in[4096];
  char _out[4096];
};

// Blocking, with a time-out on every send and receive.
void set_socket_timeouts(int fd) { example::make_blocking(fd, kSocketTimeoutS); }

// One connection's frames. The typed text has no frame of its own, and a
// string read from it looks one character ahead, which on a socket would wait
// for the next message: so each message goes as a frame, its length as a
// typed number and then its text as raw bytes, and is read whole before its
// values are read from it.
class Channel {
 public:
  static const unsigned long kMaxFrame = 1UL << 16;

  explicit Channel(int fd) : _buf(fd), _io(&_buf), _in(_io), _out(_io) {}

  bool send(const std::string& text) {
    _out << static_cast<unsigned long>(text.size());
    _out.put(text.data(), static_cast<unsigned int>(text.size()));
    _io.flush();
    return static_cast<bool>(_io);
  }
  // False at the end of input, on a time-out, or for a frame out of bounds.
  bool receive(std::string& text) {
    if (_io.peek() == std::char_traits<char>::eof()) return false;
    unsigned long size = 0;
    _in >> size;
    if (!_io || size > kMaxFrame) return false;
    text.resize(size);
    _in.get(&text[0], static_cast<unsigned int>(size));
    return static_cast<bool>(_io);
  }

 private:
  SocketBuf _buf;
  std::iostream _io;
  KRListream _in;
  KRLostream _out;
};

// --- The server ---
//
// A request is two strings, the operation and its argument. A reply is a
// status (0 or 1) and then the result text (0) or the exception the
// operation raised (1).
class Server {
 public:
  static const int kWorkers = 3;

  Server()
      : _listener(KRLPortable::createTcpListenerSocket("127.0.0.1", 0, 0)),
        _port(static_cast<unsigned short>(KRLPortable::saGetPort(_listener))),
        _stopping(false),
        _accepting(true),
        _ended(kWorkers + 1) {}
  ~Server() {
    for (int fd : _queue) example::close_socket(fd);
  }

  unsigned short port() const { return _port; }
  void start();
  // True when the acceptor and every worker returned within ms.
  bool wait_until_ended(unsigned long long ms) { return _ended.wait(ms); }

 private:
  class Acceptor : public KRLThread {
   public:
    explicit Acceptor(Server& s) : _server(s) {}

   protected:
    void body() override {
      _server.accept_loop();
      _server._ended.done();
    }

   private:
    Server& _server;
  };

  class Worker : public KRLThread {
   public:
    explicit Worker(Server& s) : _server(s) {}

   protected:
    void body() override {
      _server.work_loop();
      _server._ended.done();
    }

   private:
    Server& _server;
  };

  void accept_loop();
  void work_loop();
  void serve(int fd);
  // Writes the reply to one request; true when the connection goes on.
  bool handle(const char* operation, const char* argument, KRLostream& out);
  void stop();

  int _listener;
  unsigned short _port;
  KRLMutex _mutex;  // guards _queue, _stopping and _accepting
  KRLCondition _work;
  std::deque<int> _queue;  // accepted sockets, owned until a worker takes one
  bool _stopping;          // a stop request came: the acceptor is to return
  bool _accepting;         // the acceptor runs: more work may come
  Countdown _ended;
  std::vector<std::unique_ptr<KRLThread>> _threads;  // the host owns its thread objects
};

void Server::start() {
  _threads.emplace_back(new Acceptor(*this));
  for (int i = 0; i < kWorkers; ++i) _threads.emplace_back(new Worker(*this));
  for (auto& t : _threads) t->run();
}

void Server::accept_loop() {
  for (;;) {
    int fd;
    try {
      fd = KRLPortable::socketAccept(_listener);
    } catch (const CORBA_SystemException& e) {
      std::printf("acceptor: %s, errno %lu\n", e._name(), e.minor());
      break;
    }
    // Every accepted connection is queued, the wake-up one of stop() too
    // (a worker finds it closed at once).
    KRLMutex_var guard(_mutex, 1);
    _queue.push_back(fd);
    _work.signal();
    if (_stopping) break;
  }
  example::close_socket(_listener);
  KRLMutex_var guard(_mutex, 1);
  _accepting = false;
  _work.broadcast();  // parked workers see that no more work comes
}

void Server::work_loop() {
  for (;;) {
    int fd;
    {
      KRLMutex_var guard(_mutex, 1);
      while (_queue.empty() && _accepting) _work.wait(_mutex);
      if (_queue.empty()) return;  // the acceptor is gone and the queue drained
      fd = _queue.front();
      _queue.pop_front();
    }
    set_socket_timeouts(fd);
    try {
      serve(fd);
    } catch (const CORBA_Exception& e) {  // a malformed request: drop the connection
      std::printf("worker: connection dropped on %s\n", e._name());
    }
    example::close_socket(fd);
  }
}

void Server::serve(int fd) {
  Channel channel(fd);
  std::string frame;
  while (channel.receive(frame)) {  // until the client closes or falls silent
    std::istringstream request_text(frame);
    KRListream request(request_text);
    CORBA_String_var operation, argument;
    request >> operation >> argument;
    if (!request_text || operation.in() == nullptr || argument.in() == nullptr) return;
    std::ostringstream reply_text;
    KRLostream reply(reply_text);
    const bool go_on = handle(operation, argument, reply);
    if (!channel.send(reply_text.str()) || !go_on) return;
  }
}

bool Server::handle(const char* operation, const char* argument, KRLostream& out) {
  try {
    if (std::strcmp(operation, "echo") == 0) {
      out << 0L << argument;
      return true;
    }
    if (std::strcmp(operation, "bye") == 0) {
      out << 0L << "bye";
      return false;
    }
    if (std::strcmp(operation, "stop") == 0) {
      out << 0L << "stopping";
      stop();
      return false;
    }
    // The explanation stays here: only the id, minor code and completion
    // status travel.
    throw CORBA_BAD_OPERATION(1, CORBA::COMPLETED_NO, "no such operation");
  } catch (const CORBA_Exception& e) {
    out << 1L << e;
    return true;
  }
}

// Makes the acceptor return; the workers then drain the queue and return
// too. Connections queued before are still served.
void Server::stop() {
  {
    KRLMutex_var guard(_mutex, 1);
    _stopping = true;
  }
  // The acceptor sits in accept: one more connection gets it out.
  try {
    example::close_socket(KRLPortable::tcpConnect("127.0.0.1", _port, kConnectTimeoutMs, nullptr));
  } catch (const CORBA_SystemException& e) {
    std::printf("stop: the wake-up connection failed: %s\n", e._name());
  }
}

// --- The clients ---

// A client socket: tcpConnect with a time-out, then blocking with time-outs.
int connect_to(unsigned short port) {
  const int fd = KRLPortable::tcpConnect("127.0.0.1", port, kConnectTimeoutMs, nullptr);
  set_socket_timeouts(fd);
  return fd;
}

class Connection {
 public:
  explicit Connection(unsigned short port) : _fd(connect_to(port)), _channel(_fd) {}
  ~Connection() { example::close_socket(_fd); }

  // Sends one request and reads the status of its reply; the caller reads
  // the rest from in(). False when the reply did not come.
  bool call(const char* operation, const char* argument, long& status) {
    std::ostringstream request_text;
    KRLostream request(request_text);
    request << operation << argument;
    status = -1;
    if (!_channel.send(request_text.str()) || !_channel.receive(_frame)) return false;
    _reply_text.str(_frame);
    _reply_text.clear();
    _reply >> status;
    return static_cast<bool>(_reply_text);
  }
  KRListream& in() { return _reply; }
  const std::string& reply_text() const { return _frame; }
  bool good() const { return static_cast<bool>(_reply_text); }

 private:
  int _fd;
  Channel _channel;
  std::string _frame;
  std::istringstream _reply_text;
  KRListream _reply{_reply_text};
};

bool expect_text(Connection& c, const char* operation, const char* argument, const char* want) {
  long status;
  if (!c.call(operation, argument, status) || status != 0) return false;
  CORBA_String_var text;
  c.in() >> text;
  return c.good() && text.in() != nullptr && std::strcmp(text.in(), want) == 0;
}

// An unknown operation comes back as the server's CORBA_BAD_OPERATION.
bool expect_bad_operation(Connection& c) {
  long status;
  if (!c.call("frobnicate", "x", status) || status != 1) return false;
  CORBA_Exception* e = nullptr;
  c.in() >> e;
  CORBA_Exception_var owner(e);  // operator>> gives the caller a new object
  if (e == nullptr) return false;
  try {
    e->_raise();
  } catch (const CORBA_BAD_OPERATION& x) {
    return x.minor() == (CORBA::OMGVMCID | 1) && x.completed() == CORBA::COMPLETED_NO &&
           std::strcmp(x.explanation(), "") == 0;
  } catch (const CORBA_Exception&) {
  }
  return false;
}

class Client : public KRLThread {
 public:
  Client(int number, unsigned short port, Countdown& finished)
      : _number(number), _port(port), _finished(finished), _ok(false) {}
  // Read after the thread was joined.
  bool ok() const { return _ok; }

 protected:
  void body() override {
    try {
      Connection c(_port);
      bool ok = true;
      for (int i = 0; i < 3 && ok; ++i) {
        const std::string text =
            "client " + std::to_string(_number) + " says hello #" + std::to_string(i);
        ok = expect_text(c, "echo", text.c_str(), text.c_str());
      }
      ok = ok && expect_bad_operation(c);
      if (ok && _number == 0) {
        std::string text = c.reply_text();
        for (std::string::size_type i = 0; (i = text.find('\n', i)) != std::string::npos;)
          text.replace(i, 1, "\\n");
        std::printf("client 0: the text of the reply to \"frobnicate\": %s\n", text.c_str());
      }
      ok = ok && expect_text(c, "bye", "-", "bye");
      _ok = ok;
      std::printf("client %d: 3 echoes, BAD_OPERATION raised as its own class, bye: %s\n", _number,
                  ok ? "ok" : "FAILED");
    } catch (const CORBA_SystemException& e) {
      std::printf("client %d: %s, minor 0x%lX\n", _number, e._name(), e.minor());
    }
    _finished.done();
  }

 private:
  int _number;
  unsigned short _port;
  Countdown& _finished;
  bool _ok;
};

int run() {
  KRLPortable::win_startup();
  KRLThread::factory(&joinable_factory);

  Server server;
  std::printf("echo_server: listening on 127.0.0.1:%u with %d workers\n", server.port(),
              Server::kWorkers);
  server.start();

  const int kClients = 4;
  Countdown finished(kClients);
  std::vector<std::unique_ptr<Client>> clients;
  for (int i = 0; i < kClients; ++i) clients.emplace_back(new Client(i, server.port(), finished));
  for (auto& c : clients) c->run();
  bool ok = finished.wait(kRunLimitMs);

  try {
    Connection c(server.port());
    const bool stopped = expect_text(c, "stop", "-", "stopping");
    std::printf("stop request: %s\n", stopped ? "acknowledged" : "FAILED");
    ok = ok && stopped;
  } catch (const CORBA_SystemException& e) {
    std::printf("stop request: %s, minor 0x%lX\n", e._name(), e.minor());
    ok = false;
  }

  if (!server.wait_until_ended(kRunLimitMs)) {
    // Last resort for threads that did not come back: end them where they
    // are (see KRLThread::terminate for what that leaves behind).
    std::printf("FAIL: the server's threads did not end in time\n");
    std::fflush(stdout);
    KRLThread::terminateAll();
    std::_Exit(1);
  }
  std::printf("server: acceptor and workers returned\n");
  join_all_threads();
  KRLThread::factory(&KRLThread::_create_thread);

  for (auto& c : clients) ok = ok && c->ok();
  std::printf("echo_server: %s\n", ok ? "all checks passed" : "FAILED");
  return ok ? 0 : 1;
}

}  // namespace

int main() {
  KRLPortLibManager::initialize();
  try {
    return run();
  } catch (const CORBA_SystemException& e) {  // no listener, no thread
    std::printf("echo_server: %s, minor 0x%lX\n", e._name(), e.minor());
    return 1;
  }
}
