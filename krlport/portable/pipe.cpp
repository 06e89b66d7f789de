// KRLPipe: two datagram sockets bound to free ports and connected crosswise
// through this host's loopback address.
#include "krlport/portable/pipe.h"

#include <cstring>

#include "krlport/exceptions/system_exception.h"
#include "krlport/platform/socket.h"
#include "krlport/portable/portable.h"

namespace {

[[noreturn]] void fail() { throw CORBA_BAD_INV_ORDER(4, CORBA::COMPLETED_MAYBE); }

// Opens a datagram socket on a free port of the wild address into fd and
// returns that port.
unsigned short open_side(int& fd) {
  sockaddr_in sa;
  std::memset(&sa, 0, sizeof sa);
  sa.sin_family = AF_INET;
  sa.sin_addr.s_addr = htonl(INADDR_ANY);
  if (krl_internal::open_socket(AF_INET, SOCK_DGRAM, 0, fd) != 0) fail();
  int length = sizeof sa;
  if (krl_internal::bind_socket(fd, &sa, sizeof sa) != 0 ||
      krl_internal::socket_name(fd, &sa, length) != 0) {
    fail();
  }
  return ntohs(sa.sin_port);
}

// Fixes the peer of fd as this host's port; a name of this host converts to
// 127.0.0.1.
void connect_to(int fd, unsigned short port) {
  sockaddr_in sa;
  KRLPortable::convert(KRLPortable::host_name(), port, sa);
  sa.sin_family = AF_INET;
  if (krl_internal::connect_socket(fd, &sa, sizeof sa) != 0) fail();
}

// Closes both descriptors unless the constructor got through.
struct CloseOnFailure {
  ~CloseOnFailure() {
    if (armed) {
      if (reader >= 0) krl_internal::close_socket(reader);
      if (writer >= 0) krl_internal::close_socket(writer);
    }
  }
  int& reader;
  int& writer;
  bool armed = true;
};

}  // namespace

KRLPipe::KRLPipe() : _reader(-1), _writer(-1) {
  CloseOnFailure guard{_reader, _writer};
  const unsigned short reader_port = open_side(_reader);
  const unsigned short writer_port = open_side(_writer);
  connect_to(_reader, writer_port);
  connect_to(_writer, reader_port);
  guard.armed = false;
}

KRLPipe::~KRLPipe() {
  krl_internal::close_socket(_reader);
  krl_internal::close_socket(_writer);
}

unsigned long KRLPipe::write(const char* data, unsigned long length) {
  return static_cast<unsigned long>(krl_internal::send_bytes(_writer, data, length));
}

unsigned long KRLPipe::read(char* data, unsigned long length) {
  return static_cast<unsigned long>(krl_internal::receive_bytes(_reader, data, length));
}

unsigned long KRLPipe::write_to_writer(const char* data, unsigned long length) {
  return static_cast<unsigned long>(krl_internal::send_bytes(_reader, data, length));
}

unsigned long KRLPipe::read_from_writer(char* data, unsigned long length) {
  return static_cast<unsigned long>(krl_internal::receive_bytes(_writer, data, length));
}
