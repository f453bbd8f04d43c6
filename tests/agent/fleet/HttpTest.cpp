#include <agent/fleet/Http.h>
#include <gtest/gtest.h>
#include <linux/sockios.h>
#include <netinet/in.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include "Gateway.h"

#include <chrono>
#include <string>

namespace {

using Agent::Http;

/// One end of a connection that a test answers by hand.
class HandServer {
 public:
  HandServer() : listener_(TestSupport::listenOnLoopback(port_)) {}
  ~HandServer() {
    close(client_);
    close(listener_);
  }
  HandServer(const HandServer&) = delete;
  HandServer& operator=(const HandServer&) = delete;

  std::string url() const { return "http://127.0.0.1:" + std::to_string(port_) + "/v3/watch"; }
  void accept() { client_ = ::accept(listener_, nullptr, nullptr); }
  /// Returns when the other end's kernel has it.
  void say(const std::string& text) const {
    ASSERT_EQ(send(client_, text.data(), text.size(), MSG_NOSIGNAL), static_cast<ssize_t>(text.size()));
    int waiting = 1;
    while (waiting > 0) ASSERT_EQ(ioctl(client_, SIOCOUTQ, &waiting), 0);
  }

 private:
  uint16_t port_ = 0;
  const int listener_;
  int client_ = -1;
};

/// A line that came while nobody waited is there at once: to wait for it until the next one comes would be to
/// be late by as much as nothing happens.
TEST(Http, ALineThatHasComeIsNotWaitedFor) {
  if (!Http::whyNot().empty()) GTEST_SKIP() << Http::whyNot();
  HandServer server;
  Http http({});
  const auto stream = http.stream({.url = server.url(), .body = "{}"});
  std::string line;
  http.wait(0.01);
  server.accept();
  server.say("HTTP/1.1 200 OK\r\nContent-Type: application/json\r\n\r\nfirst\n");
  while (!stream->next(line)) http.wait(5);
  EXPECT_EQ(line, "first");
  EXPECT_FALSE(stream->next(line));
  http.wait(1);  // until the first timer of the library is over; the next one ends a wait after 3 s
  server.say("second\n");
  const auto start = std::chrono::steady_clock::now();
  http.wait(20);
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(2));
  ASSERT_TRUE(stream->next(line));
  EXPECT_EQ(line, "second");
  EXPECT_TRUE(stream->isOpen());
}

}  // namespace
