#include <agent/fleet/FleetAsked.h>
#include <agent/fleet/FleetKeys.h>
#include <fmt/format.h>

#include <algorithm>
#include <chrono>
#include <thread>
#include <utility>

namespace Agent {

namespace {

using SteadyClock = std::chrono::steady_clock;

/// What is left behind by a command that is killed goes so soon.
constexpr int questionSeconds = 30;
constexpr std::chrono::duration<double> untilAnswers{5}, betweenAnswers{0.1};
/// Of one transaction: fewer than the 128 operations that etcd takes.
constexpr size_t mostAtOnce = 100;

std::string putQuestions(Etcd& etcd, const std::vector<std::string>& agents, const std::string& id,
                         const std::string& request, int64_t lease) {
  for (size_t at = 0; at < agents.size(); at += mostAtOnce) {
    EtcdTxn txn{.lease = lease};
    for (size_t i = at; i < std::min(agents.size(), at + mostAtOnce); ++i)
      txn.puts.push_back({questionPrefix(agents[i]) + id, request, true});
    if (const auto put = etcd.txn(txn); !put) return put.wrong;
  }
  return "";
}

/// Reads those that are there by now; why that was not possible.
std::string takeAnswers(Etcd& etcd, std::vector<std::string>& waiting, const std::string& id,
                        FleetAnswerTexts& answers) {
  std::vector<std::string> left;
  for (size_t at = 0; at < waiting.size(); at += mostAtOnce) {
    const size_t end = std::min(waiting.size(), at + mostAtOnce);
    std::vector<EtcdRange> ranges;
    for (size_t i = at; i < end; ++i) ranges.push_back({.key = answerKey(waiting[i], id)});
    const auto read = etcd.read(std::move(ranges));
    if (!read) return read.wrong;
    for (size_t i = at; i < end; ++i) {
      const auto& found = read.value->reads[i - at];
      if (found.empty())
        left.push_back(waiting[i]);
      else
        answers[waiting[i]] = found[0].value;
    }
  }
  waiting = std::move(left);
  return "";
}

}  // namespace

Maybe<FleetAnswerTexts> askAgents(Etcd& etcd, const std::vector<std::string>& agents,
                                  const std::string& request) {
  FleetAnswerTexts answers;
  if (agents.empty()) return {std::move(answers), {}, false};
  const auto lease = etcd.grant(questionSeconds);
  if (!lease) return {{}, lease.wrong, false};
  const std::string id = keyOfChance();
  std::vector<std::string> waiting = agents;
  std::string wrong = putQuestions(etcd, agents, id, request, *lease.value);
  const auto end = SteadyClock::now() + std::chrono::duration_cast<SteadyClock::duration>(untilAnswers);
  while (wrong.empty() && !waiting.empty() && SteadyClock::now() < end) {
    std::this_thread::sleep_for(betweenAnswers);
    wrong = takeAnswers(etcd, waiting, id, answers);
  }
  etcd.revoke(*lease.value);
  if (!wrong.empty()) return {{}, std::move(wrong), false};
  return {std::move(answers), {}, false};
}

}  // namespace Agent
