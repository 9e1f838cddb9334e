#include "protocol/ciplib.h"

#include <gtest/gtest.h>
#include <zlib.h>

#include "protocol/md5.h"
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

TEST(DigestsDeathTest, StopOnAHashThatIsNotInProgress) {
  THash_SHA sha;
  EXPECT_DEATH((sha.Final(), sha.Final()),
               "ciplib:213: void THash_SHA::Final\\(\\): Assertion `fInitialized' failed");
}
