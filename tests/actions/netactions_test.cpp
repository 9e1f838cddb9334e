#include "actions/netactions.h"

#include <gtest/gtest.h>

#include "config/settings.h"
#include "net/resolver.h"
#include "net/syslogsender.h"
#include "tests/net/peer.h"

// The reply, and what the peer got, to parameters in which '@' stands for the port.
static std::string Act(void (*handler)(const BVRequest&, TAVReply&), int type, std::string parameters) {
  std::string got;
  TPeer peer(type, [&](int fd) { got = Take(fd, 200); });
  parameters.replace(parameters.find('@'), 1, std::to_string(peer.port));
  TAVReply reply;
  handler(BVRequest(String(parameters.c_str())), reply);
  if (reply.Text().Pos("localhost") > 0 || reply.Text().Pos("Data has") > 0) peer.play.join();
  return std::string(reply.Text().Data(), static_cast<size_t>(reply.Length())) + "|" + got;
}

TEST(NetActions, SendAndSayWhatBecameOfIt) {
  const std::string sent = "200\nData has been sent|", head = "200\nSyslog: Data to localhost has been sent|<13>";
  EXPECT_EQ("600\noperation is not allowed|", Act(ProcessAct_TCPSend, SOCK_STREAM, "::1\n@\n0\nx\n0\n\n"));
  TLock lock(optmutex);
  TAVSettings.tcpudpaction = TAVSettings.syslogaction = 1;
  PublishSettings();
  EXPECT_EQ(sent + "a\nbc", Act(ProcessAct_TCPSend, SOCK_STREAM, "localhost\n@\n0\na%0Ab\n1\nc\n"));
  EXPECT_EQ(sent + "x", Act(ProcessAct_TCPSend, SOCK_DGRAM, "localhost\n@\n1\nx\n99\n\n"));
  EXPECT_EQ("301\n|", Act(ProcessAct_TCPSend, SOCK_DGRAM, "localhost\n@\n0\nx\n0\n\n"));  // nobody there over TCP
  EXPECT_EQ("501\nWrong parameter|", Act(ProcessAct_Syslog, SOCK_DGRAM, "localhost\n@\n1\n8\nfull\n"));
  EXPECT_EQ("200\nSyslog: Data to 1.2.3.4.5 has been sent|",
            Act(ProcessAct_Syslog, SOCK_DGRAM, "1.2.3.4.5\n@\n1\n5\nx\n"));

  const std::string got = Act(ProcessAct_Syslog, SOCK_DGRAM, "localhost\n@\n1\n5\ndisk full\n");
  EXPECT_EQ(head, got.substr(0, head.size()));
  EXPECT_EQ(std::string(" ") + IP2String(GetMyIP()).CStr() + " ZO TAV: disk full",
            got.substr(head.size() + static_cast<size_t>(CDateTime().Length())));
  EXPECT_TRUE(CDateTime({4, 9, 3, 5, 10, 109, 0, 0, 0, 0, nullptr}) == "Nov 5 03:09:04");
  EXPECT_TRUE(CDateTime({4, 9, 3, 15, 10, 109, 0, 0, 0, 0, nullptr}) == "Nov15 03:09:04");
}
