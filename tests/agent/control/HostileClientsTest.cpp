#include <agent/control/ServerSocket.h>
#include <malloc.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include "../support/RunningAgent.h"

#include <cerrno>
#include <ctime>
#include <random>

namespace {

using namespace TestSupport;

/// A client that means no good. It is asked to go on from time to time, and comes back when it is thrown out.
class Hostile {
 public:
  Hostile(RunningAgent& agent, int kind, uint32_t seed) : agent_(agent), kind_(kind), random_(seed) {}
  ~Hostile() {
    if (fd_ >= 0) close(fd_);
  }

  void goOn() {
    if (fd_ < 0) {
      std::string wrong;
      fd_ = Agent::connectTo(agent_.socketPath(), false, &wrong);
      if (fd_ < 0) return;  // the queue is full of others like it
    }
    char ignored[4096];
    const bool reads = kind_ != 3;
    if (reads && recv(fd_, ignored, sizeof ignored, MSG_DONTWAIT) == 0) return comeBack();
    switch (kind_) {
      case 0: {  // garbage
        std::string bytes(random_() % 2000, '\0');
        for (char& byte : bytes) byte = static_cast<char>(random_());
        return send(bytes + "\n");
      }
      case 1:  // half lines
        return send("{\"do\":\"show\",\"wha");
      case 2:  // huge lines
        return send(std::string(64 * 1024, '['));
      case 3:  // asks and never reads
        return send("{\"do\":\"show\",\"what\":\"log-messages\"}\n");
      case 4:  // silence
        return;
      default:  // comes and goes
        return comeBack();
    }
  }

 private:
  void send(const std::string& text) {
    if (::send(fd_, text.data(), text.size(), MSG_DONTWAIT | MSG_NOSIGNAL) < 0 && errno != EAGAIN) comeBack();
  }
  void comeBack() {
    close(fd_);
    fd_ = -1;
  }

  RunningAgent& agent_;
  const int kind_;
  std::minstd_rand random_;
  int fd_ = -1;
};

/// Bytes in use on the heap.
size_t heapInUse() { return mallinfo2().uordblks; }

TEST(HostileClients, AThousandOfThemTakeNeitherMemoryNorTheAgent) {
  RunningAgent agent;
  const Agent::ControlLimits limits = unhurriedLimits();
  agent.start("ip access-list A\n permit ip any any\ninterface eth1\n ip access-group A in\n", nullptr,
              limits);
  rlimit descriptors{};
  getrlimit(RLIMIT_NOFILE, &descriptors);
  const size_t count = std::min<size_t>(1000, descriptors.rlim_cur / 2);

  std::vector<std::unique_ptr<Hostile>> clients;
  for (size_t i = 0; i < count; ++i)
    clients.push_back(std::make_unique<Hostile>(agent, static_cast<int>(i % 6), static_cast<uint32_t>(i)));
  const Bytes packet = frame().eth().ip4("192.0.2.1", "198.51.100.7").udp(1, 2).bytes();
  size_t early = 0, most = 0;
  for (int round = 0; round < 60; ++round) {
    for (const auto& client : clients) {
      client->goOn();
      agent.turns(1);
    }
    agent.advance(0.1);
    ASSERT_TRUE(agent.receive("eth1", packet).passed());
    ASSERT_LE(agent.plane().server().clientCount(), limits.clients);
    ASSERT_LE(agent.plane().server().heldOctets(), limits.clients * (limits.line + limits.answer) * 2);
    (round < 20 ? early : most) = std::max(round < 20 ? early : most, heapInUse());
  }
  EXPECT_LT(most, early + early / 10 + (1 << 20))
      << "memory is flat: " << early << " before, " << most << " after";

  clients.clear();
  agent.turns(2000);
  agent.advance(0.1);
  SocketClient good(agent);
  good.send("{\"do\":\"show\",\"what\":\"access-lists\",\"id\":1}\n");
  EXPECT_NE(good.line().find("\"ok\":true"), std::string::npos) << "an honest client is served as before";
  EXPECT_EQ(agent.plane().operations().heldOctets(), 0u);
}

/// What this thread has used of a processor; other programs that want one do not count.
double processorSeconds() {
  timespec used{};
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &used);
  return static_cast<double>(used.tv_sec) + static_cast<double>(used.tv_nsec) * 1e-9;
}

TEST(HostileClients, GetTheShareOfTimeThatIsThereForThem) {
  RunningAgent agent;
  agent.start("");  // the limits of a real agent
  std::vector<std::unique_ptr<Hostile>> clients;
  for (size_t i = 0; i < 200; ++i)
    clients.push_back(std::make_unique<Hostile>(agent, static_cast<int>(i % 3), static_cast<uint32_t>(i)));
  // The loop's clock stands still, so that nothing is earned: only what was saved up is spent.
  const double start = processorSeconds();
  double turning = 0;
  for (int round = 0; round < 40; ++round) {
    for (const auto& client : clients) {
      client->goOn();
      const double before = processorSeconds();
      agent.turns(1);
      turning += processorSeconds() - before;
    }
  }
  const double took = processorSeconds() - start;
  EXPECT_LT(turning, 0.02 + took * 0.1) << "of " << took << " s";
}

}  // namespace
