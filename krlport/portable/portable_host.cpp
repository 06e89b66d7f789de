// Host names and address look-ups of KRLPortable, with the two process-wide
// caches: this host's name and its dotted address.
//
// Lock: KRLPortable::_mutex (recursive) guards the address cache, every use
// of inet_ntoa and the look-ups made under it; ip_addr(NULL) takes it again
// through host_name and ip_addr, convert through is_local. No other lock is
// taken under it.
#include <atomic>
#include <cstdint>
#include <cstring>

#include "krlport/exceptions/system_exception.h"
#include "krlport/frame/string_var.h"
#include "krlport/frame/string_wrapper.h"
#include "krlport/platform/resolver.h"
#include "krlport/platform/socket.h"
#include "krlport/portable/net_internal.h"
#include "krlport/portable/portable.h"

namespace {

// Attempts per look-up while the resolver answers TRY_AGAIN.
constexpr int kLookupAttempts = 5;
// Pause between those attempts where no pause-free bound is fixed; with the
// attempts above, a stuck resolver costs at most 200 ms of sleep per call.
constexpr unsigned long kTryAgainPauseMs = 50;

// Written under _mutex before g_host_name_read is set; read without a lock
// once the flag was seen set.
char g_host_name[256];
std::atomic<bool> g_host_name_read{false};

// Guarded by KRLPortable::_mutex. The text is never released.
char* g_local_address = nullptr;
bool g_local_address_read = false;

// KRLPortable::gethostbyname's records: no lock, one caller at a time.
hostent* g_last_lookup = nullptr;
vhostname g_lookup_work;

bool is_empty(const char* s) { return s == nullptr || *s == '\0'; }

// True when text is a dotted address; its value (network order) in address.
bool parse_dotted(const char* text, std::uint32_t& address) {
  return krl_internal::parse_ipv4(text, address);
}

// A copy of the dotted text of address. Caller holds KRLPortable::_mutex,
// which guards the socket library's one text buffer.
char* dotted_copy(const in_addr& address) {
  return CORBA::string_dup(krl_internal::ipv4_text(address.s_addr));
}

// The first address of a look-up result if it is an IPv4 one, else null.
const in_addr* first_address(const hostent* h) {
  if (h == nullptr || h->h_addrtype != AF_INET || h->h_length != sizeof(in_addr) ||
      h->h_addr_list == nullptr || h->h_addr_list[0] == nullptr) {
    return nullptr;
  }
  return reinterpret_cast<const in_addr*>(h->h_addr_list[0]);
}

// Looks name up, asking again, pause_ms apart, while the resolver answers
// TRY_AGAIN, kLookupAttempts times at most. Null when not found.
hostent* look_up_retrying(const char* name, vhostname& work, unsigned long pause_ms) {
  for (int attempt = 1;; ++attempt) {
    hostent* h = krl_internal::look_up_host(name, &work);
    if (h != nullptr || work.error != krl_internal::kResolverTryAgain || attempt == kLookupAttempts)
      return h;
    if (pause_ms != 0) KRLPortable::sleep(pause_ms);
  }
}

}  // namespace

const char* KRLPortable::host_name() {
  if (g_host_name_read.load(std::memory_order_acquire)) return g_host_name;
  KRLMutex_var guard(_mutex, 1);
  // A first caller that waited here finds the name in place already.
  if (!g_host_name_read.load(std::memory_order_relaxed)) {
    // A failure leaves the name empty.
    if (!krl_internal::local_host_name(g_host_name, sizeof g_host_name)) g_host_name[0] = '\0';
    g_host_name[sizeof g_host_name - 1] = '\0';
    g_host_name_read.store(true, std::memory_order_release);
  }
  return g_host_name;
}

