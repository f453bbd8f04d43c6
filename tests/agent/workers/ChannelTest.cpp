#include <agent/workers/Channel.h>
#include <gtest/gtest.h>
#include <sys/socket.h>

#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace {

using namespace Agent;

class ChannelTest : public testing::Test {
 protected:
  ChannelTest() {
    int ends[2];
    EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends), 0);
    one_ = std::make_unique<Channel>(loop_, Descriptor(ends[0]), [](auto) {});
    other_ = std::make_unique<Channel>(loop_, Descriptor(ends[1]), [this](std::optional<Message> message) {
      if (message)
        came_.emplace_back(message->kind, std::move(message->text));
      else
        ++closed_;
      if (came_.size() == goesAfter_) other_.reset();
    });
  }
  void turns(int count) {
    for (int i = 0; i < count; ++i) loop_.turn(0);
  }

  EventLoop loop_;
  std::unique_ptr<Channel> one_, other_;
  std::vector<std::pair<MessageKind, std::string>> came_;
  int closed_ = 0;
  size_t goesAfter_ = SIZE_MAX;
};

TEST_F(ChannelTest, MessagesComeAsTheyWereSentAndInOrder) {
  std::vector<std::pair<MessageKind, std::string>> sent;
  for (const size_t size : {0, 1, 15, 16, 17, 65535, 65536, 5000000, 3}) {
    std::string text(size, '\0');
    for (size_t i = 0; i < size; ++i) text[i] = static_cast<char>(i * 7 + size);
    sent.emplace_back(size % 2 == 0 ? MessageKind::begin : MessageKind::counts, std::move(text));
    one_->send(sent.back().first, sent.back().second);
  }
  turns(1);
  EXPECT_LT(came_.size(), sent.size()) << "a large one takes several turns";
  turns(1000);
  EXPECT_TRUE(came_ == sent);
}

TEST_F(ChannelTest, TheEndIsToldOnceAndBehindWhatCameBefore) {
  one_->send(MessageKind::begun, "last");
  one_.reset();
  turns(10);
  ASSERT_EQ(came_.size(), 1u);
  EXPECT_EQ(came_.front().second, "last");
  EXPECT_EQ(closed_, 1);
}

TEST_F(ChannelTest, WhatHasComeCanBeTakenAtOnce) {
  for (int i = 0; i < 20; ++i) one_->send(MessageKind::counts, std::string(1000, 'x'));
  one_.reset();
  other_->read();
  EXPECT_EQ(came_.size(), 20u);
  EXPECT_EQ(closed_, 1);
}

TEST_F(ChannelTest, ItMayGoWhileItTells) {
  goesAfter_ = 2;
  for (int i = 0; i < 5; ++i) one_->send(MessageKind::counts, "x");
  turns(10);
  EXPECT_EQ(came_.size(), 2u);
}

}  // namespace
