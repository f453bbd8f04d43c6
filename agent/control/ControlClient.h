#pragma once

#include <nlohmann/json.hpp>

#include <optional>
#include <string>
#include <vector>

namespace Agent {

/// A connection of the program to a running agent. Waits for the agent; one request at a time.
class ControlClient {
 public:
  ControlClient() = default;
  ~ControlClient();
  ControlClient(const ControlClient&) = delete;
  ControlClient& operator=(const ControlClient&) = delete;

  /// Connects to the socket of an agent; returns what is wrong.
  std::optional<std::string> connect(const std::string& path);

  /// Sends a request and waits for its answer, the object with `ok`; nothing, with what is wrong, when the
  /// connection broke.
  std::optional<nlohmann::ordered_json> ask(const nlohmann::ordered_json& request, std::string* wrong);

 private:
  bool send(const std::string& line);

  std::string path_;
  int fd_ = -1;
  std::string buffer_;
};

/// The requests that carry a text to the agent, each within the length of a line.
std::vector<nlohmann::ordered_json> textRequests(const std::string& name, const std::string& text);

}  // namespace Agent
