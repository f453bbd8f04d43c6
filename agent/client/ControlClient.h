#pragma once

#include <agent/core/Exit.h>
#include <nlohmann/json.hpp>

#include <optional>
#include <string>
#include <vector>

namespace Agent {

/// A connection of a command to a running agent. It waits for each answer; there is one request at a time.
class ControlClient {
 public:
  ControlClient() = default;
  ~ControlClient();
  ControlClient(const ControlClient&) = delete;
  ControlClient& operator=(const ControlClient&) = delete;

  /// Connects to the socket of an agent; returns what is wrong.
  std::optional<std::string> connect(const std::string& path);

  /// From now on the wait for an answer ends when this descriptor is readable. It is not owned.
  void stopIs(int fd) { stop_ = fd; }

  /// Sends a request and returns its answer, the object with `ok`. Nothing, with the reason in `wrong`, when
  /// the connection broke; with an empty reason when the wait has ended before.
  std::optional<nlohmann::ordered_json> ask(const nlohmann::ordered_json& request, std::string* wrong);

 private:
  bool send(const std::string& line);
  /// Waits until there is something to read; false when the wait has ended before.
  bool readable() const;

  std::string path_;
  int fd_ = -1;
  int stop_ = -1;
  std::string buffer_;
};

// For commands: what goes wrong is complained of, and `exit` is the exit status then.

/// Connects to the agent at a socket.
bool connected(ControlClient& agent, const std::string& path, Exit* exit);
/// Sends a request and returns the answer; nothing when the connection broke.
std::optional<nlohmann::ordered_json> answerOf(ControlClient& agent, const nlohmann::ordered_json& request,
                                               Exit* exit);
/// Tells of what the agent has refused: mistakes and warnings, if there are some, and the sentence.
void tellError(const nlohmann::ordered_json& error);
/// Sends a request and returns the document of its answer; nothing when the agent refused, or the connection
/// broke.
std::optional<nlohmann::ordered_json> documentOf(ControlClient& agent, const nlohmann::ordered_json& request,
                                                 Exit* exit);

/// The same without a complaint: what went wrong is in `wrong`. A document that says it is not whole, because
/// the configuration changed while it was made, is asked for again.
std::optional<nlohmann::ordered_json> wholeDocumentOf(ControlClient& agent,
                                                      const nlohmann::ordered_json& request,
                                                      std::string* wrong, Exit* exit);

/// The requests that send a text to the agent. Each one is short enough for a line of the protocol.
std::vector<nlohmann::ordered_json> textRequests(const std::string& name, const std::string& text);

}  // namespace Agent
