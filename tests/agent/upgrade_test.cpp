#include "agent/upgrade.h"

#include <filesystem>
#include <vector>

#include "protocol/twofish.h"
#include "tests/core/own_temp_folder.h"
#include "tests/protocol/vectors.h"

namespace {

class Upgrade : public OwnTempFolder {
 protected:
  Upgrade() { Twofish_initialise(); }
  // Begins a transfer of that size, and feeds it with the pieces; tells how it has ended.
  std::string Feed(UpgradeRec& record, int size, const std::vector<std::string>& pieces) {
    String error;
    if (!record.RequestUpgrade("key")) return "refused";
    record.Announce(size);
    DoUpgrading(record, nullptr, 0, error);
    for (const std::string& piece : pieces) {
      if (!record.Active()) return Std(error) + ", and more came";
      DoUpgrading(record, piece.data(), static_cast<int>(piece.size()), error);
    }
    return record.Active() ? "waits" : record.Ready() ? "ready" : Std(error);
  }
};

TEST_F(Upgrade, IsReadyOnlyWithADigestThatFollowsTheFile) {
  const std::string file(300, 'n'), digest = PeerEncode(PeerDigest(nettle_md5, file), "key");
  const std::string half = PeerEncode(PeerDigest(nettle_md5, file).substr(0, 8) + "notright", "key");
  const std::pair<std::vector<std::string>, const char*> rows[] = {
      {{file + digest}, "ready"},
      {{file, digest}, "ready"},
      {{file.substr(1), "n" + digest}, "ready"},
      {{file.substr(1)}, "waits"},
      {{file}, "waits"},
      {{file + half}, "Wrong CRC"},
      {{file + "x"}, "Wrong CRC"},
      {{file + digest + "x"}, "Wrong CRC"},
      {{file, digest.substr(0, 8)}, "Wrong CRC"},
  };
  for (const auto& [pieces, outcome] : rows) {
    {
      UpgradeRec record, other;
      EXPECT_EQ(outcome, Feed(record, 300, pieces)) << pieces.back();
      EXPECT_EQ(outcome != std::string("Wrong CRC"), !other.RequestUpgrade("key")) << outcome << ": one at a time";
    }
    TReadyUpgrade();  // taken and given up
    EXPECT_TRUE(std::filesystem::is_empty(folder)) << outcome << ": a file stays";
  }
}

TEST_F(Upgrade, HandsOverTheFilesThatItMade) {
  const std::string file(300, 'n');
  UpgradeRec record;
  ASSERT_EQ("ready", Feed(record, 300, {file, PeerEncode(PeerDigest(nettle_md5, file), "key")}));
  TReadyUpgrade ready;
  ASSERT_TRUE(ready.HasProgram());
  const std::string script = ready.Script(), program = ready.Program();
  EXPECT_EQ(In("tavupd__.sh") + " " + In("tav__.upd"), script + " " + program);
  EXPECT_EQ(300u, std::filesystem::file_size(program));
  for (const std::string& name : {script, program}) {
    std::filesystem::remove(name);
    std::ofstream(name) << "another's";
  }
  EXPECT_FALSE(ready.HasProgram()) << "not what was received";
  EXPECT_STREQ("", ready.Script());
}

TEST_F(Upgrade, KnowsItsSizesAndAsksForNoMoreThanTheFileButOneChunk) {
  UpgradeRec record;
  String error;
  ASSERT_EQ("waits", Feed(record, 5000, {std::string(3000, 'x')}));
  EXPECT_EQ(1024, record.NextRead(65536));
  const std::pair<long long, bool> sizes[] = {{100, false}, {101, true}, {10485759, true}, {10485760, false}};
  for (const auto& [size, good] : sizes) EXPECT_EQ(good, record.Announce(size)) << size;
}

}  // namespace
