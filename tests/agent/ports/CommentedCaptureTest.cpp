#include <agent/core/Version.h>
#include <agent/ports/CommentedCapture.h>
#include <gmock/gmock.h>

#include "../support/CaptureBytes.h"
#include "../support/PcapngBytes.h"
#include "../support/Run.h"

#include <filesystem>

namespace {

using namespace TestSupport;
using testing::ElementsAre;
using testing::HasSubstr;

class CommentedCapture : public testing::Test {
 protected:
  struct Row {
    const char* why;
    const char* port;
    Agent::Stamp stamp;
    size_t octets;
    uint32_t wire;
    std::string comment;
  };
  static Bytes octets(size_t count) {
    Bytes all = frame().eth().ip4("192.0.2.1", "192.0.2.2").udp(1, 2).payload(count);
    all.resize(count);
    return all;
  }
  void write(Agent::CommentedCapture& to, const Row& row) const {
    to.write({row.port, row.stamp, octets(row.octets), row.wire, row.comment});
  }

  const TempDir dir_;
  const std::string path_ = dir_ / "out.pcapng";
};

TEST_F(CommentedCapture, HasEveryFrameAsItWasWithInterfaceTimeAndComment) {
  const Row rows[] = {
      {"a frame", "eth1", {1700000000, 123456789}, 60, 60, "dropped"},
      {"of the same port, padded by one", "eth1", {1700000000, 123456790}, 63, 63, "passes"},
      {"of another port, by two", "eth20", {1700000001, 0}, 62, 62, "a comment, with a comma"},
      {"by three, and cut short", "eth1", {1700000001, 999999999}, 61, 1514, "x"},
      {"without octets, going back in time", "eth3", {0, 0}, 0, 0, "nothing \xc3\xa4 there"},
      {"of the last second that there is", "eth1", {18446744072, 999999999}, 14, 14, "late"},
      {"without a comment", "eth1", {1700000002, 0}, 14, 14, ""},
  };
  Agent::CommentedCapture capture(path_);
  for (const Row& row : rows) write(capture, row);
  capture.flush();
  EXPECT_EQ(capture.wrong(), "");

  const CommentedFile file = readPcapng(path_);
  EXPECT_EQ(file.application, "velo " + std::string(Agent::version()));
  EXPECT_THAT(file.interfaces, ElementsAre("eth1", "eth20", "eth3"));
  ASSERT_EQ(file.frames.size(), std::size(rows));
  for (size_t i = 0; i < std::size(rows); ++i) {
    const Row& row = rows[i];
    const uint64_t time =
        static_cast<uint64_t>(row.stamp.seconds) * 1000000000u + static_cast<uint64_t>(row.stamp.nanoseconds);
    EXPECT_EQ(file.frames[i], (CommentedBlock{row.port, time, octets(row.octets), row.wire, row.comment, 1}))
        << row.why;
  }
}

TEST_F(CommentedCapture, IsACaptureToWhoeverReadsCaptures) {
  Agent::CommentedCapture capture(path_);
  write(capture, {"", "eth1", {1700000000, 123456789}, 61, 1514, "one"});
  write(capture, {"", "eth2", {1700000001, 1}, 60, 60, "two"});
  capture.flush();
  Agent::CaptureReader reader(path_);
  ASSERT_EQ(reader.wrong(), "");
  ASSERT_TRUE(reader.next());
  EXPECT_EQ(reader.stamp(), (Agent::Stamp{1700000000, 123456789}));
  EXPECT_EQ(Bytes(reader.frame().begin(), reader.frame().end()), octets(61));
  EXPECT_EQ(reader.wireLength(), 1514u);
  ASSERT_TRUE(reader.next());
  EXPECT_EQ(reader.stamp(), (Agent::Stamp{1700000001, 1}));
  EXPECT_FALSE(reader.next());
  EXPECT_EQ(reader.wrong(), "");
}

TEST_F(CommentedCapture, ACommentThatIsTooLongIsCutBetweenCharacters) {
  std::string comment(Agent::CommentedCapture::mostComment - 1, 'x');
  Agent::CommentedCapture capture(path_);
  write(capture, {"", "eth1", {1, 0}, 60, 60, comment + "y"});
  write(capture, {"", "eth1", {1, 0}, 60, 60, comment + "yz"});
  write(capture, {"", "eth1", {1, 0}, 60, 60, comment + "\xc3\xa4"});
  capture.flush();
  const CommentedFile file = readPcapng(path_);
  EXPECT_EQ(file.frames.at(0).comment, comment + "y");
  EXPECT_EQ(file.frames.at(1).comment, comment + "y");
  EXPECT_EQ(file.frames.at(2).comment, comment);
}

TEST_F(CommentedCapture, EndsBeforeATimeThatItCannotHold) {
  Agent::CommentedCapture capture(path_);
  write(capture, {"", "eth1", {1700000000, 0}, 60, 60, "one"});
  write(capture, {"", "eth1", {18446744073, 0}, 60, 60, "two"});
  write(capture, {"", "eth1", {1700000000, 0}, 60, 60, "three"});
  capture.flush();
  EXPECT_EQ(capture.wrong(),
            path_ + ": ends before a frame of a time that a pcapng file cannot hold: after 2554-07-21");
  EXPECT_EQ(readPcapng(path_).frames.size(), 1u);
  Agent::CommentedCapture early(path_);
  write(early, {"", "eth1", {-1, 0}, 60, 60, "one"});
  EXPECT_EQ(early.wrong(),
            path_ + ": ends before a frame of a time that a pcapng file cannot hold: before 1970-01-01");
}

TEST_F(CommentedCapture, SaysWhatIsWrongWithTheFile) {
  EXPECT_THAT(Agent::CommentedCapture(dir_ / "none/x").wrong(), HasSubstr("none/x: No such file"));
  if (!std::filesystem::exists("/dev/full")) GTEST_SKIP() << "there is no /dev/full";
  Agent::CommentedCapture full("/dev/full");
  write(full, {"", "eth1", {1, 0}, 60, 60, "one"});
  full.flush();
  EXPECT_EQ(full.wrong(), "/dev/full: could not be written to its end");
}

}  // namespace
