#include <agent/change/ChangeReport.h>
#include <agent/change/Edit.h>
#include <agent/control/Operations.h>
#include <agent/core/Document.h>
#include <agent/core/Words.h>
#include <agent/warnings/WarningText.h>
#include <fmt/format.h>

#include <algorithm>
#include <memory>
#include <new>
#include <utility>

// Operations that change the configuration, and the texts that a client sends for them.
namespace Agent {

using Json = nlohmann::ordered_json;

namespace {

Answer busy() {
  return Answer::failed("busy", "another change of the configuration is under way; try again");
}

/// The answer to an apply. Warnings and difference can be long: they are sent in pieces.
class AppliedDocument final : public Document {
 public:
  AppliedDocument(const Json& head, Warnings warnings, std::deque<std::string> difference)
      : head_(openObject(head) + "\"warnings\":["),
        warnings_(std::move(warnings)),
        pieces_(std::move(difference)) {
    pieces_.push_front("],\"difference\":");
    pieces_.push_back("}");
  }
  bool next(std::string& text) override {
    const size_t start = text.size();
    text += std::exchange(head_, {});
    for (; nextWarning_ < warnings_.size(); ++nextWarning_) {
      if (!hasRoom(text, start)) return true;
      elements_.add(text, warningJson(warnings_[nextWarning_]));
    }
    text += pieces_.front();
    pieces_.pop_front();
    return !pieces_.empty();
  }

