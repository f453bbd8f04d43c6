// What operating the agent costs its packets: the pause of a commit, the pieces of a large answer, and a
// thousand clients that mean no good. Processor time of the loop's thread throughout, so that other work on
// the computer is nobody's fault.
#include <Acl/Workshop.h>
#include <agent/control/ControlPlane.h>
#include <agent/control/ServerSocket.h>
#include <agent/core/Background.h>
#include <agent/core/Memory.h>
#include <sched.h>
#include <sys/epoll.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <random>
#include <utility>

namespace {

using Json = nlohmann::ordered_json;

double cpuSeconds() {
  timespec now{};
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
  return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
}

double wallSeconds() { return Kiv::steadyClock().now().seconds(); }

size_t residentKilobytes() {
  size_t size = 0, resident = 0;
  std::ifstream("/proc/self/statm") >> size >> resident;
  return resident * static_cast<size_t>(sysconf(_SC_PAGESIZE)) / 1024;
}

/// The longest time between two looks at the clock while nothing else is done: what the computer itself takes
/// from a thread, which counts as that thread's time on a virtual one.
double longestGap(double seconds) {
  double longest = 0;
  const double end = wallSeconds() + seconds;
  for (double before = cpuSeconds(); wallSeconds() < end;) {
    const double now = cpuSeconds();
    longest = std::max(longest, now - before);
    before = now;
  }
  return longest;
}

std::string rules(int count, int variant) {
  std::string text = "ip access-list A\n";
  for (int i = 0; i < count; ++i) {
    text += fmt::format(" {} permit tcp 10.{}.{}.0/24 any eq {}\n", 10 * (i + 1), i / 256 % 256, i % 256,
                        1 + (i + variant) % 60000);
  }
  return text +
         fmt::format(" {} permit ip any any\ninterface eth1\n ip access-group A in\n", 10 * (count + 1));
}

/// An agent that receives one and the same frame as fast as it can while it is told to.
class BusyAgent : public Agent::Poller {
 public:
  BusyAgent() {
    const auto plugin = std::filesystem::read_symlink("/proc/self/exe").parent_path() / "VeloAcl.so";
    if (const auto wrong = core_.loadPlugin(plugin.string())) throw std::runtime_error(*wrong);
    Agent::ControlOptions options;
    options.socket =
        (std::filesystem::temp_directory_path() / fmt::format("velo-bench-{}", getpid())).string();
    socket_ = options.socket;
    plane_ = std::make_unique<Agent::ControlPlane>(core_, forwarder_, loop_, Agent::ConfigFiles(), options);
    if (const auto wrong = plane_->listen()) throw std::runtime_error(*wrong);
    session_ = std::make_unique<Agent::Session>(plane_->operations());
  }
  ~BusyAgent() override { session_.reset(); }

  bool poll() override {
    constexpr int burst = 32;
    for (int i = 0; i < burst; ++i) {
      forwarder_.packet().assign(frame_, 60, 1.0);
      forwarder_.receive(*port_);
    }
    packets_ += burst;
    return true;
  }

  /// Frames received in a second of the thread's processor time.
  double rate(double seconds) {
    loop_.pollerIs(this);
    const double start = wallSeconds(), cpu = cpuSeconds();
    packets_ = 0;
    while (wallSeconds() - start < seconds) loop_.turn(0);
    loop_.pollerDel(this);
    const double rate = static_cast<double>(packets_) / (cpuSeconds() - cpu);
    loop_.turn(0);
    return rate;
  }

  /// Frames in a second of the clock, and the longest time from one turn of the loop to the next.
  struct Served {
    double rate = 0, longestWait = 0;
  };
  Served serve(double seconds) {
    loop_.pollerIs(this);
    const double start = wallSeconds();
    Served served;
    packets_ = 0;
    double before = start, now = start;
    for (; now - start < seconds; before = now) {
      loop_.turn(0);
      now = wallSeconds();
      served.longestWait = std::max(served.longestWait, now - before);
    }
    loop_.pollerDel(this);
    served.rate = static_cast<double>(packets_) / (now - start);
    loop_.turn(0);
    return served;
  }

  /// What an apply took, and the longest turn of the loop from the text's arrival to half a second after the
  /// answer, when everything that follows is done.
  struct Applied {
    Json answer;
    double longestTurn = 0;
    double loopSeconds = 0;
  };
  Applied apply(const std::string& text) {
    ask({{"do", "text"}, {"name", "t"}, {"text", text}});
    longestTurn_ = allTurns_ = 0;
    Applied applied{ask({{"do", "apply"}})};
    const double start = wallSeconds();
    while (wallSeconds() - start < 0.5) turn();
    applied.longestTurn = longestTurn_;
    applied.loopSeconds = allTurns_;
    return applied;
  }

