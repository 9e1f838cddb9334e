#include "protocol/bvrequest.h"

#include <gtest/gtest.h>

#include "core/diag.h"
#include "protocol/tavreply.h"
#include "tests/protocol/vectors.h"

static std::string lines;  // the diagnostic lines so far

TEST(Request, IsDecryptedAndAnsweredUnderItsSessionKey) {
  Twofish_initialise();
  BVRequest request;
  for (char c : TPacket().Bytes()) {
    ASSERT_FALSE(request.WholePacket());
    request.AddData(&c, 1);
  }
  ASSERT_TRUE(request.WholePacket());
  ASSERT_TRUE(request.ParseInitRequest("secret", {}));
  EXPECT_EQ("CMD\nA=1", Std(request.Text()));
  TAVReply reply;
  reply.InitPacket("200", request.WithText("x"));
  reply.AddIntParam(7LL);
  reply.FinalizePacket();
  EXPECT_EQ(TPacket::Number(12, 4) + PeerEncode("200\n     7\n\r", "a key"), Std(reply.Text()));
  request = String("\x0A\0\0\0\x03\x12\0\0\0\0\0\0\0\0", 14);  // no more than this under an empty password
  EXPECT_TRUE(request.WholePacket());
  EXPECT_TRUE(request.ParseInitRequest("", {}));
}

// Rows: a change, whether the packet is still good, whether its head alone is known to be bad, the last line about
// it.
TEST(Request, IsRefusedForAnyWrongFieldWhetherItsBytesAreKeptOrNot) {
  Twofish_initialise();
  const std::tuple<void (*)(TPacket&), bool, bool, const char*> rows[] = {
      {[](TPacket&) {}, true, false, "<-- Req size: 7\n"},
      {[](TPacket& p) { p.declared = 44; }, false, false, "<-- TAV packet size: 44\n"},
      {[](TPacket& p) { p.declared = 0xFFFFFFFF; }, false, false, "<-- TAV packet size: -1\n"},
      {[](TPacket& p) { p.keySize = 60000; }, false, false, "<-- Key size: 60000\n"},
      {[](TPacket& p) { p.requestSize = 15; }, false, false, "<-- Req size: 15\n"},
      {[](TPacket& p) { p.requestSize = 0xFFFFFFFF; }, false, false, "<-- Req size: -1\n"},
      {[](TPacket& p) { p.signature[1] = 3; }, false, true, "<-- Req size: 7\n"},
      {[](TPacket& p) { p.proof[0]++; }, false, true, "<-- Wrong password or MD5 error\n"},
      {[](TPacket& p) { p.proof[15]++; }, false, true, "<-- Wrong password or MD5 error\n"},
      {[](TPacket& p) { p.proof.resize(400), p.declared = 429; }, false, true, "<-- Wrong password or MD5 error\n"},
      {[](TPacket& p) { p.proof = "", p.declared = 29; }, false, true, "<-- Wrong password or MD5 error\n"}};
  const TPasswordKeys keys("secret");
  SetDiagSink([](const char* text, in_addr) { lines += text; }, [] { return true; });
  for (const auto& [change, good, hopeless, lastLine] : rows) {
    TPacket packet;
    change(packet);
    const std::string bytes = packet.Bytes();
    EXPECT_EQ(good, BVRequest(Bytes(bytes)).ParseInitRequest(keys, {}) == 1) << lastLine;
    const std::string all = std::exchange(lines, "");
    EXPECT_EQ(lastLine, all.substr(all.rfind("<-- ")));
    TPacketHead head;
    for (const char& c : bytes) head.Feed(&c, 1);
    EXPECT_EQ(good, head.CheckFrame({}, keys)) << lastLine;
    EXPECT_EQ(hopeless, head.Hopeless(keys)) << lastLine;
    EXPECT_EQ(all, std::exchange(lines, ""));
  }
}

TEST(Reply, KeepsALineAParameterAndDropsWhatIsTooLong) {
  TAVReply reply;
  reply.SetResult("300") += "text";
  reply.AddStringParam("a\r\nb", 1);
  reply.AddStringParam("two\n", 0);
  reply.AddTimeParam(tm{9, 7, 14, 5, 2, 109, 0, 0, 0, 0, nullptr});
  EXPECT_EQ("300\ntext\na%0D%0Ab\ntwo\n\n05032009140709\n", Std(reply.Text()));
  for (const auto& [asked, added] : {std::pair(2047, 2048), std::pair(2048, 2048), std::pair(2049, 0)}) {
    reply = "";
    reply.AddVarParams("%*d", asked, 1);
    EXPECT_EQ(added, reply.Length()) << asked;
  }
}
