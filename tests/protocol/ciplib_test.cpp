#include "protocol/ciplib.h"

#include <gtest/gtest.h>
#include <zlib.h>

#include "protocol/crc32.h"
#include "protocol/md5.h"
#include "protocol/packethead.h"
#include "tests/protocol/vectors.h"

TEST(Digests, GiveThePublishedVectors) {
  EXPECT_STREQ("\xA9\x99\x3E\x36\x47\x06\x81\x6A\xBA\x3E\x25\x71\x78\x50\xC2\x6C\x9C\xD0\xD8\x9D",
               std::string(THash_SHA().GetHash("abc", 3), 20).c_str());  // FIPS 180-1, appendix A
  EXPECT_EQ(0x340BC6D9u, TCRC32().GetBlockCRC("123456789", -1));         // the check value of CRC-32, complemented
}

TEST(Digests, AgreeWithNettleAndZlibHoweverTheBytesArrive) {
  for (int round = 0; round < 400; round++) {
    const std::string data = RandomBytes(RandomBelow(400));
    THash_SHA sha;
    MD5Context md5;
    TCRC32 crc;
    std::string digest(16, '\0');
    MD5Open(&md5);
    for (int done = 0, size = int(data.size()), n; done < size; done += n) {
      n = std::min(size - done, 1 + RandomBelow(100));
      sha.Update(&data[size_t(done)], n);
      MD5Digest(&md5, &data[size_t(done)], unsigned(n));
      crc.UpdateCRC(&data[size_t(done)], n);
    }
    sha.Final();
    MD5Close(&md5, Octets(digest));
    ASSERT_EQ(PeerDigest(nettle_sha1, data), std::string(sha.GetHash(nullptr, 0), 20)) << data.size();
    ASSERT_EQ(PeerDigest(nettle_md5, data), digest) << data.size();
    ASSERT_EQ(crc32(0, Octets(data), unsigned(data.size())), ~crc.GetCRC()) << data.size();
  }
}

TEST(Digests, EveryFormOfTheChecksumAgreesWithZlib) {
  const std::string data = RandomBytes(5000);
  for (const TCrcForm* form = kCrcForms; form->name; form++) {
    for (int round = 0; round < 2000 && form->isThere(); round++) {
      const size_t at = size_t(RandomBelow(70)), n = size_t(RandomBelow(round % 2 ? 4900 : 300));
      const unsigned before = unsigned(RandomBelow(1 << 30)) * 4;
      ASSERT_EQ(~unsigned(crc32(~before, Octets(data) + at, unsigned(n))), form->step(before, Octets(data) + at, n))
          << form->name << ": " << n << " bytes from " << at;
    }
  }
}

// What remains in the place of an object that is gone, or of a digest that is made.
template <class T, class Use>
static bool LeavesZeros(const Use& use) {
  alignas(T) static unsigned char place[sizeof(T)];
  volatile unsigned char* const seen = place;
  use(place);
  size_t left = 0;
  for (size_t i = 0; i < sizeof(T); i++) left += seen[i] != 0;
  return left == 0;
}

TEST(Secrets, AreOverwrittenWhenTheirHoldersGo) {
  Twofish_initialise();
  EXPECT_TRUE(LeavesZeros<TCipherKey>([](void* place) { (new (place) TCipherKey("secret"))->~TCipherKey(); }));
  EXPECT_TRUE(LeavesZeros<MD5Context>([](void* place) {
    unsigned char digest[16];
    const auto context = new (place) MD5Context;
    MD5Open(context);
    MD5Digest(context, "secret", 6);
    MD5Close(context, digest);
  }));
  alignas(TPacketHead) static unsigned char place[sizeof(TPacketHead)];
  const auto head = new (place) TPacketHead;
  head->Feed("0123456789the proof is here", 27);
  head->~TPacketHead();
  const std::string left(reinterpret_cast<char*>(place), sizeof place);
  EXPECT_EQ(std::string::npos, left.find("proof"));
}

TEST(DigestsDeathTest, StopOnAHashThatIsNotInProgress) {
  THash_SHA sha;
  EXPECT_DEATH((sha.Final(), sha.Final()),
               "ciplib:213: void THash_SHA::Final\\(\\): Assertion `fInitialized' failed");
}
