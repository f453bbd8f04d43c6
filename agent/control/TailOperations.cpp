// The operations by which clients look at frames as they are judged.
#include <Acl/RuleKinds.h>
#include <agent/config/Cursor.h>
#include <agent/config/Sentences.h>
#include <agent/control/Operations.h>
#include <agent/core/Document.h>
#include <agent/observe/SeenFrame.h>

#include <algorithm>
#include <utility>
#include <vector>

namespace Agent {

namespace {

/// Why no list of this name has a rule of this number; nothing if one has.
std::optional<std::string> whyNoRule(const Core& core, const std::string& list, uint32_t number) {
  std::vector<uint32_t> numbers;
  for (const Acl::AclType type : Acl::aclTypes) {
    const auto found = core.inForce().list(type, Kelp::String(list));
    const auto* rules = found ? std::as_const(*found).judging() : nullptr;
    if (!rules) continue;
    Acl::withRuleKind(type, [&](auto kind) {
      for (const auto* rule : kind.rules(*rules).ordered()) numbers.push_back(rule->value.sequence());
    });
  }
  if (std::find(numbers.begin(), numbers.end(), number) != numbers.end()) return std::nullopt;
  return Config::noSuchRule(list, number, numbers);
}

/// The frames that waited when it was made, told one after the other.
class FramesDocument final : public Document {
 public:
  explicit FramesDocument(std::shared_ptr<Tail> tail)
      : tail_(std::move(tail)), left_(tail_->queue().size()) {}
  bool next(std::string& text) override {
    const size_t start = text.size();
    if (!begun_) text += "{\"frames\":[";
    begun_ = true;
    FrameQueue& queue = tail_->queue();
    for (; left_ > 0; --left_) {
      if (!hasRoom(text, start)) return true;
      elements_.add(text, writer_.document(queue.pop(), tail_->wantsOctets()));
    }
    // If frames have come while this was written, those that were passed over came behind them: a later
    // answer counts them.
    const uint64_t passedOver = queue.size() == 0 ? queue.takePassedOver() : 0;
    text += fmt::format("],\"passedOver\":{}}}", passedOver);
    return false;
  }

 private:
  const std::shared_ptr<Tail> tail_;
  size_t left_;
  bool begun_ = false;
  Elements elements_;
  SeenFrameWriter writer_;
};

}  // namespace

void Operations::tail(const Request& request, Session& session, const Reply& reply) {
  const auto refuse = [&reply](std::string text) { reply(Answer::failed("bad-request", std::move(text))); };
  if (elsewhere_.all)
    return reply(
        Answer::failed("not-here", "frames cannot be looked at with --workers: other processes judge them"));
  const std::string list = request.text("list"), rule = request.text("rule");
  TailFilter filter{.drops = request.flag("drops")};
  if (!list.empty()) {
    if (!isDefined(world_.core, Kelp::String(list)))
      return reply(Answer::failed("not-found", noSuchList(world_.core, list)));
    filter.list = list;
  }
  if (!rule.empty()) {
    if (list.empty()) return refuse("a rule is one of a list, and none is named");
    const bool implicit = rule == "implicit";
    filter.rule = implicit ? 0 : Config::decimal(rule);
    if (!filter.rule) return refuse("rule is the number of a rule, or implicit");
    const auto wrong = implicit ? std::nullopt : whyNoRule(world_.core, list, *filter.rule);
    if (wrong) return reply(Answer::failed("not-found", *wrong));
  }
  const uint32_t octets = *request.number("octets");
  if (octets > Tail::mostOctets) return refuse(fmt::format("octets is at most {}", Tail::mostOctets));
  session.tail_.reset();
  if (tails_.full())
    return reply(Answer::failed("busy", fmt::format("{} clients look at frames already", Tails::most)));
  session.tail_ = std::make_shared<Tail>(tails_, std::move(filter), octets);
  reply(Answer::of({{"following", true}}));
}

void Operations::frames(const Request&, Session& session, const Reply& reply) {
  if (!session.tail_)
    return reply(Answer::failed("bad-request", "frames are told to who has asked for tail"));
  session.tail_->wait([tail = std::weak_ptr(session.tail_), reply] {
    if (auto still = tail.lock()) reply({std::make_unique<FramesDocument>(std::move(still)), {}});
  });
}

}  // namespace Agent
