#include <string>
#include <thread>

#include <gtest/gtest.h>

#include "krlport/portable/net_test_support.h"
#include "krlport/portable/pipe.h"

namespace {

TEST(PipeTest, DatagramsTravelBothWays) {
  const int fds = krl_test::open_fds();  // the destructor closes both
  {
    KRLPipe pipe;
    EXPECT_EQ(krl_test::open_fds(), fds + 2);  // the count sees the pipe's sockets
    char buf[16] = {};
    EXPECT_EQ(pipe.write("ab", 2) + pipe.write("cde", 3), 5u);
    EXPECT_EQ(krl_test::readable(pipe.reader(), pipe.writer()), 1);  // the reader only
    EXPECT_EQ(pipe.read(buf, sizeof buf), 2u);                       // datagrams are not joined
    EXPECT_EQ(pipe.read(buf, sizeof buf), 3u);
    EXPECT_EQ(pipe.write_to_writer("x", 1), 1u);
    EXPECT_EQ(pipe.read_from_writer(buf, sizeof buf), 1u);
    EXPECT_EQ(std::string(buf, 3), "xde");
    std::thread reader([&] { EXPECT_EQ(pipe.read(buf, sizeof buf), 4u); });  // blocks
    EXPECT_EQ(pipe.write("wake", 4), 4u);
    reader.join();
  }
  EXPECT_EQ(krl_test::open_fds(), fds);
}

}  // namespace
