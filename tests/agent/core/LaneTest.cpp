#include <agent/core/Lane.h>
#include <gtest/gtest.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <map>

namespace {

class LaneTest : public testing::Test {
 protected:
  /// A descriptor that always has something to say.
  int busyFd() {
    const int fd = eventfd(1, EFD_NONBLOCK | EFD_CLOEXEC);
    fds_.push_back(fd);
    return fd;
  }
  void TearDown() override {
    for (const int fd : fds_) close(fd);
  }

  std::vector<int> fds_;
  Kiv::ManualClock clock_;
  Agent::EventLoop loop_{clock_, clock_};
  std::map<int, int> handled_;
};

TEST_F(LaneTest, HandlesOneEventATurnInRotation) {
  Agent::Lane lane(loop_, "lane", 1, Kelp::Duration(10), [this](int fd, uint32_t) { ++handled_[fd]; });
  for (int i = 0; i < 10; ++i) lane.fdIs(busyFd(), EPOLLIN);
  loop_.turn(0);
  EXPECT_EQ(handled_.size(), 1u);
  for (int i = 1; i < 100; ++i) loop_.turn(0);
  EXPECT_EQ(handled_.size(), 10u) << "nobody waits for ever";
  for (const auto& [fd, count] : handled_) EXPECT_EQ(count, 10) << fd;
}

TEST_F(LaneTest, RestsWhenItsTimeIsUsedUpUntilThatIsPaidFor) {
  Kiv::ManualClock watch;
  const auto twoMilliseconds = [&](int fd, uint32_t) {
    ++handled_[fd];
    watch.advance(Kelp::Duration(0.002));
  };
  Agent::Lane lane(loop_, "lane", 0.01, Kelp::Duration(0.001), twoMilliseconds, watch);
  const int fd = busyFd();
  lane.fdIs(fd, EPOLLIN);
  for (int i = 0; i < 20; ++i) loop_.turn(0);
  EXPECT_EQ(handled_[fd], 1) << "its budget is gone with the first";
  clock_.advance(Kelp::Duration(0.099));
  loop_.turn(0);
  loop_.turn(0);
  EXPECT_EQ(handled_[fd], 1) << "a millisecond more than it had costs a hundred";
  clock_.advance(Kelp::Duration(0.002));
  loop_.turn(0);
  loop_.turn(0);
  EXPECT_EQ(handled_[fd], 2);
  EXPECT_DOUBLE_EQ(lane.used(), 0.004);
}

TEST_F(LaneTest, ForgetsADescriptor) {
  Agent::Lane lane(loop_, "lane", 1, Kelp::Duration(10), [this](int fd, uint32_t) { ++handled_[fd]; });
  const int fd = busyFd();
  lane.fdIs(fd, EPOLLIN);
  loop_.turn(0);
  lane.fdDel(fd);
  loop_.turn(0);
  EXPECT_EQ(handled_[fd], 1);
}

}  // namespace
