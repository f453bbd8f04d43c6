#pragma once

#include <Acl/Types.h>
#include <agent/log/LogEvent.h>
#include <agent/observe/FlowKey.h>

#include <array>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace Agent {

/// What one line tells about packets that a rule has matched. Plain values, which may be read on any thread.
struct MatchLine {
  std::string list;
  uint32_t sequence = 0;  ///< of the rule; 0: the list's implicit drop
  Acl::Action action = Acl::Action::deny;
  Acl::AclDirection direction = Acl::AclDirection::in;
  FlowKey flow{};
  uint64_t packets = 1;
  bool first = true;  ///< false: the packets are further ones of a flow that a line has told of
};

/// The messages that tell of matches: those that the plugin has in the catalogue of the system, with their
/// formats filled. Which words fill which field is in one table, which the documents are checked against.
class MatchMessages {
 public:
  /// What fills a field of a format: what it means, and its words. A word that stands for nothing is empty.
  struct Field {
    std::string_view meaning;
    std::string (*words)(const MatchLine& line);
  };
  struct Message {
    std::string_view name;
    std::string_view tells;  ///< of which matches
    std::span<const Field> fields;
  };
  static std::span<const Message> table();

  /// Reads the catalogue of this moment, and keeps nothing of it.
  MatchMessages();

  /// Why matches cannot be told, a sentence for each message that is not there or that has another number of
  /// fields. Such matches have no event.
  const std::vector<std::string>& wrong() const { return wrong_; }
  /// Adds the event of a line.
  void addTo(std::vector<LogEvent>& events, const MatchLine& line) const;

 private:
  struct Known {
    std::string format;  // empty: cannot be used
    Severity severity = Severity::info;
  };
  static constexpr size_t count = 4;

  std::array<Known, count> known_;
  std::vector<std::string> wrong_;
};

}  // namespace Agent
