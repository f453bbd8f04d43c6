// Clients of the control protocol that send whatever they like: requests whole and in pieces, alone and many
// at a time, wrong ones, and octets. Whatever is answered is an answer, and who asks properly is served all
// the while.

#include "../tests/agent/config/RandomText.h"
#include "../tests/agent/support/RunningAgent.h"
#include "Target.h"

#include <Blip/FastTrace.h>
#include <Zeb/TraceHandle.h>

namespace {

using Fuzz::Dice;
using TestSupport::Json;
using TestSupport::RunningAgent;
using TestSupport::SocketClient;

constexpr const char* operations[] = {"show", "text", "apply", "explain", "clear", "trace", "nothing"};
constexpr const char* shows[] = {
    "drops", "access-lists", "interfaces", "status", "counters", "capabilities",    "ports",
    "tasks", "log-messages", "trace",      "what",   "bridge",   "trace-facilities"};
constexpr const char* frames[] = {"tcp 192.0.2.1:1234 > 198.51.100.7:443 syn vlan 5",
                                  "icmp 10.0.0.1 > 10.0.0.2 echo",
                                  "02000000000102000000000208004500",
                                  "udp 2001:db8::1:5 > 2001:db8::2:6",
                                  "",
                                  "ipv6 ::1 > ::2 protocol tcp, later fragment 9, headers ah, 99 octets",
                                  "type 0x0806, no ethernet header, 28 octets"};
constexpr const char* facilities[] = {"Velo::Acl/9", "Velo::Acl/0,Nothing/3", "Velo::Acl", "/",
                                      "Velo::Acl/10"};

/// What the documentation says of the members of requests.
struct Member {
  std::string_view operation, name;
  bool isNeeded;
  bool (*fits)(const Json& value);
};
bool isText(const Json& value) { return value.is_string(); }
bool isName(const Json& value) { return value.is_string() && value != ""; }
bool isFlag(const Json& value) { return value.is_boolean(); }
bool isCount(const Json& value) { return value.is_number_unsigned() && value <= 4294967295u; }
constexpr Member known[] = {
    {"show", "what", true, isName},
    {"show", "name", false, isName},
    {"show", "interface", false, isName},
    {"show", "source", false, isName},
    {"show", "hit", false, isFlag},
    {"show", "unused", false, isFlag},
    {"explain", "etherType", false, isCount},
    {"text", "name", true, isName},
    {"text", "text", true, isText},
    {"apply", "dryRun", false, isFlag},
    {"explain", "port", true, isName},
    {"explain", "frame", true, isText},
    {"explain", "wireLength", false, isCount},
    {"clear", "name", false, isName},
    {"trace", "facility", false, isName},
    {"trace", "off", false, isFlag},
    {"trace", "fast", false, isName},
    {"trace", "on", false, isFlag},
};

/// Whether a request has a member that it cannot have, one with a value that does not fit, or lacks one, or
/// asks for what there is not.
bool isWrong(const Json& request) {
  if (!request.contains("do")) return true;
  bool isKnown = false;
  size_t right = 1;
  for (const Member& member : known) {
    if (request["do"] != member.operation) continue;
    isKnown = true;
    const auto value = request.find(member.name);
    if (value == request.end() ? member.isNeeded : !member.fits(*value)) return true;
    right += value != request.end();
  }
  return !isKnown || right != request.size();
}

/// What answers to wrong requests come back with: no damage to another request makes it.
constexpr const char* wrongId = "of a wrong request";

Json someValue(Dice& dice) {
  switch (dice.below(8)) {
    case 0:
      return "A";
    case 1:
      return dice.of(shows);
    case 2:
      return dice.of(frames);
    case 3:
      return dice.once(2);
    case 4:
      return dice.below(2000);
    case 5:
      return nullptr;
    case 6:
      return -1.5e300;
    default:
      return Json{{"deep", Json::array({1})}};
  }
}

Json someRequest(Dice& dice, int id) {
  const char* operation = dice.of(operations);
  Json request{{"do", operation}};
  const std::string_view name = operation;
  if (name == "show") request["what"] = dice.of(shows);
  if (name == "text") request["name"] = "t", request["text"] = Config::randomText(dice, dice.once(4));
  if (name == "explain") request["port"] = "eth1", request["frame"] = dice.of(frames);
  if (name == "apply") request["dryRun"] = dice.once(2);
  if (name == "trace") {
    constexpr const char* ways[] = {"off", "fast", "facility"};
    const std::string_view way = dice.of(ways);
    request[std::string(way)] = way == "off" ? Json(true) : Json(way == "fast" ? "A" : dice.of(facilities));
  }
  // Members of other operations, too, but mostly its own: what is wrong with one is to be all that is wrong.
  for (auto more = dice.once(4) ? 1 + dice.below(3) : 0; more > 0; --more) {
    const Member& member = dice.of(known);
    if (member.operation == name || dice.once(4)) request[std::string(member.name)] = someValue(dice);
  }
  if (dice.once(32)) request["x"] = someValue(dice);
  if (dice.once(16)) request.erase(request.begin());
  const bool wrong = isWrong(request);
  request["id"] = id;
  if (wrong) request["id"] = wrongId;
  return request;
}

/// One client: what it has sent that is not yet answered, and what is still to be sent.
class Client {
 public:
  explicit Client(RunningAgent& agent) : socket_(agent) {}

