#include "map_file.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <random>
#include <string>

namespace limid {
namespace {

using namespace std::string_literals;

TEST(AMapFile, GivesEachNameItsId) {
  PortMap map;
  ASSERT_EQ(ParsePortMap("1 eth0\n4294967295 uplink-15-chars\n", &map), 0);
  EXPECT_EQ(map.names.size(), 2U);
  EXPECT_EQ(map.names.at(1), "eth0");
  EXPECT_EQ(map.names.at(4294967295), "uplink-15-chars");
  EXPECT_EQ(map.ids.at("eth0"), 1U);
  EXPECT_EQ(map.ids.at("uplink-15-chars"), 4294967295U);
}

TEST(AMapFile, MayHoldCommentsBlanksAndALastLineWithoutItsEnd) {
  PortMap map;
  ASSERT_EQ(ParsePortMap("# ports\n\n  \t7\t  a.100  # tagged\r\n#8 b\n9 c", &map), 0);
  EXPECT_EQ(map.ids.size(), 2U);
  EXPECT_EQ(map.ids.at("a.100"), 7U);
  EXPECT_EQ(map.ids.at("c"), 9U);
}

TEST(AMapFile, MayBeEmpty) {
  PortMap map;
  EXPECT_EQ(ParsePortMap("", &map), 0);
  EXPECT_TRUE(map.names.empty());
  EXPECT_TRUE(map.ids.empty());
}

class AMalformedMapFile : public testing::TestWithParam<std::string> {};

TEST_P(AMalformedMapFile, IsRefusedWhole) {
  PortMap map;
  EXPECT_EQ(ParsePortMap("1 good\n" + GetParam() + "\n", &map), -EBADMSG);
}

INSTANTIATE_TEST_SUITE_P(Lines, AMalformedMapFile,
                         testing::Values("5",                    // no name
                                         "eth1",                 // no id
                                         "eth1 5",               // reversed
                                         "0 eth1",               // not an id
                                         "-1 eth1",              //
                                         "+1 eth1",              //
                                         "4294967296 eth1",      // more than 32 bits
                                         "0x10 eth1",            //
                                         "5x eth1",              //
                                         "5 eth1 more",          //
                                         "1 eth1",               // id given twice
                                         "5 good",               // name given twice
                                         "5 sixteen-chars-ab",   // longer than a kernel's interface name
                                         "5 a/b", "5 a:b",       // not in a kernel's interface name
                                         "5 .", "5 ..",          //
                                         "5 a\vb", "5 a\0b"s));  //

TEST(AMapFile, OfRandomOctetsIsReadOrRefused) {
  const unsigned int seed = std::random_device()();
  SCOPED_TRACE(seed);
  std::mt19937 random(seed);
  const std::string alphabet = "0123459 \t\r\n#/:.ab\0\xff"s;
  int refused = 0;
  for (int i = 0; i < 20000; ++i) {
    std::string text(random() % 24, '\0');
    for (char& c : text) c = alphabet[random() % alphabet.size()];
    PortMap map;
    const int result = ParsePortMap(text, &map);
    ASSERT_TRUE(result == 0 || result == -EBADMSG);
    refused += result != 0;
    if (result != 0) continue;
    ASSERT_EQ(map.names.size(), map.ids.size());
    for (const auto& [id, name] : map.names) {
      ASSERT_EQ(map.ids.at(name), id);
      ASSERT_NE(id, 0U);
    }
  }
  EXPECT_GT(refused, 0);
  EXPECT_LT(refused, 20000);
}

class AMapFileOnDisk : public testing::Test {
 protected:
  AMapFileOnDisk() {
    std::string pattern = (std::filesystem::temp_directory_path() / "limid-XXXXXX").string();
    directory_ = mkdtemp(pattern.data());
    path_ = directory_ / "map";
  }
  ~AMapFileOnDisk() override { std::filesystem::remove_all(directory_); }

  void Write(const std::string& text) const { std::ofstream(path_) << text; }

  // Gives the file's contents a past in which it was last changed.
  void Settle() const { usleep(150'000); }

  int Get() { return cache_.Get(path_.c_str(), &map_); }

  std::filesystem::path directory_;
  std::filesystem::path path_;
  PortMapCache cache_;
  std::shared_ptr<const PortMap> map_;
};

TEST_F(AMapFileOnDisk, IsNotReadAgainWhileItStays) {
  Write("5 a\n");
  Settle();
  ASSERT_EQ(Get(), 0);
  const auto first = map_;
  ASSERT_EQ(Get(), 0);
  EXPECT_EQ(first, map_);
}

TEST_F(AMapFileOnDisk, IsReadAgainWhenItsLengthChanges) {
  Write("5 a\n");
  Settle();
  ASSERT_EQ(Get(), 0);
  Write("5 longer\n");
  ASSERT_EQ(Get(), 0);
  EXPECT_EQ(map_->names.at(5), "longer");
}

TEST_F(AMapFileOnDisk, IsReadAgainWhenWrittenTwiceWithinATickOfTheClock) {
  for (int i = 0; i < 500; ++i) {
    const std::string name = i % 2 == 0 ? "a" : "b";
    Write("5 " + name + "\n");
    ASSERT_EQ(Get(), 0);
    ASSERT_EQ(map_->names.at(5), name);
  }
}

TEST_F(AMapFileOnDisk, IsReadAgainWhenAnotherOfTheSameSizeAndTimeIsRenamedOverIt) {
  Write("5 a\n");
  std::filesystem::rename(path_, directory_ / "old");
  Write("5 b\n");
  std::filesystem::rename(path_, directory_ / "new");
  const auto time = std::filesystem::last_write_time(directory_ / "old");
  std::filesystem::last_write_time(directory_ / "new", time);
  std::filesystem::rename(directory_ / "old", path_);
  Settle();
  ASSERT_EQ(Get(), 0);
  EXPECT_EQ(map_->names.at(5), "a");
  std::filesystem::rename(directory_ / "new", path_);
  ASSERT_EQ(Get(), 0);
  EXPECT_EQ(map_->names.at(5), "b");
}

TEST_F(AMapFileOnDisk, ThatIsMalformedIsRefusedUntilItIsMended) {
  Write("5 a\n5 b\n");
  Settle();
  EXPECT_EQ(Get(), -EBADMSG);
  EXPECT_EQ(Get(), -EBADMSG);
  Write("5 a\n6 b\n");
  EXPECT_EQ(Get(), 0);
}

TEST_F(AMapFileOnDisk, ThatIsMissingIsReportedUntilItIsThere) {
  EXPECT_EQ(Get(), -ENOENT);
  Write("5 a\n");
  EXPECT_EQ(Get(), 0);
  std::filesystem::remove(path_);
  EXPECT_EQ(Get(), -ENOENT);
}

TEST_F(AMapFileOnDisk, OfAnotherNameIsAnotherMap) {
  Write("5 a\n");
  Settle();
  ASSERT_EQ(Get(), 0);
  path_ = directory_ / "other";
  Write("5 b\n");
  ASSERT_EQ(Get(), 0);
  EXPECT_EQ(map_->names.at(5), "b");
}

TEST_F(AMapFileOnDisk, ThatIsNoRegularFileIsMalformed) {
  ASSERT_EQ(mkfifo(path_.c_str(), 0600), 0);
  EXPECT_EQ(Get(), -EBADMSG);
}

TEST_F(AMapFileOnDisk, LargerThanItsLimitIsRefused) {
  Write("5 a\n");
  std::filesystem::resize_file(path_, (16 << 20) + 1);
  EXPECT_EQ(Get(), -EFBIG);
}

}  // namespace
}  // namespace limid
