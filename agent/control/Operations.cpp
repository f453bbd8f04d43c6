#include <Blip/FastTrace.h>
#include <Zeb/System.h>
#include <Zeb/TraceHandle.h>
#include <agent/config/Cursor.h>
#include <agent/config/Sentences.h>
#include <agent/control/Operations.h>
#include <agent/core/Words.h>
#include <agent/explain/FrameArgument.h>
#include <agent/show/TraceFacilities.h>

#include <algorithm>
#include <set>
#include <utility>

namespace Agent {

using Json = nlohmann::ordered_json;

namespace {

/// Whether there is something to show about a list: it is in force, or it is bound without being defined.
bool isList(const Core& core, const Kelp::String& name) {
  if (isDefined(core, name)) return true;
  const auto bound = ListReader(core).undefined();
  return std::any_of(bound.begin(), bound.end(), [&](const auto& key) { return key.second == name; });
}

Answer noList(const Core& core, const std::string& name) {
  return Answer::failed("not-found", noSuchList(core, name));
}

/// Why no list can be of an interface or a source; nothing if one can.
std::optional<std::string> whyNoSelection(const World& world, const Sources& sources,
                                          const ShowOptions& options) {
  const auto whyNot = [](std::string_view kind, const std::string& name, const std::set<std::string>& known) {
    if (name.empty() || known.contains(name)) return std::optional<std::string>();
    return std::optional(Config::noSuch(kind, name, known));
  };
  std::set<std::string> titles;
  sources.forEach(
      [&titles](const std::string& name, const Config::Model&) { titles.insert(sourceTitle(name)); });
  if (auto wrong = whyNot("source", options.source, titles)) return wrong;
  if (options.interface.empty()) return std::nullopt;
  std::set<std::string> interfaces;
  for (const auto& [id, port] : world.forwarder.ports()) interfaces.insert(id.name().str());
  for (const auto& [id, members] : world.core.portChannels().all()) interfaces.insert(id.name().str());
  const ListReader reader(world.core);
  for (const auto& places : {reader.defined(), reader.undefined()}) {
    for (const auto& key : places) {
      for (const auto& binding : reader.head(key).bindings) interfaces.insert(binding.interface);
    }
  }
  return whyNot("interface", options.interface, interfaces);
}

/// Why no frame can come in by an interface; nothing if one can.
std::optional<std::string> whyNoPort(const World& world, const std::string& name) {
  // Names are compared as texts. An IntfId of what a client sends would be kept for ever.
  const auto isAmong = [&name](const auto& known) {
    return std::any_of(known.begin(), known.end(),
                       [&name](const auto& each) { return each.first.name().view() == name; });
  };
  if (isAmong(world.core.portChannels().all())) return portChannelIsNoPort(name);
  if (isAmong(world.forwarder.ports())) return std::nullopt;
  std::vector<std::string_view> names;
  for (const auto& [id, port] : world.forwarder.ports()) names.push_back(id.name().view());
  return Config::noSuch("port", name, names);
}

}  // namespace

Operations::Operations(const World& world, ZeroLine& zero, Configuration& configuration, Tails& tails,
                       PacketsElsewhere elsewhere)
    : world_(world),
      zero_(zero),
      configuration_(configuration),
      tails_(tails),
      elsewhere_(std::move(elsewhere)),
      explainer_(world.core, world.forwarder) {}

void Operations::handle(Request request, Session& session, bool mayChange, const Reply& reply) {
  const RequestMember& asked = common().front();
  if (auto wrong = request.wrongIn(asked)) return reply(Answer::failed("bad-request", std::move(*wrong)));
  const auto name = request.member(asked.name).get<std::string>();
  const auto known = all();
  const auto operation =
      std::find_if(known.begin(), known.end(), [&](const Operation& each) { return each.name == name; });
  if (operation == known.end())
    return reply(Answer::failed("unknown-operation", fmt::format("\"{}\" is no operation", name)));
  if (operation->changes && !mayChange) {
    return reply(Answer::failed(
        "not-allowed",
        fmt::format("{} is for root, the agent's own user and the group of the socket", name)));
  }
  if (const auto wrong = request.check(operation->members))
    return reply(Answer::failed("bad-request", fmt::format("{}: {}", name, *wrong)));
  (this->*operation->handler)(request, session, reply);
}

void Operations::show(const Request& request, Session&, const Reply& reply) {
  const std::string what = request.text("what");
  const Show* show = showOf(what);
  if (!show) return reply(Answer::failed("unknown-show", fmt::format("\"{}\" cannot be shown", what)));
  if (request.has("name") && show->argument.empty())
    return reply(Answer::failed("bad-request", fmt::format("{} takes no name", what)));
  const std::string name = request.text("name");
  if (!name.empty() && show->argument == listArgument && !isList(world_.core, Kelp::String(name)))
    return reply(noList(world_.core, name));
  if (!name.empty() && show->argument == changeArgument && !changeOf(name))
    return reply(Answer::failed("not-found", noSuchChange(name)));
  using Which = ShowOptions::Rules;
  const bool hit = request.flag("hit"), unused = request.flag("unused");
  const ShowOptions options{name, request.text("source"), request.text("interface"),
                            hit      ? Which::hit
                            : unused ? Which::unused
                                     : Which::all,
                            request.flag("summary")};
  if (request.has("source") && !show->bySource)
    return reply(Answer::failed("bad-request", fmt::format("{} takes no source", what)));
  if (options.selects() && !show->selects)
    return reply(Answer::failed("bad-request", fmt::format("{} takes no selection of rules", what)));
  if (options.summary && !show->sumsUp)
    return reply(Answer::failed("bad-request", fmt::format("{} has no summary", what)));
  if (hit && unused) return reply(Answer::failed("bad-request", "a rule cannot have matched and be unused"));
  if (auto none = whyNoSelection(world_, configuration_.sources(), options))
    return reply(Answer::failed("not-found", *none));
  const auto tell = [this, show, options, reply] { reply({show->document(world_, options), {}}); };
  whenCounted([this, tell, needsFiles = show->needsFiles] {
    if (!needsFiles) return tell();
    configuration_.lookAtFiles(tell);
  });
}

void Operations::whenCounted(std::function<void()> then) const {
  if (!elsewhere_.gather) return then();
  elsewhere_.gather(std::move(then));
}

const Change* Operations::changeOf(const std::string& number) const {
  const auto known = Config::decimal(number);
  return known ? configuration_.history().find(*known) : nullptr;
}

void Operations::explain(const Request& request, Session&, const Reply& reply) {
  const std::string port = request.text("port");
  if (auto none = whyNoPort(world_, port)) return reply(Answer::failed("not-found", *none));
  const std::string text = request.text("frame");
  std::optional<Frame> frame;
  std::string wrong = "explain needs a frame of one octet or more";
  if (isFrameText(text)) {
    for (const char* member : {"wireLength", "etherType"}) {
      if (request.has(member))
        return reply(Answer::failed("bad-request", fmt::format("{} is for a frame in hexadecimal", member)));
    }
    frame = readFrameText(text, &wrong);
    if (frame && !frame->port.empty() && frame->port != port)
      return reply(Answer::failed("bad-request", fmt::format("the frame says on {}", frame->port)));
  } else if (auto octets = octetsOfHex(text); octets && !octets->empty()) {
    frame = Frame{std::move(*octets), request.number("wireLength").value_or(0)};
    const auto type = request.number("etherType");
    if (type && *type > 0xffff) return reply(Answer::failed("bad-request", "etherType is 0 to 65535"));
    if (type) frame->typeBefore = static_cast<uint16_t>(*type);
  }
  if (!frame) return reply(Answer::failed("bad-request", wrong));
  reply(Answer::of(explainer_.explain(port, *frame)));
}

void Operations::clear(const Request& request, Session&, const Reply& reply) {
  whenCounted([this, name = request.text("name"), reply] {
    const double now = Zeb::System::currentTime().seconds();
    if (name.empty()) {
      zero_.clear(world_.core, world_.forwarder, now);
    } else if (!zero_.clear(world_.core, Kelp::String(name), now)) {
      return reply(noList(world_.core, name));
    }
    reply(Answer::of({{"cleared", now}}));
  });
}

void Operations::trace(const Request& request, Session&, const Reply& reply) {
  const bool off = request.flag("off");
  const std::string fast = request.text("fast"), facility = request.text("facility");
  if (off + !fast.empty() + !facility.empty() != 1)
    return reply(Answer::failed("bad-request", "trace needs one of facility, off and fast"));
  if (request.has("on") && fast.empty())
    return reply(Answer::failed("bad-request", "trace takes \"on\" with fast only"));
  if (off) {
    Zeb::TraceHandle::disableAll();
  } else if (!fast.empty()) {
    if (const auto wrong = whyNoFastFacility(fast)) return reply(Answer::failed("bad-request", *wrong));
    if (!Blip::fastTraceIs(fast, request.flag("on")))
      return reply(Answer::failed("bad-request", "too many fast traces are on"));
  } else if (const auto wrong = Zeb::TraceHandle::enable(facility, whyNoFacility)) {
    return reply(Answer::failed("bad-request", *wrong));
  }
  reply(Answer::of(Json::object()));
}

}  // namespace Agent
