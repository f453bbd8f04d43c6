#include "classbench/Measure.h"

#include <time.h>

#include <algorithm>
#include <cmath>

namespace Bench {

namespace {

constexpr double longestRound = 30e6;  // ns

double now(clockid_t clock) {
  timespec t{};
  clock_gettime(clock, &t);
  return static_cast<double>(t.tv_sec) * 1e9 + static_cast<double>(t.tv_nsec);
}

volatile uint64_t answers;  // keeps the answers alive

double timed(const Contender& contender, Portion portion) {
  const double start = processorTime();
  answers = contender.run(portion);
  return (processorTime() - start) / static_cast<double>(portion.count);
}

/// As many headers as a round has time for. Warms up, too.
Portion portionOf(const Contender& contender, size_t headers) {
  size_t count = std::min<size_t>(headers, 64);
  double ns = timed(contender, {count, headers / count});
  while (count < headers && ns * static_cast<double>(count) < longestRound / 8) {
    count = std::min(headers, count * 4);
    ns = timed(contender, {count, headers / count});
  }
  const auto fits = static_cast<size_t>(longestRound / std::max(ns, 0.1));
  count = std::clamp<size_t>(fits, 1, headers);
  return {count, headers / count};
}

}  // namespace

double quantile(std::vector<double> values, double share) {
  if (values.empty()) return 0;
  const auto at = static_cast<size_t>(std::lround(share * static_cast<double>(values.size() - 1)));
  std::nth_element(values.begin(), values.begin() + static_cast<std::ptrdiff_t>(at), values.end());
  return values[at];
}

Spread spreadOf(std::vector<double> values) {
  return {quantile(values, 0.5), quantile(values, 0.1), quantile(values, 0.9)};
}

double geometricMean(const std::vector<double>& values) {
  double sum = 0;
  for (const double value : values) sum += std::log(value);
  return values.empty() ? 0 : std::exp(sum / static_cast<double>(values.size()));
}

double processorTime() { return now(CLOCK_THREAD_CPUTIME_ID); }
double wallTime() { return now(CLOCK_MONOTONIC); }

namespace {

/// `behind`: where the times of a first look go, when there is to be a second one.
void timeInTurn(const std::vector<Contender*>& contenders, size_t headers, int rounds,
                std::vector<Contender>* behind) {
  if (headers == 0) return;
  std::vector<Portion> portions;
  for (Contender* contender : contenders) contender->rounds.clear();
  for (const Contender* contender : contenders) portions.push_back(portionOf(*contender, headers));
  for (int round = 0; round < rounds; ++round) {
    for (size_t i = 0; i < contenders.size(); ++i) {
      if (behind) (*behind)[i].rounds.push_back(timed(*contenders[i], portions[i]));
      contenders[i]->rounds.push_back(timed(*contenders[i], portions[i]));
    }
  }
  for (Contender* contender : contenders) contender->ns = spreadOf(contender->rounds);
}

}  // namespace

void alternate(const std::vector<Contender*>& contenders, size_t headers, int rounds) {
  timeInTurn(contenders, headers, rounds, nullptr);
}

std::vector<Contender> alternateWarm(const std::vector<Contender*>& contenders, size_t headers, int rounds) {
  std::vector<Contender> behind;
  for (const Contender* contender : contenders) behind.push_back({contender->name, {}});
  timeInTurn(contenders, headers, rounds, &behind);
  for (Contender& contender : behind) contender.ns = spreadOf(contender.rounds);
  return behind;
}

double ratioOf(const Contender& one, const Contender& other) {
  std::vector<double> ratios;
  for (size_t i = 0; i < one.rounds.size(); ++i) ratios.push_back(one.rounds[i] / other.rounds[i]);
  return quantile(std::move(ratios), 0.5);
}

}  // namespace Bench
