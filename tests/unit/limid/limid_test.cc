#include "limid/limid.h"

#include <gtest/gtest.h>
#include <net/if.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include "own_namespace.h"

namespace {

// The outputs begin with rubbish, so that "zero or empty on failure" is seen.
struct Number {
  int result;
  uint32_t value = 0xdeadbeef;
};
bool operator==(const Number& a, const Number& b) {
  return a.result == b.result && a.value == b.value;
}
std::ostream& operator<<(std::ostream& out, const Number& n) {
  return out << n.result << " and " << n.value;
}

Number ToIfindex(uint32_t limid) {
  Number n{};
  n.value = 0xdeadbeef;
  n.result = limid_to_ifindex(limid, &n.value);
  return n;
}

Number FromIfindex(uint32_t ifindex) {
  Number n{};
  n.value = 0xdeadbeef;
  n.result = limid_from_ifindex(ifindex, &n.value);
  return n;
}

struct Name {
  int result;
  std::string value;
};
bool operator==(const Name& a, const Name& b) {
  return a.result == b.result && a.value == b.value;
}
std::ostream& operator<<(std::ostream& out, const Name& n) {
  return out << n.result << " and '" << n.value << "'";
}

Name ToName(uint32_t limid, size_t length = IF_NAMESIZE) {
  std::array<char, IF_NAMESIZE + 1> buffer;
  buffer.fill('?');
  const int result = limid_to_intfname(limid, buffer.data(), length);
  EXPECT_EQ(buffer[length], '?') << "written beyond the buffer";
  return {result, std::string(buffer.data(), strnlen(buffer.data(), buffer.size()))};
}

const Number kNoDevice{-ENODEV, 0};
const Name kNoDeviceName{-ENODEV, ""};

void Ip(const std::string& arguments) {
  ASSERT_EQ(system(("ip " + arguments).c_str()), 0) << "ip " << arguments;  // NOLINT(cert-env33-c)
}

// A network namespace with lo, which has index 1, and the pair left - right; and a place for a map file.
class Limid : public testing::Test {
 protected:
  void SetUp() override {
    unsetenv("LIMID_MAP");
    if (!cfm_test::InOwnNamespace()) GTEST_SKIP() << "skipped: no user and network namespace can be made here";
    if (system("ip link add left type veth peer name right") != 0) {  // NOLINT(cert-env33-c)
      GTEST_SKIP() << "skipped: this kernel makes no veth pair";
    }
    left_ = if_nametoindex("left");
    right_ = if_nametoindex("right");
    ASSERT_NE(left_, 0U);
    ASSERT_NE(right_, 0U);
    std::string pattern = (std::filesystem::temp_directory_path() / "limid-XXXXXX").string();
    ASSERT_NE(mkdtemp(pattern.data()), nullptr);
    directory_ = pattern;
  }

  void TearDown() override {
    unsetenv("LIMID_MAP");
    if (!directory_.empty()) std::filesystem::remove_all(directory_);
    if (left_ == 0) return;
    // The other end goes with it, whatever their names are now.
    std::array<char, IF_NAMESIZE> name{};
    for (const uint32_t index : {left_, right_}) {
      if (if_indextoname(index, name.data()) != nullptr) Ip(std::string("link del ") + name.data());
    }
    if (if_nametoindex("left") != 0) Ip("link del left");
  }

  // Puts a map file in place as a careful writer does: whole, or not at all.
  void Map(const std::string& text) const {
    const auto path = directory_ / "map";
    const auto draft = directory_ / "map.new";
    std::ofstream(draft) << text;
    std::filesystem::rename(draft, path);
    setenv("LIMID_MAP", path.c_str(), 1);
  }

