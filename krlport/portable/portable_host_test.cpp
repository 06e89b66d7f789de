#include <cstring>
#include <string>

#include <gtest/gtest.h>

#include "krlport/frame/string_var.h"
#include "krlport/platform/resolver.h"
#include "krlport/portable/net_internal.h"
#include "krlport/portable/net_test_support.h"
#include "krlport/portable/portable.h"

namespace {

TEST(PortableAddressTest, TextsNamesAndThisHostOnlyForIPv4) {
  sockaddr_in other{}, before{};  // IPv4 setters leave another family alone
  other.sin_family = before.sin_family = AF_INET6;
  KRLPortable::saSetLoopback(reinterpret_cast<sockaddr*>(&other));
  KRLPortable::saSetPort(reinterpret_cast<sockaddr*>(&other), 1);
  EXPECT_EQ(std::memcmp(&other, &before, sizeof other), 0);
  EXPECT_STREQ(CORBA_String_var(KRLPortable::ipAddr(AF_INET, "127.1")), "127.1");  // as given
  const CORBA_String_var mine(KRLPortable::ip_addr(""));                           // this host
  ASSERT_NE(mine.in(), nullptr) << "this host's name must resolve: " << KRLPortable::host_name();
  EXPECT_EQ(KRLPortable::is_local("127.0.0.1") + KRLPortable::is_local(KRLPortable::host_name()),
            2);
  EXPECT_EQ(KRLPortable::is_local("127.1"), 0);
  in_addr out;
  out.s_addr = 0x5a5a5a5a;
  EXPECT_EQ(KRLPortable::ipAddr(AF_INET, &out, "krl-nowhere.invalid"), 0);
  EXPECT_EQ(out.s_addr, 0x5a5a5a5au);
  sockaddr_in sa;
  KRLPortable::convert(KRLPortable::host_name(), 80, sa);
  EXPECT_EQ(sa.sin_addr.s_addr, htonl(INADDR_LOOPBACK));
}

int g_lookups = 0;
hostent* try_again(const char*, vhostname* work) {  // for ever
  ++g_lookups;
  work->error = krl_internal::kResolverTryAgain;
  return nullptr;
}

TEST(PortableAddressTest, ResolverRetriesAreBoundedAndHost2ipFitsItsReason) {
  CORBA_String_var cached(KRLPortable::ip_addr(nullptr));  // fill the cache first
  krl_internal::set_host_lookup(&try_again);
  in_addr out;
  EXPECT_EQ(KRLPortable::ip_addr("k.invalid"), nullptr);
  EXPECT_EQ(KRLPortable::ipAddr(AF_INET, &out, "k.invalid"), 0);
  EXPECT_EQ(g_lookups, 10);  // five each
  int family = 0;
  auto e = krl_test::thrown<CORBA_BAD_PARAM>(
      [&] { KRLPortable::host2ip(family, std::string(400, 'n').c_str()); });
  krl_internal::set_host_lookup(nullptr);
  EXPECT_EQ(e.value().minor(), krl_test::stored(8));
  const std::string reason = e->explanation();
  EXPECT_EQ(reason.size(), 255u);
  EXPECT_EQ(reason.substr(0, 18) + reason.substr(reason.size() - 17),
            "Could not map <nnn> into IP address");
}

}  // namespace
