#include "protocol/tav_const.h"

#include <gtest/gtest.h>

#include "tests/protocol/vectors.h"

TEST(Codecs, OnlyAOneIsAYes) {
  for (const char* no : {"", "0", "10", "1 ", "true"}) EXPECT_EQ(0, tavDecodeBool(no)) << no;
  EXPECT_EQ(1, tavDecodeBool("1"));
}

// Rows: a text, whether the check lets it pass, its value.
TEST(Codecs, IntegersAreCheckedLenientlyAndCutTo32Bits) {
  const std::tuple<const char*, int, int> rows[] = {
      {"", 1, 0},     {"1-2", 1, 1},        {"--", 1, 0},
      {" 5", 0, 5},   {"+5", 0, 5},         {"5x", 0, 5},
      {"12 ", 0, 12}, {"4294967297", 1, 1}, {"99999999999999999999", 1, -1}};
  for (const auto& [text, accepted, value] : rows) {
    int out = 77;
    EXPECT_EQ(value, tavDecodeInt(text)) << text;
    EXPECT_EQ(accepted, tavDecodeInt(String(text), &out)) << text;
    EXPECT_EQ(accepted ? value : 77, out) << text;
  }
}

TEST(Codecs, OnlyTheFormsOfLineBreaksAreDecoded) {
  EXPECT_EQ("x%0D%0Ay%", Std(tavEncodeStrings("x\r\ny%", 0)));
  const char* rows[][2] = {
      {"%0D%0Ab", "\r\nb"}, {"%0", "%0"}, {"%0a", "%0a"}, {"%0Z%", "%0Z%"}, {"%%0A%0A", "%\n\n"}};
  for (const auto& row : rows) EXPECT_EQ(row[1], Std(tavDecodeStrings(row[0], 0)));
}

TEST(Packets, BodiesAreThoseOfNettleAndComeBack) {
  Twofish_initialise();
  for (int i = 0; i < 60; i++) {
    const std::string data = RandomBytes(1 + RandomBelow(90)), key = RandomBytes(i);  // the empty key first
    const std::string coded = PeerEncode(data, key);
    ASSERT_EQ(Std(EncodeLength(Bytes(data), 4)) + coded, Std(EncodeData(Bytes(data), Bytes(key), 4))) << i;
    ASSERT_EQ(data, Std(DecodeData(Bytes(coded), Bytes(key)))) << i;
  }
}
