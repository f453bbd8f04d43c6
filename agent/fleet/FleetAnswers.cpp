#include <agent/control/Operations.h>
#include <agent/fleet/FleetAnswers.h>
#include <agent/fleet/FleetKeys.h>

#include <memory>
#include <utility>

namespace Agent {

namespace {

using Json = nlohmann::ordered_json;

std::string wrongAnswer(const std::string& why) {
  return Json({{"wrong", why}}).dump(-1, ' ', false, Json::error_handler_t::replace);
}

}  // namespace

FleetAnswers::FleetAnswers(Operations& operations, FleetLink& link, std::string agent)
    : operations_(operations), link_(link), agent_(std::move(agent)) {}

void FleetAnswers::questionsAre(const FleetQuestions& questions) {
  std::map<std::string, std::string> values;
  for (auto at = answered_.begin(); at != answered_.end();) {
    const auto known = questions.find(at->first);
    if (known == questions.end()) values[answerKey(agent_, at->first)] = "";
    at = known == questions.end() || known->second != at->second ? answered_.erase(at) : std::next(at);
  }
  for (const auto& [name, question] : questions) {
    if (answered_.size() == mostQuestions) break;
    if (answered_.emplace(name, question).second) values[answerKey(agent_, name)] = answerTo(question);
  }
  link_.valuesAre(std::move(values));
}

std::string FleetAnswers::answerTo(const std::string& question) const {
  if (question.size() > mostQuestion) return wrongAnswer("the question is too long");
  std::string wrong;
  auto request = Request::read(question, &wrong);
  if (!request) return wrongAnswer(wrong);
  if (request->member("do") != "explain")
    return wrongAnswer("only what becomes of a frame can be asked here");
  const auto said = std::make_shared<std::string>(wrongAnswer("there is no answer"));
  Session session(operations_);
  operations_.handle(std::move(*request), session, false, [said](Answer answer) {
    if (!answer.document) {
      *said = wrongAnswer(answer.error.value("text", "there is no memory for it"));
      return;
    }
    *said = R"({"explanation": )";
    while (said->size() < mostAnswer && answer.document->next(*said)) {
    }
    *said += "}";
  });
  return said->size() > mostAnswer ? wrongAnswer("the answer is too long") : *said;
}

}  // namespace Agent