  uint32_t left_ = 0;
  uint32_t right_ = 0;
  std::filesystem::path directory_;
};

TEST_F(Limid, IsTheKernelsInterfaceIndexByDefault) {
  for (const auto& [index, name] : {std::pair<uint32_t, std::string>{1, "lo"}, {left_, "left"}, {right_, "right"}}) {
    EXPECT_EQ(ToIfindex(index), (Number{0, index}));
    EXPECT_EQ(FromIfindex(index), (Number{0, index}));
    EXPECT_EQ(ToName(index), (Name{0, name}));
  }
}

TEST_F(Limid, OfNoInterfaceIsNoDevice) {
  for (const uint32_t id : {0U, 4000U, 0x7fffffffU, 0x80000000U, 0xffffffffU}) {
    EXPECT_EQ(ToIfindex(id), kNoDevice) << id;
    EXPECT_EQ(FromIfindex(id), kNoDevice) << id;
    EXPECT_EQ(ToName(id), kNoDeviceName) << id;
  }
}

TEST_F(Limid, RefusesNullOutputsAndABufferOfLengthZero) {
  std::array<char, 3> untouched = {'a', 'b', 'c'};
  EXPECT_EQ(limid_to_ifindex(1, nullptr), -EINVAL);
  EXPECT_EQ(limid_from_ifindex(1, nullptr), -EINVAL);
  EXPECT_EQ(limid_to_intfname(1, nullptr, 16), -EINVAL);
  EXPECT_EQ(limid_to_intfname(1, untouched.data(), 0), -EINVAL);
  EXPECT_EQ(untouched[0], 'a');
}

TEST_F(Limid, NamesFitExactlyOrNotAtAll) {
  EXPECT_EQ(ToName(left_, 5), (Name{0, "left"}));
  EXPECT_EQ(ToName(left_, 4), (Name{-ERANGE, ""}));
  EXPECT_EQ(ToName(left_, 1), (Name{-ERANGE, ""}));
  Ip("link set left name fifteen-chars-a");
  EXPECT_EQ(ToName(left_), (Name{0, "fifteen-chars-a"}));
}

TEST_F(Limid, FollowsAnInterfaceThatGoesAndAnotherThatComes) {
  Ip("link del left");
  EXPECT_EQ(ToIfindex(left_), kNoDevice);
  Ip("link add left type veth peer name right");
  const uint32_t index = if_nametoindex("left");
  EXPECT_EQ(ToName(index), (Name{0, "left"}));
}

TEST_F(Limid, OfAMappedPortIsTheFilesNumber) {
  Map("70000 left\n");
  EXPECT_EQ(ToIfindex(70000), (Number{0, left_}));
  EXPECT_EQ(FromIfindex(left_), (Number{0, 70000}));
  EXPECT_EQ(ToName(70000), (Name{0, "left"}));
}

TEST_F(Limid, OfAMappedPortIsNotItsIndexToo) {
  Map("70000 left\n");
  EXPECT_EQ(ToIfindex(left_), kNoDevice);
  EXPECT_EQ(ToName(left_), kNoDeviceName);
}

TEST_F(Limid, OfAnUnmappedPortStaysItsIndex) {
  Map("70000 left\n");
  EXPECT_EQ(ToIfindex(right_), (Number{0, right_}));
  EXPECT_EQ(FromIfindex(right_), (Number{0, right_}));
  EXPECT_EQ(ToName(right_), (Name{0, "right"}));
}

TEST_F(Limid, GivenToOnePortNeverMeansAnother) {
  Map(std::to_string(right_) + " left\n");
  EXPECT_EQ(ToIfindex(right_), (Number{0, left_}));
  EXPECT_EQ(FromIfindex(left_), (Number{0, right_}));
  EXPECT_EQ(FromIfindex(right_), kNoDevice) << "its own index belongs to the other port now";
}

TEST_F(Limid, CanExchangeTheNumbersOfTwoPorts) {
  Map(std::to_string(right_) + " left\n" + std::to_string(left_) + " right\n");
  EXPECT_EQ(ToName(right_), (Name{0, "left"}));
  EXPECT_EQ(ToName(left_), (Name{0, "right"}));
  EXPECT_EQ(FromIfindex(left_), (Number{0, right_}));
  EXPECT_EQ(FromIfindex(right_), (Number{0, left_}));
}

TEST_F(Limid, OfAMappedPortThatIsNotThereIsNoDeviceUntilItComes) {
  Map("9 spare\n");
  EXPECT_EQ(ToIfindex(9), kNoDevice);
  EXPECT_EQ(ToName(9), kNoDeviceName);
  Ip("link set right name spare");
  EXPECT_EQ(ToIfindex(9), (Number{0, right_}));
  EXPECT_EQ(ToName(9), (Name{0, "spare"}));
}

TEST_F(Limid, IsNotGivenByAnAlternativeName) {
  Ip("link property add dev left altname also-left");
  Map("9 also-left\n");
  EXPECT_EQ(ToIfindex(9), kNoDevice);
  EXPECT_EQ(FromIfindex(left_), (Number{0, left_}));
}

TEST_F(Limid, FollowsTheMapFile) {
  Map("100 left\n");
  EXPECT_EQ(FromIfindex(left_), (Number{0, 100}));
  Map("101 left\n");
  EXPECT_EQ(FromIfindex(left_), (Number{0, 101}));
  EXPECT_EQ(ToIfindex(100), kNoDevice);
  unsetenv("LIMID_MAP");
  EXPECT_EQ(FromIfindex(left_), (Number{0, left_}));
}

TEST_F(Limid, GuessesNothingFromAMalformedFile) {
  Map("100 left\nnonsense\n");
  EXPECT_EQ(ToIfindex(100), (Number{-EBADMSG, 0}));
  EXPECT_EQ(ToIfindex(1), (Number{-EBADMSG, 0}));
  EXPECT_EQ(FromIfindex(1), (Number{-EBADMSG, 0}));
  EXPECT_EQ(ToName(1), (Name{-EBADMSG, ""}));
}

TEST_F(Limid, ReportsAMapFileThatIsMissing) {
  setenv("LIMID_MAP", (directory_ / "absent").c_str(), 1);
  EXPECT_EQ(ToIfindex(1), (Number{-ENOENT, 0}));
  setenv("LIMID_MAP", "", 1);
  EXPECT_EQ(ToIfindex(1), (Number{0, 1})) << "an empty variable names no file";
}

TEST_F(Limid, Converts100000TimesInARowEachWay) {
  Map("70000 left\n");
  for (int i = 0; i < 100'000; ++i) {
    ASSERT_EQ(ToIfindex(70000), (Number{0, left_}));
    ASSERT_EQ(FromIfindex(left_), (Number{0, 70000}));
    ASSERT_EQ(ToName(right_), (Name{0, "right"}));
  }
}

TEST_F(Limid, IsOneOfTheTwoWhileOtherThreadsConvertAndTheFileIsReplaced) {
  Map("100 left\n");
  std::atomic<bool> stop = false;
  std::atomic<int> wrong = 0;
  std::atomic<int> converted = 0;
  std::vector<std::thread> threads;
  threads.reserve(4);
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([&] {
      while (!stop) {
        const Number id = FromIfindex(left_);
        wrong += id.result != 0 || (id.value != 100 && id.value != 101);
        const Number index = ToIfindex(100);
        wrong += !(index == Number{0, left_}) && !(index == kNoDevice);
        ++converted;
      }
    });
  }
  const auto path = directory_ / "map";
  for (int i = 0; i < 200 || converted < 1000; ++i) {
    std::ofstream(directory_ / "map.new") << (i % 2 == 0 ? "101 left\n" : "100 left\n");
    std::filesystem::rename(directory_ / "map.new", path);
  }
  stop = true;
  for (auto& thread : threads) thread.join();
  EXPECT_EQ(wrong, 0);
}

}  // namespace

int main(int argc, char** argv) {
  if (!cfm_test::InOwnNamespace()) {
    cfm_test::RunInOwnNamespace(argc, argv);
  }
  testing::InitGoogleTest(&argc, argv);
  return RUN_ALL_TESTS();
}
