#include "net/sockets.h"

#include <fcntl.h>
#include <gtest/gtest.h>

#include "net/resolver.h"
#include "net/syslogsender.h"
#include "tests/net/peer.h"

TEST(TcpListen, NeedsAFreeAddressAndNeverHandsOutDescriptorZero) {
  socklen_t length = 0;
  String error;
  const TFd input(dup(0));
  close(0);
  const TFd listener(TcpListen("127.0.0.1", 0, length, error));
  dup2(input.Get(), 0);
  EXPECT_TRUE(listener.Get() > 0);
  EXPECT_TRUE(fcntl(listener.Get(), F_GETFD) & FD_CLOEXEC);
  EXPECT_TRUE(length == sizeof(sockaddr_in));
  const TPeer other(SOCK_STREAM, nullptr);
  EXPECT_TRUE(TcpListen(nullptr, other.port, length, error) == 0);
  EXPECT_TRUE(error == "socket() or bind() error");
  EXPECT_TRUE(TcpListen(nullptr, 65616, length, error) == 0);
  EXPECT_TRUE(error == "Servname not supported for ai_socktype");
}

TEST(Texts, OfTimesAndAddressesHaveTheirForm) {
  tm time = {9, 7, 14, 5, 2, 109, 0, 0, 0, 0, nullptr};
  EXPECT_TRUE(CDateTime(time) == "Mar 5 14:07:09");
  time.tm_mday = 25;
  EXPECT_TRUE(CDateTime(time) == "Mar25 14:07:09");
  char text[16];
  EXPECT_STREQ("255.255.255.254", inet_ntoa_safe({htonl(0xFFFFFFFE)}, text, sizeof text));
}
