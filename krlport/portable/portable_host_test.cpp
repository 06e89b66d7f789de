#include <arpa/inet.h>

#include <cstring>
#include <string>

#include <gtest/gtest.h>

#include "krlport/frame/string_var.h"
#include "krlport/portable/net_internal.h"
#include "krlport/portable/net_test_support.h"
#include "krlport/portable/portable.h"

namespace {

std::string text_of(char* owned) {
  CORBA_String_var v(owned);
  return v.in() != nullptr ? v.in() : "<null>";
}

TEST(PortableAddressTest, OnlyTheIPv4LoopbackRecordCounts) {
  sockaddr_in in{};
  in.sin_family = AF_INET;
  in.sin_addr.s_addr = inet_addr("127.0.0.2");
  EXPECT_EQ(KRLPortable::saIsLoopback(reinterpret_cast<sockaddr*>(&in)), 0);
  sockaddr_in6 other{}, before{};
  other.sin6_family = before.sin6_family = AF_INET6;
  auto* sa = reinterpret_cast<sockaddr*>(&other);
  for (auto set : {&KRLPortable::saSetWild, &KRLPortable::saSetLoopback, &KRLPortable::saSetLocal})
    set(sa);
  KRLPortable::saSetPort(sa, 1);
  EXPECT_EQ(std::memcmp(&other, &before, sizeof other), 0);
  EXPECT_EQ(KRLPortable::saGetPort(sa), -1);
  EXPECT_EQ(KRLPortable::saGetPort(-1), -1);
}

TEST(PortableAddressTest, TextsNamesAndThisHost) {
  EXPECT_EQ(KRLPortable::isValidIP(AF_INET, "255.255.255.255"), 0);
  EXPECT_EQ(text_of(KRLPortable::ipAddr(AF_INET, "127.1")), "127.1");  // as given
  EXPECT_EQ(text_of(KRLPortable::ip_addr("krl-nowhere.invalid")), "<null>");
  char* mine = KRLPortable::ip_addr(nullptr);
  char* again = KRLPortable::ip_addr("");
  ASSERT_NE(mine, nullptr) << "this host's name must resolve: " << KRLPortable::host_name();
  EXPECT_NE(mine, again);
  EXPECT_EQ(text_of(mine), text_of(again));
  for (auto [host, local] :
       {std::pair{"127.0.0.1", 1}, {KRLPortable::host_name(), 1}, {"127.1", 0}, {"10.1.2.3", 0}}) {
    EXPECT_EQ(KRLPortable::is_local(host), local) << host;
  }
  in_addr out{0x5a5a5a5a};
  int length = 0;
  EXPECT_EQ(KRLPortable::ipAddr(AF_INET6, &out, "10.1.2.3"), 0);
  EXPECT_EQ(KRLPortable::ipAddr(AF_INET, &out, "krl-nowhere.invalid"), 0);
  EXPECT_EQ(out.s_addr, 0x5a5a5a5au);
  EXPECT_EQ(KRLPortable::ipAddr(&out, length, "10.1.2.3"), 1);
  EXPECT_EQ(out.s_addr, inet_addr("10.1.2.3"));
  sockaddr_in sa;
  KRLPortable::convert(KRLPortable::host_name(), 80, sa);
  EXPECT_EQ(sa.sin_addr.s_addr, htonl(INADDR_LOOPBACK));
  EXPECT_EQ(sa.sin_family, 0);  // the caller's to set
  EXPECT_TRUE(krl_test::thrown<CORBA_COMM_FAILURE>(
      [&] { KRLPortable::convert("krl-nowhere.invalid", 1, sa); }));
}

// A resolver that never stops answering "try again".
int g_lookups = 0;
hostent* try_again(const char*, vhostname* work) {
  ++g_lookups;
  work->error = TRY_AGAIN;
  return nullptr;
}

TEST(PortableAddressTest, ResolverRetriesAreBoundedAndHost2ipFitsItsReason) {
  CORBA_String_var cached(KRLPortable::ip_addr(nullptr));  // fill the cache first
  g_lookups = 0;
  krl_internal::set_host_lookup(&try_again);
  in_addr out;
  EXPECT_EQ(KRLPortable::ip_addr("k.invalid"), nullptr);
  EXPECT_EQ(KRLPortable::ipAddr(AF_INET, &out, "k.invalid"), 0);
  EXPECT_EQ(KRLPortable::gethostbyname("k.invalid"), nullptr);
  EXPECT_EQ(g_lookups, 15);  // five each
  int family = 0;
  const std::string name(400, 'n');
  auto e = krl_test::thrown<CORBA_BAD_PARAM>([&] { KRLPortable::host2ip(family, name.c_str()); });
  krl_internal::set_host_lookup(nullptr);
  ASSERT_TRUE(e);
  EXPECT_EQ(e->minor(), krl_test::stored(8));
  const std::string reason = e->explanation();
  EXPECT_EQ(reason.size(), 255u);
  EXPECT_EQ(reason.substr(0, 18) + reason.substr(reason.size() - 17),
            "Could not map <nnn> into IP address");
}

}  // namespace
