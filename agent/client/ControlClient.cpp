#include <agent/client/ControlClient.h>
#include <agent/control/ServerSocket.h>
#include <agent/core/Document.h>
#include <agent/core/Output.h>
#include <agent/core/Words.h>
#include <agent/warnings/WarningText.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <iterator>

namespace Agent {

using Json = nlohmann::ordered_json;

ControlClient::~ControlClient() {
  if (fd_ >= 0) close(fd_);
}

std::optional<std::string> ControlClient::connect(const std::string& path) {
  path_ = path;
  std::string wrong;
  fd_ = connectTo(path, true, &wrong);
  if (fd_ >= 0) return std::nullopt;
  if (errno == ECONNREFUSED || errno == ENOENT) wrong += " (is the agent running?)";
  if (errno == EACCES) wrong += " (the agent is for root and the group of its socket)";
  return wrong;
}

bool ControlClient::send(const std::string& line) {
  for (size_t at = 0; at < line.size();) {
    const ssize_t sent = ::send(fd_, line.data() + at, line.size() - at, MSG_NOSIGNAL);
    if (sent < 0 && errno == EINTR) continue;
    if (sent <= 0) return false;
    at += static_cast<size_t>(sent);
  }
  return true;
}

bool ControlClient::readable() const {
  if (stop_ < 0) return true;
  pollfd waited[] = {{fd_, POLLIN, 0}, {stop_, POLLIN, 0}};
  while (poll(waited, std::size(waited), -1) < 0 && errno == EINTR) {
  }
  return waited[1].revents == 0;
}

std::optional<Json> ControlClient::ask(const Json& request, std::string* wrong) {
  // Read an answer even when the request could not be sent: an agent that hangs up says why before.
  const int unsent = send(lineOf(request) + "\n") ? 0 : errno;
  size_t searched = 0;
  for (;;) {
    const size_t end = buffer_.find('\n', searched);
    if (end != std::string::npos) {
      auto answer = readDocument(std::string_view(buffer_).substr(0, end));
      buffer_.erase(0, end + 1);
      if (answer && answer->is_object() && answer->contains("ok")) return answer;
      *wrong = path_ + ": what listens there is no agent";
      return std::nullopt;
    }
    searched = buffer_.size();
    if (!readable()) {
      wrong->clear();
      return std::nullopt;
    }
    char piece[64 * 1024];
    const ssize_t got = recv(fd_, piece, sizeof piece, 0);
    if (got < 0 && errno == EINTR) continue;
    if (got <= 0) {
      // With octets of a request that it has not read, closing is told as a reset; before the request, as a
      // pipe that is broken.
      const bool hears = unsent == 0 || unsent == EPIPE || unsent == ECONNRESET;
      const bool closed = hears && (got == 0 || errno == ECONNRESET);
      *wrong = closed ? path_ + ": the agent closed the connection" : failureOf(path_);
      return std::nullopt;
    }
    buffer_.append(piece, static_cast<size_t>(got));
  }
}

bool connected(ControlClient& agent, const std::string& path, Exit* exit) {
  const auto wrong = agent.connect(path);
  if (!wrong) return true;
  complain(*wrong);
  *exit = exitUnread;
  return false;
}

std::optional<Json> answerOf(ControlClient& agent, const Json& request, Exit* exit) {
  std::string wrong;
  auto answer = agent.ask(request, &wrong);
  if (answer) return answer;
  complain(wrong);
  *exit = exitUnread;
  return std::nullopt;
}

void tellError(const Json& error) {
  tellMistakes(error);
  if (error.contains("warnings")) fmt::print(stderr, "{}", warningsText(error.at("warnings")));
  complain(error.at("text").get<std::string>());
}

std::optional<Json> documentOf(ControlClient& agent, const Json& request, Exit* exit) {
  const auto answer = answerOf(agent, request, exit);
  if (!answer) return std::nullopt;
  if (answer->at("ok") == true) return answer->at("document");
  tellError(answer->at("error"));
  *exit = exitUsage;
  return std::nullopt;
}

std::optional<Json> wholeDocumentOf(ControlClient& agent, const Json& request, std::string* wrong,
                                    Exit* exit) {
  constexpr int mostTries = 100;
  for (int tries = 0; tries < mostTries; ++tries) {
    auto answer = agent.ask(request, wrong);
    if (!answer || answer->at("ok") != true) {
      if (answer) *wrong = answer->at("error").at("text").get<std::string>();
      *exit = answer ? exitUsage : exitUnread;
      return std::nullopt;
    }
    Json& document = answer->at("document");
    if (!document.is_object() || document.value("whole", true)) return std::move(document);
  }
  *wrong = "the configuration changes all the time";
  *exit = exitUnread;
  return std::nullopt;
}

std::vector<Json> textRequests(const std::string& name, const std::string& text) {
  // In JSON an octet becomes at most six ("\u001f"), and a line has at most 65,536.
  constexpr size_t most = 8 * 1024;
  std::vector<Json> requests;
  size_t at = 0;
  do {
    size_t end = std::min(text.size(), at + most);
    // Do not cut within a character (RFC 3629, 3).
    while (end < text.size() && end > at + 1 && (static_cast<unsigned char>(text[end]) & 0xc0) == 0x80) --end;
    requests.push_back({{"do", "text"}, {"name", name}, {"text", text.substr(at, end - at)}});
    at = end;
  } while (at < text.size());
  return requests;
}

}  // namespace Agent