  Json ask(const Json& request) {
    std::string wrong;
    std::optional<std::string> answered;
    plane_->operations().handle(*Agent::Request::read(Agent::lineOf(request), &wrong), *session_, true,
                                [&](Agent::Answer answer) { answered = take(std::move(answer)); });
    while (!answered) turn();
    return Json::parse(*answered);
  }

  double longestPiece = 0, allPieces = 0;
  const std::string& socket() const { return socket_; }
  size_t clients() const { return plane_->server().clientCount(); }

 private:
  void turn() {
    const double start = cpuSeconds();
    loop_.turn(1);
    // An answer is read by a client, and not in one turn.
    const double took = cpuSeconds() - start - std::exchange(taking_, 0);
    longestTurn_ = std::max(longestTurn_, took);
    allTurns_ += took;
  }
  std::string take(Agent::Answer answer) {
    if (!answer.document) return Agent::lineOf(answer.error);
    std::string text;
    const double begin = cpuSeconds();
    longestPiece = allPieces = 0;
    for (bool more = true; more;) {
      const double start = cpuSeconds();
      more = answer.document->next(text);
      const double took = cpuSeconds() - start;
      longestPiece = std::max(longestPiece, took);
      allPieces += took;
    }
    taking_ = cpuSeconds() - begin;
    return text;
  }

