#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace Bench {

/// The middle of measured values and how far they spread.
struct Spread {
  double median = 0;
  double low = 0;   ///< the tenth part lies below
  double high = 0;  ///< the tenth part lies above
};
Spread spreadOf(std::vector<double> values);
/// The value that a share (0 to 1) of them does not exceed.
double quantile(std::vector<double> values, double share);
double geometricMean(const std::vector<double>& values);

/// Processor time of this thread and time of day, in ns from some start.
double processorTime();
double wallTime();

/// Which of the headers of a trace a run answers: `count` of them, `stride` apart.
struct Portion {
  size_t count;
  size_t stride;
};

/// Answers a portion, a header at a time. Each is fetched ahead of its turn, because a packet that is judged
/// has just been parsed.
template <class Fetch, class Answer>
uint64_t answerEach(Portion portion, const Fetch& fetch, const Answer& answer) {
  const size_t ahead = 8 * portion.stride, end = portion.count * portion.stride, last = end - portion.stride;
  uint64_t all = 0;
  for (size_t i = 0; i < end; i += portion.stride) {
    fetch(std::min(i + ahead, last));
    all += answer(i);
  }
  return all;
}

/// Something that answers headers, to be timed beside others. `run` returns a number that depends on all of
/// its answers, so that none is left out.
struct Contender {
  std::string name;
  std::function<uint64_t(Portion)> run;
  Spread ns{};                   ///< of one header; set by alternate()
  std::vector<double> rounds{};  ///< the same, each round's
};

/// Times contenders over the same `headers`, in turn, so that what else the computer does hits all alike. Who
/// takes long for all headers gets a part of them, the same one in every round, spread over the whole trace.
/// Everybody finds in the caches what the one before has left there.
void alternate(const std::vector<Contender*>& contenders, size_t headers, int rounds);
/// The same, with a second look at the same headers at once, which finds in the caches what the first one has
/// left there: that is what the contenders are told. Returns them as they were behind the others.
std::vector<Contender> alternateWarm(const std::vector<Contender*>& contenders, size_t headers, int rounds);

/// What one takes, divided by what another one took in the same round: the median.
double ratioOf(const Contender& one, const Contender& other);

}  // namespace Bench
