#include "RunningAgent.h"

#include "Schema.h"

#include <agent/change/Apply.h>
#include <agent/control/ServerSocket.h>
#include <sys/socket.h>
#include <unistd.h>

#include "CaptureBytes.h"

#include <cerrno>
#include <chrono>
#include <filesystem>
#include <optional>

namespace TestSupport {

namespace {

/// Of real time: for who waits for a thread on a machine that has other work, with sanitizers.
constexpr std::chrono::seconds patience{100};

}  // namespace

RunningAgent::RunningAgent()
    : loop_(std::make_unique<Agent::EventLoop>(clock_, wall_)),
      core_(std::make_unique<Agent::Core>()),
      forwarder_(std::make_unique<Agent::Forwarder>(*core_, Velo::MalformedPolicy::drop)) {
  const auto refusal = core_->loadPlugin(std::string(VELO_BIN_DIR) + "/VeloAcl.so");
  EXPECT_FALSE(refusal) << *refusal;
}

RunningAgent::~RunningAgent() {
  session_.reset();
  plane_.reset();
}

void RunningAgent::start(const std::string& text, const std::map<std::string, std::string>* dir,
                         Agent::ControlLimits limits) {
  writeFile(temp_ / "start.acl", text);
  if (dir) std::filesystem::create_directory(dirPath());
  for (const auto& [name, content] : dir ? *dir : std::map<std::string, std::string>())
    putFile(name, content);
  Agent::ConfigFiles files;
  const auto mistakes = files.read({temp_ / "start.acl"}, dir ? dirPath() : "");
  EXPECT_TRUE(mistakes.empty()) << mistakes.front();
  const auto wrong = Agent::putInForce(*core_, files.sources());
  EXPECT_FALSE(wrong) << *wrong;
  forwarder_->portsOfConfigurationIs();
  turns();
  EXPECT_FALSE(core_->inForce().unpublished());
  Agent::ControlOptions options;
  options.socket = socketPath();
  options.configDir = dir ? dirPath() : "";
  options.texts = textLimits_;
  options.limits = limits;
  options.leave = leave_;
  options.ports = ports_;
  options.filtered = std::make_shared<const Agent::FilteredPorts>(
      Agent::changeWarnings({}, files.sources().layers(), ports_ ? &*ports_ : nullptr).filtered);
  if (portStates_) options.portStates = [this] { return *portStates_; };
  options.configs = {temp_ / "start.acl"};
  options.configs.insert(options.configs.end(), furtherConfigs.begin(), furtherConfigs.end());
  options.journal = journal_;
  options.partners = partners_;
  if (workers_) options.workers = [this] { return *workers_; };
  options.past = past_;
  options.tell = [this](const Agent::LogEvent& event) { log_.push_back(event.text); };
  plane_ = std::make_unique<Agent::ControlPlane>(*core_, *forwarder_, *loop_, std::move(files),
                                                 std::move(options));
  const auto deaf = plane_->listen();
  EXPECT_FALSE(deaf) << *deaf;
}

void RunningAgent::patch(const char* a, const char* b) {
  const auto wrong = forwarder_->patchIs(a, b);
  ASSERT_FALSE(wrong) << *wrong;
}

void RunningAgent::bridge(const std::vector<std::string>& names) {
  const auto wrong = forwarder_->bridgeIs(names, clock_);
  ASSERT_FALSE(wrong) << *wrong;
}

Agent::Session& RunningAgent::session() {
  if (!session_) session_ = std::make_unique<Agent::Session>(plane_->operations());
  return *session_;
}

Json RunningAgent::ask(const Json& request, Agent::Session& from, bool mayChange) {
  std::string wrong;
  const auto read = Agent::Request::read(Agent::lineOf(request), &wrong);
  if (!read) return {{"error", {{"code", "unread"}, {"text", wrong}}}};
  std::optional<Json> result;
  const auto answered = std::make_shared<bool>(false);
  plane_->operations().handle(*read, from, mayChange, [&result, &request, answered](Agent::Answer answer) {
    EXPECT_FALSE(*answered) << "one answer a request";
    *answered = true;
    if (!answer.document) {
      result = Json{{"error", answer.error}};
      return;
    }
    std::string text;
    while (answer.document->next(text)) {
    }
    result = Json::parse(text);
    expectOfSchema(kindOf(request), *result);
  });
  turnsUntil([&] { return result.has_value(); });
  return result.value_or(Json());
}

Json RunningAgent::show(const char* what, const std::string& name) {
  Json request = {{"do", "show"}, {"what", what}};
  if (!name.empty()) request["name"] = name;
  return ask(request);
}

Json RunningAgent::apply(const std::string& text, bool dryRun) {
  const Json taken = ask({{"do", "text"}, {"name", "new.acl"}, {"text", text}});
  EXPECT_FALSE(taken.contains("error")) << taken;
  return ask({{"do", "apply"}, {"dryRun", dryRun}, {"allowOpen", leave_.openings}});
}

Agent::Verdict RunningAgent::receive(const char* port, const Bytes& frame) {
  forwarder_->packet().assign(frame, static_cast<uint32_t>(frame.size()), 1.0);
  return forwarder_->receive(forwarder_->portIs(port));
}

void RunningAgent::turns(int count) {
  for (int i = 0; i < count; ++i) loop_->turn(0);
}

void RunningAgent::turnsUntil(const std::function<bool()>& done) {
  const auto end = std::chrono::steady_clock::now() + patience;
  // The waiting is for another thread, whose end wakes the loop.
  while (!done() && std::chrono::steady_clock::now() < end) loop_->turn(1);
  EXPECT_TRUE(done()) << "nothing came of it";
}

void RunningAgent::pass(double seconds) {
  clock_.advance(Kelp::Duration(seconds));
  wall_.advance(Kelp::Duration(seconds));
}

void RunningAgent::advance(double seconds) {
  pass(seconds);
  turns();
}

void RunningAgent::putFile(const std::string& name, const std::string& text) {
  writeFile(temp_ / "aside", text);
  std::filesystem::rename(temp_ / "aside", dirPath() + "/" + name);
}

Agent::ControlLimits unhurriedLimits() {
  Agent::ControlLimits limits;
  limits.strangerShare = limits.clientShare = 1;
  limits.strangerBurst = limits.clientBurst = Kelp::Duration(1e6);
  return limits;
}

SocketClient::SocketClient(RunningAgent& agent) : agent_(agent) {
  std::string wrong;
  fd_ = Agent::connectTo(agent.socketPath(), false, &wrong);
  EXPECT_GE(fd_, 0) << wrong;
}

SocketClient::~SocketClient() { close(fd_); }

size_t SocketClient::send(std::string_view text) {
  const ssize_t sent = ::send(fd_, text.data(), text.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
  return sent < 0 ? 0 : static_cast<size_t>(sent);
}

void SocketClient::receive() {
  char piece[64 * 1024];
  for (;;) {
    const ssize_t got = recv(fd_, piece, sizeof piece, MSG_DONTWAIT);
    if (got == 0 || (got < 0 && errno != EAGAIN)) closed_ = true;
    if (got <= 0) return;
    arrived_.append(piece, static_cast<size_t>(got));
  }
}

std::string SocketClient::line() {
  const auto end = std::chrono::steady_clock::now() + patience;
  for (int i = 0; i < 2000 || std::chrono::steady_clock::now() < end; ++i) {
    receive();
    if (const size_t lineEnd = arrived_.find('\n'); lineEnd != std::string::npos) {
      std::string text = arrived_.substr(0, lineEnd);
      arrived_.erase(0, lineEnd + 1);
      return text;
    }
    if (closed_) return "";
    agent_.loop().turn(1);
    if (i % 100 == 99) agent_.advance(0.01);
  }
  return "";
}

bool SocketClient::closed() {
  agent_.turns(20);
  receive();
  return closed_;
}

}  // namespace TestSupport