  Agent::EventLoop loop_;
  Agent::Core core_;
  Agent::Forwarder forwarder_{core_, Velo::MalformedPolicy::drop};
  std::unique_ptr<Agent::ControlPlane> plane_;
  std::unique_ptr<Agent::Session> session_;
  std::string socket_;
  Agent::Port* port_ = &forwarder_.portIs("eth1");
  std::string wrong_;
  const std::vector<uint8_t> frame_ =
      Agent::readFrameText("udp 192.0.2.1:1 > 198.51.100.7:2", &wrong_)->octets;
  uint64_t packets_ = 0;
  double longestTurn_ = 0, allTurns_ = 0;
  double taking_ = 0;  // of the turn's time
};

/// Runs hostile clients until it is killed.
[[noreturn]] void attack(const std::string& path, int clients) {
  rlimit descriptors{4096, 4096};
  setrlimit(RLIMIT_NOFILE, &descriptors);
  std::vector<int> fds(static_cast<size_t>(clients), -1);
  std::minstd_rand random(1);
  const std::string huge(64 * 1024, '[');
  for (;;) {
    for (size_t i = 0; i < fds.size(); ++i) {
      std::string wrong;
      if (fds[i] < 0) fds[i] = Agent::connectTo(path, false, &wrong);
      if (fds[i] < 0) continue;
      char ignored[4096];
      ssize_t kept = 1;
      if (recv(fds[i], ignored, sizeof ignored, MSG_DONTWAIT) == 0) kept = -1;
      std::string text;
      if (i % 4 == 0) text = std::string(random() % 500, static_cast<char>(random())) + "\n";
      if (i % 4 == 1) text = "{\"do\":\"show\",\"wha";
      if (i % 4 == 2) text = huge;
      if (kept > 0 && !text.empty())
        kept = send(fds[i], text.data(), text.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
      if (kept < 0 && errno != EAGAIN) {
        close(fds[i]);
        fds[i] = -1;
      }
    }
  }
}

void hostile() {
  BusyAgent agent;
  agent.apply(rules(1000, 0));
  agent.rate(1);
  std::vector<double> without, with;
  size_t before = 0, after = 0;
  // Alternating, so that what changes on the computer meanwhile meets both.
  for (int round = 0; round < 5; ++round) {
    without.push_back(agent.rate(1));
    if (round == 1) before = residentKilobytes();
    const pid_t child = fork();
    if (child == 0) attack(agent.socket(), 1000);
    agent.rate(0.5);
    with.push_back(agent.rate(1));
    kill(child, SIGKILL);
    waitpid(child, nullptr, 0);
    agent.rate(0.2);
    after = residentKilobytes();
  }
  std::sort(without.begin(), without.end());
  std::sort(with.begin(), with.end());
  fmt::print(
      "hostile clients: {:.0f} frames a second of processor time without, {:.0f} with 1000 ({:+.2f} %); "
      "resident {} "
      "then {} kB\n",
      without[2], with[2], (with[2] / without[2] - 1) * 100, before, after);
}

/// A list of which nobody ever proves anything: its wildcards have nothing in common.
std::string hardList() {
  std::minstd_rand random(1);
  const auto octets = [&random] {
    return fmt::format("{}.{}.{}.{}", random() % 256, random() % 256, random() % 256, random() % 256);
  };
  std::string text = "ip access-list HARD\n";
  for (int i = 1; i <= 3000; ++i)
    text += fmt::format(" permit ip {} {} {} {}\n", octets(), octets(), octets(), octets());
  return text;
}

/// A proof takes whatever it can get of the one processor that the agent has, too.
void proof() {
  cpu_set_t one;
  CPU_ZERO(&one);
  CPU_SET(sched_getcpu(), &one);
  sched_setaffinity(0, sizeof one, &one);
  const auto velo = (std::filesystem::read_symlink("/proc/self/exe").parent_path() / "velo").string();
  const auto path =
      (std::filesystem::temp_directory_path() / fmt::format("velo-bench-{}.acl", getpid())).string();
  std::ofstream(path) << hardList();
  BusyAgent agent;
  agent.apply(rules(1000, 0));
  agent.serve(1);
  std::vector<BusyAgent::Served> without, with;
  for (int round = 0; round < 5; ++round) {
    without.push_back(agent.serve(1));
    const pid_t child = fork();
    if (child == 0) {
      execl(velo.c_str(), "velo", "find", "permit", "HARD", "--all", "--config", path.c_str(), nullptr);
      _exit(127);
    }
    agent.serve(2);  // until it has read the text
    with.push_back(agent.serve(1));
    if (waitpid(child, nullptr, WNOHANG) != 0) throw std::runtime_error("the proof has ended");
    kill(child, SIGKILL);
    waitpid(child, nullptr, 0);
  }
  std::filesystem::remove(path);
  const auto median = [](std::vector<BusyAgent::Served>& all, double BusyAgent::Served::*figure) {
    std::sort(all.begin(), all.end(),
              [figure](const auto& a, const auto& b) { return a.*figure < b.*figure; });
    return all[all.size() / 2].*figure;
  };
  const auto rate = &BusyAgent::Served::rate, wait = &BusyAgent::Served::longestWait;
  fmt::print(
      "a proof on the same processor: {:.0f} frames a second without, {:.0f} with ({:+.1f} %); longest wait "
      "{:.1f} ms without, {:.1f} ms with\n",
      median(without, rate), median(with, rate), (median(with, rate) / median(without, rate) - 1) * 100,
      median(without, wait) * 1e3, median(with, wait) * 1e3);
}

/// A list of so many rules comes, changes and goes; and what a show of it costs.
void sizes() {
  fmt::print("{:>8} {:>12} {:>14} {:>13} {:>16} {:>14} {:>14} {:>14}\n", "rules", "change", "prepare/ms",
             "answer/ms", "longest turn/ms", "of nothing/ms", "commit/ms", "loop/ms");
  for (const int count : {1000, 10000, 100000}) {
    BusyAgent agent;
    const auto change = [&](const char* what, const std::string& text) {
      const double start = wallSeconds();
      const BusyAgent::Applied applied = agent.apply(text);
      const double took = wallSeconds() - start;
      fmt::print("{:>8} {:>12} {:>14.2f} {:>13.1f} {:>16.3f} {:>14.3f} {:>14.3f} {:>14.1f}\n", count, what,
                 applied.answer.at("prepareSeconds").get<double>() * 1e3, (took - 0.5) * 1e3,
                 applied.longestTurn * 1e3, longestGap(took) * 1e3,
                 applied.answer.at("commitSeconds").get<double>() * 1e3, applied.loopSeconds * 1e3);
    };
    const auto withLast = [count](int variant, const char* action) {
      std::string text = rules(count, variant);
      return text.replace(text.rfind("permit ip any any"), 6, action);
    };
    change("comes", rules(count, 0));
    change("one rule", withLast(0, "deny  "));
    change("one rule", rules(count, 0));
    change("all rules", withLast(1, "deny  "));
    change("all rules", rules(count, 0));
    agent.ask({{"do", "show"}, {"what", "access-lists"}});
    fmt::print("{:>8} {:>12} longest piece {:.3f} ms of {:.2f} ms\n", count, "show", agent.longestPiece * 1e3,
               agent.allPieces * 1e3);
    change("goes", "interface eth1\n ip access-group A in\n");
  }
}

}  // namespace

int main(int argc, char** argv) {
  // As the agent does.
  Agent::keepFreedMemory();
  Agent::useLargePages();
  Acl::Workshop::singleton().threadIs(true, Agent::giveWay);
  const std::string_view only = argc < 2 ? "" : argv[1];
  if (only.empty() || only == "sizes") sizes();
  if (only.empty() || only == "hostile") hostile();
  if (only.empty() || only == "proof") proof();
  Acl::Workshop::singleton().threadIs(false);
}
