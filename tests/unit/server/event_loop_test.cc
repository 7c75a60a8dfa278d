#include "event_loop.h"

#include <gmock/gmock.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <cstdint>
#include <system_error>

namespace cfm {
namespace {

class AnEventLoop : public testing::Test {
 protected:
  ~AnEventLoop() override {
    close(first_);
    close(second_);
  }

  static void Raise(int fd) {
    const uint64_t one = 1;
    ASSERT_EQ(write(fd, &one, sizeof one), static_cast<ssize_t>(sizeof one));
  }
  static void Lower(int fd) {
    uint64_t count = 0;
    ASSERT_EQ(read(fd, &count, sizeof count), static_cast<ssize_t>(sizeof count));
  }

  int first_ = eventfd(0, EFD_NONBLOCK);
  int second_ = eventfd(0, EFD_NONBLOCK);
  EventLoop loop_;
  int calls_ = 0;
};

TEST_F(AnEventLoop, CallsAgainWhileADescriptorCanBeRead) {
  loop_.Add(first_, [&] {
    if (++calls_ == 3) loop_.Stop();
  });
  Raise(first_);
  loop_.Run();
  EXPECT_EQ(calls_, 3);
}

TEST_F(AnEventLoop, CallsOnlyForWhatCanBeRead) {
  int others = 0;
  loop_.Add(first_, [&] {
    Lower(first_);
    if (++calls_ == 2)
      loop_.Stop();
    else
      Raise(first_);
  });
  loop_.Add(second_, [&] { ++others; });
  Raise(first_);
  loop_.Run();
  EXPECT_EQ(calls_, 2);
  EXPECT_EQ(others, 0);
}

TEST_F(AnEventLoop, LeavesWhatElseIsReadyWhenItIsStopped) {
  for (const int fd : {first_, second_}) {
    loop_.Add(fd, [&] {
      ++calls_;
      loop_.Stop();
    });
    Raise(fd);
  }
  loop_.Run();
  EXPECT_EQ(calls_, 1);
}

TEST_F(AnEventLoop, RunsAgainAfterItWasStopped) {
  loop_.Add(first_, [&] {
    ++calls_;
    loop_.Stop();
  });
  Raise(first_);
  loop_.Run();
  loop_.Run();
  EXPECT_EQ(calls_, 2);
}

TEST_F(AnEventLoop, TakesDescriptorsThatAreAddedFromACallback) {
  loop_.Add(first_, [&] {
    Lower(first_);
    loop_.Add(second_, [&] { loop_.Stop(); });
    Raise(second_);
    ++calls_;
  });
  Raise(first_);
  loop_.Run();
  EXPECT_EQ(calls_, 1);
}

TEST_F(AnEventLoop, RefusesWhatIsNoDescriptor) {
  EXPECT_THROW(loop_.Add(-1, [] {}), std::system_error);
}

}  // namespace
}  // namespace cfm
