#pragma once

#include <agent/fleet/FleetLink.h>

#include <functional>
#include <map>
#include <string>

namespace Agent {

class Operations;

/// Answers what an operator asks an agent by the store: a question is a request of the control protocol below
/// the agent's own texts, and its answer stands below the agent's status until the question is gone. Only
/// what becomes of a frame can be asked (`explain`), which changes nothing; a few questions at a time, and
/// each is answered once. For the loop's thread.
class FleetAnswers {
 public:
  static constexpr size_t mostQuestions = 4, mostQuestion = size_t{64} << 10, mostAnswer = size_t{256} << 10;

  /// What it is made with outlives it.
  FleetAnswers(Operations& operations, FleetLink& link, std::string agent);

  /// All questions that there are by now, by their names.
  void questionsAre(const FleetQuestions& questions);

 private:
  std::string answerTo(const std::string& question) const;

  Operations& operations_;
  FleetLink& link_;
  const std::string agent_;
  FleetQuestions answered_;
};

}  // namespace Agent