 private:
  std::string head_;
  const Warnings warnings_;
  size_t nextWarning_ = 0;
  Elements elements_;
  std::deque<std::string> pieces_;
};

/// The first of them: as many as fit into an error, which is made at once.
Json someJson(const Warnings& warnings) {
  constexpr size_t most = 200;
  return warningsJson({warnings.begin(), warnings.begin() + std::min(most, warnings.size())});
}

Answer answerOf(Configuration::Outcome outcome, const Configuration& configuration, bool dryRun) {
  if (!outcome.mistakes.empty()) {
    Answer answer = Answer::failed("mistakes", "nothing was applied");
    answer.error["mistakes"] = std::move(outcome.mistakes);
    return answer;
  }
  if (outcome.refused && !dryRun) {
    Answer answer = Answer::failed("refused", "nothing was applied: " + *outcome.refused);
    answer.error["warnings"] = someJson(outcome.warnings);
    return answer;
  }
  const auto within = configuration.confirmation().within();
  Json head = {{"applied", outcome.applied},
               {"refused", outcome.refused ? Json(*outcome.refused) : Json(nullptr)},
               {"prepareSeconds", outcome.prepareSeconds},
               {"commitSeconds", outcome.commitSeconds},
               {"confirmWithin", within ? Json(*within) : Json(nullptr)},
               {"survives", configuration.history().hasJournal()}};
  if (outcome.applied) head["restart"] = restartReport(configuration);
  return {std::make_unique<AppliedDocument>(head, std::move(outcome.warnings), std::move(outcome.difference)),
          {}};
}

/// The command line's source as it was behind a change.
std::optional<Configuration::Request> goingBackTo(const Change& to, std::string* wrong) {
  if (to.source != sourceTitle(commandLineName)) {
    *wrong = fmt::format("change {} is one of the file {}: it is taken back there", to.number, to.source);
  } else if (!to.text) {
    *wrong = fmt::format("the text of change {} is not kept any more", to.number);
  } else {
    return Configuration::Request{
        .what = "rollback",
        .make =
            [name = fmt::format("the text of change {0} (velo show history {0})", to.number),
             text = to.text](const Sources&) {
              Config::Result result = Config::read({{name, *text}});
              return MadeModel{std::move(result.model), textsOf(result.mistakes)};
            },
        .takesBack = true};
  }
  return std::nullopt;
}

}  // namespace

void Session::drop() { take(); }

std::vector<Config::Source> Session::take() {
  operations_.heldOctets_ -= held_;
  octets_ = held_ = 0;
  return std::exchange(texts_, {});
}

void Operations::text(const Request& request, Session& session, const Reply& reply) {
  const std::string name = request.text("name");
  std::string more = request.text("text");
  auto& texts = session.texts_;
  const bool goesOn = !texts.empty() && texts.back().name == name;
  const size_t held = more.size() + (goesOn ? 0 : sizeof(Config::Source) + name.size());
  if (heldOctets_ + held > mostText) {
    session.drop();
    return reply(Answer::failed("too-large", fmt::format("texts of more than {} octets are held", mostText)));
  }
  session.octets_ += more.size();
  session.held_ += held;
  heldOctets_ += held;
  if (goesOn)
    texts.back().text += more;
  else
    texts.push_back({name, std::move(more)});
  reply(Answer::of({{"octets", session.octets_}}));
}

void Operations::apply(const Request& request, Session& session, const Reply& reply) {
  // To apply nothing must be a mistake: an empty configuration is sent as an empty text.
  if (session.texts_.empty()) return reply(Answer::failed("bad-request", "no text was sent to apply"));
  if (configuration_.busy()) return reply(busy());
  // No other change comes between this look and the end of this one.
  const auto revision = request.number("revision");
  if (revision && *revision != configuration_.sources().version)
    return reply(Answer::failed("busy", "the configuration has changed meanwhile; try again"));
  change(request, session, {.texts = session.take()}, reply);
}

void Operations::edit(const Request& request, Session& session, const Reply& reply) {
  Edit edit{request.text("list"), std::nullopt, {}};
  Acl::AclType type{};
  if (request.has("type")) {
    if (!Acl::sequenceToValue(request.text("type"), &type))
      return reply(Answer::failed("bad-request", "the type of a list is ip, ipv6 or mac"));
    edit.type = type;
  }
  if (session.texts_.empty()) return reply(Answer::failed("bad-request", "no commands were sent"));
  if (configuration_.busy()) return reply(busy());
  for (const auto& text : session.take()) edit.commands += text.text;
  const auto make = [edit = std::move(edit)](const Sources& inForce) { return edited(inForce, edit); };
  change(request, session, {.what = "edit", .make = make}, reply);
}

void Operations::rollback(const Request& request, Session& session, const Reply& reply) {
  const auto number = request.number("number");
  const History& history = configuration_.history();
  const Change* to = number ? history.find(*number) : history.last(1);
  if (!to) {
    return reply(Answer::failed(
        "not-found", number ? noSuchChange(std::to_string(*number)) : "there is no change to go back to"));
  }
  std::string wrong;
  auto order = goingBackTo(*to, &wrong);
  if (!order) return reply(Answer::failed("not-found", wrong));
  change(request, session, std::move(*order), reply);
}

void Operations::confirm(const Request&, Session& session, const Reply& reply) {
  configuration_.confirm(session.peer_.str(), [reply](const std::optional<std::string>& wrong) {
    reply(wrong ? Answer::failed("not-found", *wrong) : Answer::of({{"confirmed", true}}));
  });
}

void Operations::saved(const Request& request, Session& session, const Reply& reply) {
  configuration_.savedIs(session.peer_.str(), printableText(request.text("file")),
                         printableText(request.text("wrong")));
  reply(Answer::of(Json::object()));
}

/// Carries out a change of the command line's source, and then looks what a restart would read.
void Operations::change(const Request& request, const Session& session, Configuration::Request order,
                        const Reply& reply) {
  order.who = session.peer_.str();
  order.dryRun = request.flag("dryRun");
  order.leave = {.openings = request.flag("allowOpen"), .strict = request.flag("strict")};
  if (const auto seconds = request.number("confirm")) order.confirm = *seconds;
  const auto tell = [this, reply, dryRun = order.dryRun](Configuration::Outcome& outcome) {
    Answer answer;
    try {
      answer = answerOf(std::move(outcome), configuration_, dryRun);
    } catch (const std::bad_alloc&) {
      answer = {};
    }
    reply(std::move(answer));
  };
  const bool begun = configuration_.apply(std::move(order), [this, tell](Configuration::Outcome outcome) {
    if (!outcome.applied) return tell(outcome);
    const auto done = std::make_shared<Configuration::Outcome>(std::move(outcome));
    configuration_.lookAtFiles([tell, done] { tell(*done); });
  });
  if (!begun) reply(busy());
}

}  // namespace Agent
