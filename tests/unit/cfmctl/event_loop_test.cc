#include "event_loop.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <string>

#include "file_watch.h"

namespace cfmctl {
namespace {

using Clock = EventLoop::Clock;

constexpr std::chrono::seconds kGenerous(60);

class Pipe {
 public:
  Pipe() { EXPECT_EQ(pipe(ends_.data()), 0); }
  ~Pipe() {
    close(ends_[0]);
    close(ends_[1]);
  }
  int reader() const { return ends_[0]; }
  void Write() const { EXPECT_EQ(write(ends_[1], "x", 1), 1); }
  void Read() const {
    char octet = 0;
    EXPECT_EQ(read(ends_[0], &octet, 1), 1);
  }

 private:
  std::array<int, 2> ends_{};
};

TEST(AnEventLoop, CallsWhatIsReadyUntilItIsDone) {
  EventLoop loop;
  const Pipe pipe;
  int calls = 0;
  loop.Add(pipe.reader(), [&] {
    pipe.Read();
    ++calls;
  });
  pipe.Write();
  pipe.Write();
  EXPECT_TRUE(loop.RunUntil([&calls] { return calls == 2; }, Clock::now() + kGenerous));
}

TEST(AnEventLoop, EndsAtItsDeadline) {
  EventLoop loop;
  const auto deadline = Clock::now() + std::chrono::milliseconds(10);
  EXPECT_FALSE(loop.RunUntil([] { return false; }, deadline));
  EXPECT_GE(Clock::now(), deadline);
}

TEST(AnEventLoop, EndsAtItsDeadlineUnderConstantWork) {
  EventLoop loop;
  const Pipe pipe;
  loop.Add(pipe.reader(), [] {});
  pipe.Write();
  EXPECT_FALSE(loop.RunUntil([] { return false; }, Clock::now() + std::chrono::milliseconds(10)));
}

TEST(AnEventLoop, DoesNotWaitWhenItIsDoneAlready) {
  EventLoop loop;
  EXPECT_TRUE(loop.RunUntil([] { return true; }, std::nullopt));
}

TEST(ASignal, ArrivesInTheLoop) {
  EventLoop loop;
  int received = 0;
  const SignalSource source(loop, {SIGUSR1}, [&received](int signal) { received = signal; });
  ASSERT_EQ(kill(getpid(), SIGUSR1), 0);
  EXPECT_TRUE(loop.RunUntil([&received] { return received == SIGUSR1; }, Clock::now() + kGenerous));
}

class AFileWatch : public testing::Test {
 protected:
  AFileWatch() {
    std::string pattern = (std::filesystem::temp_directory_path() / "cfmwXXXXXX").string();
    directory_ = mkdtemp(pattern.data());
    file_ = directory_ / "cfm.yaml";
    Write(file_);
  }
  ~AFileWatch() override { std::filesystem::remove_all(directory_); }

  static void Write(const std::filesystem::path& file) { std::ofstream(file) << "domains: {}\n"; }

  bool Changed() {
    return loop_.RunUntil([this] { return std::exchange(changed_, false); }, Clock::now() + kGenerous);
  }

  EventLoop loop_;
  std::filesystem::path directory_;
  std::filesystem::path file_;
  bool changed_ = false;
};

TEST_F(AFileWatch, SeesAFileWrittenInPlace) {
  const FileWatch watch(loop_, file_, [this] { changed_ = true; });
  Write(file_);
  EXPECT_TRUE(Changed());
}

TEST_F(AFileWatch, SeesAFileRenamedOverTheOldAgainAndAgain) {
  const FileWatch watch(loop_, file_, [this] { changed_ = true; });
  for (int i = 0; i < 3; ++i) {
    Write(directory_ / "new");
    ASSERT_TRUE(Changed());
    std::filesystem::rename(directory_ / "new", file_);
    EXPECT_TRUE(Changed());
  }
}

TEST_F(AFileWatch, FailsForADirectoryThatIsNotThere) {
  EXPECT_THROW(FileWatch(loop_, (directory_ / "no" / "cfm.yaml").string(), [] {}), std::runtime_error);
}

}  // namespace
}  // namespace cfmctl
