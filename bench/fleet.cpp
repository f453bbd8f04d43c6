// Many agents of a fleet in one process, with everything but ports: how long a change takes to get to all of
// them, and what they cost while nothing happens. Needs an etcd; usage: fleet-bench URL[,...] [AGENTS
// [CHANGES [IDLE_SECONDS]]].
#include <agent/fleet/FleetKeys.h>
#include <agent/fleet/FleetLink.h>
#include <agent/fleet/FleetOptions.h>
#include <fmt/format.h>
#include <poll.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <map>
#include <memory>
#include <string>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;

double secondsSince(Clock::time_point begin) {
  return std::chrono::duration<double>(Clock::now() - begin).count();
}

double processorSeconds() {
  rusage used{};
  getrusage(RUSAGE_SELF, &used);
  const auto seconds = [](const timeval& time) {
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
  };
  return seconds(used.ru_utime) + seconds(used.ru_stime);
}

/// Of this process, in KiB.
double memoryNow() {
  std::ifstream file("/proc/self/statm");
  double size = 0, resident = 0;
  file >> size >> resident;
  return resident * static_cast<double>(sysconf(_SC_PAGESIZE)) / 1024;
}

class Fleet {
 public:
  Fleet(const Agent::EtcdPlace& place, int agents) {
    for (int i = 0; i < agents; ++i) {
      const Agent::FleetIdentity identity{fmt::format("sim{}", i), {"bench"}};
      links_.push_back(std::make_unique<Agent::FleetLink>(place, identity, Agent::TellLog{}));
      links_.back()->start();
    }
  }

  /// Seconds until each agent has the content of a revision, from `begin` on; as an agent it tells that it
  /// has it.
  std::vector<double> until(int64_t revision, Clock::time_point begin) {
    std::vector<double> took;
    std::vector<bool> done(links_.size());
    while (took.size() < links_.size() && secondsSince(begin) < 60) {
      std::vector<pollfd> bells;
      for (const auto& link : links_) bells.push_back({link->bell(), POLLIN, 0});
      poll(bells.data(), bells.size(), 1000);
      for (size_t i = 0; i < links_.size(); ++i) {
        const auto content = bells[i].revents ? links_[i]->take() : nullptr;
        if (!content) continue;
        const double now = secondsSince(begin);
        links_[i]->stateIs(fmt::format(R"({{"inForce": {{"revision": {}, "version": "{}"}}}})",
                                       content->revision, content->version));
        if (content->revision < revision || done[i]) continue;
        done[i] = true;
        took.push_back(now);
      }
    }
    return took;
  }

 private:
  std::vector<std::unique_ptr<Agent::FleetLink>> links_;
};

/// As many lists as a group may have: 10 texts of 50 rules.
std::map<std::string, std::string> texts(int number) {
  std::map<std::string, std::string> all;
  for (int i = 0; i < 10; ++i) {
    std::string text = fmt::format("ip access-list L{}\n", i);
    for (int rule = 0; rule < 50; ++rule)
      text += fmt::format(" permit tcp any host 10.{}.{}.{} eq 443\n", number % 250, i, rule);
    all[Agent::groupPrefix("bench") + fmt::format("t{}", i)] = std::move(text);
  }
  return all;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2)
    return fmt::print(stderr, "usage: fleet-bench URL[,...] [AGENTS [CHANGES [IDLE_SECONDS]]]\n"), 2;
  const auto number = [&](int at, int otherwise) { return argc > at ? std::atoi(argv[at]) : otherwise; };
  const int agents = number(2, 200), changes = number(3, 20), idle = number(4, 60);
  std::string wrong;
  const auto place = Agent::placeOf({.store = argv[1]}, &wrong);
  if (!place) return fmt::print(stderr, "{}\n", wrong), 2;
  Agent::Http http({});
  Agent::Etcd etcd(http, *place);
  const auto write = [&etcd](const std::map<std::string, std::string>& all) -> int64_t {
    Agent::EtcdTxn txn;
    for (const auto& [key, text] : all) txn.puts.push_back({key, text});
    const auto done = etcd.txn(txn);
    if (!done) fmt::print(stderr, "{}\n", done.wrong), std::exit(1);
    return done.value->revision;
  };

  const int64_t first = write(texts(0));
  const auto begin = Clock::now();
  const double memoryBefore = memoryNow();
  Fleet fleet(*place, agents);
  const auto joined = fleet.until(first, begin);
  fmt::print("{} of {} agents have joined after {:.2f} s\n", joined.size(), agents,
             joined.empty() ? 0 : joined.back());
  fmt::print("memory of an agent's link and its texts: {:.0f} KiB\n", (memoryNow() - memoryBefore) / agents);
  std::fflush(stdout);
  std::vector<double> all, last;
  for (int change = 1; change <= changes; ++change) {
    usleep(500000);
    auto one = texts(0);
    const auto key = one.begin()->first;
    const auto wrote = Clock::now();
    const int64_t revision = write({{key, texts(change).begin()->second}});
    const auto took = fleet.until(revision, wrote);
    all.insert(all.end(), took.begin(), took.end());
    if (took.size() == static_cast<size_t>(agents)) last.push_back(took.back());
  }
  std::sort(all.begin(), all.end());
  std::sort(last.begin(), last.end());
  if (!all.empty() && !last.empty())
    fmt::print(
        "{} changes of one text: an agent has it after {:.0f} ms (median), the last one after {:.0f} ms (median), {:.0f} ms at most; "
        "{} of {} times all had it\n",
        changes, all[all.size() / 2] * 1e3, last[last.size() / 2] * 1e3, last.back() * 1e3, last.size(),
        changes);
  usleep(2000000);
  const double before = processorSeconds();
  sleep(static_cast<unsigned>(idle));
  fmt::print("idle: {:.2f} ms of processor a minute and agent\n",
             (processorSeconds() - before) * 1e3 * 60 / idle / agents);
  fmt::print("memory at the end: {:.0f} KiB each\n", (memoryNow() - memoryBefore) / agents);
  return 0;
}