  void go(Dice& dice, int id) {
    Json request = someRequest(dice, id);
    const uint64_t damage = dice.below(8);
    if (damage == 0) request["id"] = id;  // it may become a right one
    std::string line = Agent::lineOf(request) + "\n";
    switch (damage) {
      case 0:  // octets
        line = Config::mutated(std::move(line), dice);
        break;
      case 1:  // a piece; the rest comes, or something else instead
        line.resize(dice.below(line.size()));
        break;
      case 2:
        line.assign(dice.below(80000), static_cast<char>(dice.below(256)));
        break;
      default:
        break;
    }
    toSend_ += line;
    send();
  }
  void send() {
    const size_t most = std::min<size_t>(toSend_.size(), 4096);
    toSend_.erase(0, socket_.send(std::string_view(toSend_).substr(0, most)));
  }
  void receive() {
    socket_.receive();
    const std::string& text = socket_.arrived();
    for (size_t end; (end = text.find('\n', checked_)) != std::string::npos; checked_ = end + 1)
      requireAnswer(text.substr(checked_, end - checked_));
  }

 private:
  static void requireAnswer(const std::string& line) {
    const Json answer = Json::parse(line, nullptr, false);
    Fuzz::require(
        answer.is_object() && answer.contains("id") && answer.contains("ok") && answer["ok"].is_boolean(),
        line);
    Fuzz::require(answer["id"] != wrongId || !answer["ok"].get<bool>(), line);
    Fuzz::require(answer.contains("document") == answer["ok"].get<bool>(), line);
    Fuzz::require(answer.contains("error") != answer["ok"].get<bool>(), line);
    if (answer.contains("error")) {
      Fuzz::require(answer["error"]["code"].is_string() && answer["error"]["text"].is_string(), line);
    }
  }

  SocketClient socket_;
  std::string toSend_;
  size_t checked_ = 0;
};

}  // namespace

void Fuzz::run(Dice& dice) {
  RunningAgent agent;
  Agent::ControlLimits limits = TestSupport::unhurriedLimits();
  limits.clients = 4;
  agent.start("ip access-list A\n permit ip any any\ninterface eth1\n ip access-group A in\n", nullptr,
              limits);
  agent.patch("eth1", "eth2");
  std::vector<std::unique_ptr<Client>> clients;
  for (int id = 1; id < 40 && dice.more(); ++id) {
    if (clients.empty() || dice.once(6)) clients.push_back(std::make_unique<Client>(agent));
    Client& client = *clients[dice.below(clients.size())];
    client.go(dice, id);
    for (auto turns = dice.below(6); turns > 0; --turns) agent.turns(1);
    if (dice.once(4)) agent.advance(0.01);
    if (dice.once(3)) agent.receive("eth1", TestSupport::udpTo(static_cast<uint16_t>(50 + dice.below(8))));
    if (dice.once(32)) agent.advance(20);
    for (const auto& each : clients) each->send(), each->receive();
    if (dice.once(12)) clients.erase(clients.begin());
    require(agent.plane().server().clientCount() <= limits.clients, "more clients than are allowed");
    require(agent.plane().server().heldOctets() <= limits.clients * (limits.line + limits.answer) * 2,
            "more octets than are allowed");
  }
  for (int round = 0; round < 20; ++round) {
    agent.advance(0.01);
    for (const auto& each : clients) each->send(), each->receive();
  }
  clients.clear();
  agent.turns(20);
  SocketClient good(agent);
  good.send("{\"do\":\"show\",\"what\":\"ports\",\"id\":0}\n");
  const std::string line = good.line();
  require(line.find("\"id\":0,\"ok\":true") != std::string::npos,
          [&] { return "no answer for a good client: " + line; });
  // Switches hold for the life of the process.
  Zeb::TraceHandle::disableAll();
  Blip::fastTraceIs("A", false);
}