char* KRLPortable::ip_addr(const char* host) {
  KRLMutex_var guard(_mutex, 1);
  if (is_empty(host)) {
    if (!g_local_address_read) {
      const char* name = host_name();
      // An empty name would bring us back here; it has no address.
      g_local_address = is_empty(name) ? nullptr : ip_addr(name);
      g_local_address_read = true;
    }
    return CORBA::string_dup(g_local_address);
  }
  std::uint32_t dotted;
  if (parse_dotted(host, dotted)) return CORBA::string_dup(host);  // as given, not normalised
  vhostname work;
  const in_addr* address = first_address(look_up_retrying(host, work, 0));
  return address != nullptr ? dotted_copy(*address) : nullptr;
}

char* KRLPortable::ipAddr(int, const char* host) { return ip_addr(host); }

unsigned char KRLPortable::ipAddr(int family, void* out, const char* host) {
  if (is_empty(host)) {
    const char* name = host_name();
    return is_empty(name) ? 0 : ipAddr(family, out, name);
  }
  if (family != AF_INET) return 0;
  KRLMutex_var guard(_mutex, 1);
  std::uint32_t dotted;
  if (parse_dotted(host, dotted)) {
    std::memcpy(out, &dotted, sizeof dotted);
    return 1;
  }
  vhostname work;
  const in_addr* address = first_address(look_up_retrying(host, work, kTryAgainPauseMs));
  if (address == nullptr) return 0;
  std::memcpy(out, address, sizeof *address);
  return 1;
}

unsigned char KRLPortable::ipAddr(void* out, int& length, const char* host) {
  length = sizeof(in_addr);
  return ipAddr(AF_INET, out, host);
}

char* KRLPortable::convert(const sockaddr_in& sa, unsigned short& port) {
  KRLMutex_var guard(_mutex, 1);
  port = ntohs(sa.sin_port);
  return dotted_copy(sa.sin_addr);
}

void KRLPortable::convert(const char* host, unsigned short port, sockaddr_in& sa) {
  KRLMutex_var guard(_mutex, 1);
  std::memset(&sa, 0, sizeof sa);
  std::uint32_t address = htonl(INADDR_ANY);
  if (!is_empty(host)) {
    const char* text = is_local(host) ? "127.0.0.1" : host;
    if (!parse_dotted(text, address)) {
      vhostname work;
      const in_addr* found = first_address(krl_internal::look_up_host(text, &work));
      if (found == nullptr) throw CORBA_COMM_FAILURE();
      address = found->s_addr;
    }
  }
  sa.sin_addr.s_addr = address;
  sa.sin_port = htons(port);
}

unsigned char KRLPortable::isValidIP(int, const char* text) {
  std::uint32_t address;
  return text != nullptr && parse_dotted(text, address) ? 1 : 0;
}

unsigned char KRLPortable::is_local(const char* host) {
  CORBA_String_var mine(ip_addr(nullptr));
  CORBA_String_var theirs(ip_addr(host));
  if (theirs.in() == nullptr) return 0;
  if (std::strcmp(theirs.in(), "127.0.0.1") == 0) return 1;
  return mine.in() != nullptr &&
                 compare(KRLStringWrapper(mine.in()), KRLStringWrapper(theirs.in())) == 0
             ? 1
             : 0;
}

unsigned char KRLPortable::isLocal(const char* host) { return is_empty(host) ? 1 : is_local(host); }

unsigned char KRLPortable::is_peer_local(int fd) {
  unsigned short port = 0;
  CORBA_String_var peer(peer_addr(fd, port));
  return is_local(peer.in());
}

char* KRLPortable::peer_addr(int fd, unsigned short& port) {
  if (fd < 0) throw CORBA_BAD_INV_ORDER(4, CORBA::COMPLETED_MAYBE);
  sockaddr_in sa;
  std::memset(&sa, 0, sizeof sa);
  int length = sizeof sa;
  if (krl_internal::peer_name(fd, &sa, length) != 0) return nullptr;
  return convert(sa, port);
}

char* KRLPortable::host2ip(int& family, const char* host) {
  char* text = ip_addr(host);
  if (text == nullptr) krl_internal::throw_unmapped_host(host);
  family = AF_INET;
  return text;
}

hostent* KRLPortable::gethostbyname(const char* name) {
  g_last_lookup = look_up_retrying(name, g_lookup_work, kTryAgainPauseMs);
  return g_last_lookup;
}
