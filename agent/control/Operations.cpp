#include <Blip/FastTrace.h>
#include <Zeb/System.h>
#include <Zeb/TraceHandle.h>
#include <agent/control/Operations.h>
#include <agent/explain/FrameArgument.h>
#include <agent/show/Pieces.h>

#include <algorithm>
#include <utility>

namespace Agent {

using Json = nlohmann::ordered_json;

namespace {

/// Whether there is something to show of a list: it is in force, or bound without being defined.
bool isList(const Core& core, const Kelp::String& name) {
  if (isDefined(core, name)) return true;
  const auto bound = ListReader(core).undefined();
  return std::any_of(bound.begin(), bound.end(), [&](const auto& key) { return key.second == name; });
}

Answer noList(const std::string& name) {
  return Answer::failed("not-found", fmt::format("there is no list {}", name));
}

/// Why no frame comes in by an interface, if so.
std::optional<std::string> whyNoPort(const World& world, const std::string& name) {
  const Nimnet::IntfId id(name);
  if (world.core.portChannels().has(id))
    return fmt::format("{} is a port-channel: frames come in by its members", name);
  if (!world.forwarder.ports().contains(id)) return fmt::format("there is no port {}", name);
  return std::nullopt;
}

/// The answer to an apply. What changes can be much text: it goes out as it was made.
class AppliedDocument final : public Document {
 public:
  AppliedDocument(const Json& head, std::deque<std::string> difference) : pieces_(std::move(difference)) {
    pieces_.push_front(openObject(head) + "\"difference\":");
    pieces_.push_back("}");
  }
  bool next(std::string& text) override {
    text += pieces_.front();
    pieces_.pop_front();
    return !pieces_.empty();
  }

 private:
  std::deque<std::string> pieces_;
};

}  // namespace

void Session::drop() { take(); }

std::vector<Config::Source> Session::take() {
  operations_.textOctets_ -= octets_;
  octets_ = 0;
  return std::exchange(texts_, {});
}

struct Operations::Row {
  std::string_view name;
  bool changes;  ///< only for clients that may change what the agent does
  void (Operations::*handler)(const Request&, Session&, const Reply&);
};

const Operations::Row Operations::rows[] = {
    {"show", false, &Operations::show},  {"text", true, &Operations::text},
    {"apply", true, &Operations::apply}, {"explain", false, &Operations::explain},
    {"clear", true, &Operations::clear}, {"trace", true, &Operations::trace},
};

Operations::Operations(const World& world, ZeroLine& zero, Configuration& configuration)
    : world_(world), zero_(zero), configuration_(configuration), explainer_(world.core, world.forwarder) {}

void Operations::handle(const Request& request, Session& session, bool mayChange, const Reply& reply) {
  const std::string name = request.text("do");
  const auto* row =
      std::find_if(std::begin(rows), std::end(rows), [&](const Row& each) { return each.name == name; });
  if (row == std::end(rows))
    return reply(Answer::failed("unknown-operation", fmt::format("\"{}\" is no operation", name)));
  if (row->changes && !mayChange) {
    return reply(
        Answer::failed("not-allowed", fmt::format("{} is for root, the agent's own user and the group of "
                                                  "the socket",
                                                  name)));
  }
  (this->*row->handler)(request, session, reply);
}

void Operations::show(const Request& request, Session&, const Reply& reply) {
  const std::string what = request.text("what");
  const Show* show = showOf(what);
  if (!show) return reply(Answer::failed("unknown-show", fmt::format("\"{}\" cannot be shown", what)));
  const std::string name = request.text("name");
  if (!name.empty() && show->argument.empty())
    return reply(Answer::failed("bad-request", fmt::format("{} takes no name", what)));
  if (!name.empty() && !isList(world_.core, Kelp::String(name))) return reply(noList(name));
  reply({show->document(world_, name), {}});
}

void Operations::text(const Request& request, Session& session, const Reply& reply) {
  const std::string name = request.text("name");
  std::string more = request.text("text");
  if (name.empty()) return reply(Answer::failed("bad-request", "a text needs a name"));
  if (textOctets_ + more.size() > mostText) {
    session.drop();
    return reply(Answer::failed("too-large", fmt::format("texts of more than {} octets are held", mostText)));
  }
  session.octets_ += more.size();
  textOctets_ += more.size();
  auto& texts = session.texts_;
  if (!texts.empty() && texts.back().name == name)
    texts.back().text += more;
  else
    texts.push_back({name, std::move(more)});
  reply(Answer::of({{"octets", session.octets_}}));
}

void Operations::apply(const Request& request, Session& session, const Reply& reply) {
  const bool dryRun = request.flag("dryRun");
  // Nothing is no configuration: an empty one is a text, too.
  if (session.texts_.empty()) return reply(Answer::failed("bad-request", "no text was sent to apply"));
  if (configuration_.busy())
    return reply(Answer::failed("busy", "another change of the configuration is under way; try again"));
  configuration_.apply(session.take(), dryRun, [reply](Configuration::Outcome outcome) {
    if (!outcome.mistakes.empty()) {
      Answer answer = Answer::failed("mistakes", "nothing was applied");
      answer.error["mistakes"] = std::move(outcome.mistakes);
      return reply(std::move(answer));
    }
    const Json head = {{"applied", outcome.applied},
                       {"prepareSeconds", outcome.prepareSeconds},
                       {"commitSeconds", outcome.commitSeconds}};
    reply({std::make_unique<AppliedDocument>(head, std::move(outcome.difference)), {}});
  });
}

void Operations::explain(const Request& request, Session&, const Reply& reply) {
  const std::string port = request.text("port");
  if (port.empty()) return reply(Answer::failed("bad-request", "explain needs a port"));
  if (auto none = whyNoPort(world_, port)) return reply(Answer::failed("not-found", *none));
  const std::string text = request.text("frame");
  std::optional<Frame> frame;
  std::string wrong = "explain needs a frame of one octet or more";
  if (isFrameText(text)) {
    frame = readFrameText(text, &wrong);
  } else if (auto octets = octetsOfHex(text); octets && !octets->empty()) {
    frame = Frame{std::move(*octets), static_cast<uint32_t>(request.number("wireLength").value_or(0))};
  }
  if (!frame) return reply(Answer::failed("bad-request", wrong));
  reply(Answer::of(explainer_.explain(port, *frame)));
}

void Operations::clear(const Request& request, Session&, const Reply& reply) {
  const double now = Zeb::System::currentTime().seconds();
  if (const std::string name = request.text("name"); name.empty()) {
    zero_.clear(world_.core, world_.forwarder, now);
  } else if (!zero_.clear(world_.core, Kelp::String(name), now)) {
    return reply(noList(name));
  }
  reply(Answer::of({{"cleared", now}}));
}

void Operations::trace(const Request& request, Session&, const Reply& reply) {
  if (request.flag("off")) {
    Zeb::TraceHandle::disableAll();
  } else if (const std::string fast = request.text("fast"); !fast.empty()) {
    Blip::fastTraceIs(fast, request.flag("on"));
  } else if (const std::string facility = request.text("facility"); facility.empty()) {
    return reply(Answer::failed("bad-request", "trace needs a facility and a level, as in Velo::Acl/0"));
  } else if (const auto wrong = Zeb::TraceHandle::enable(facility)) {
    return reply(Answer::failed("bad-request", *wrong));
  }
  reply(Answer::of(Json::object()));
}

}  // namespace Agent
