#pragma once

#include <cstdint>
#include <map>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <string_view>

namespace Agent {

/// A request of the control protocol: one flat JSON object whose members are texts, numbers, booleans or
/// null. Flatness is what keeps reading it cheap whatever a client sends.
class Request {
 public:
  static constexpr size_t mostMembers = 16;

  /// Reads one line; nothing, with what is wrong, for anything else, also for a member that comes twice.
  static std::optional<Request> read(std::string_view line, std::string* wrong);

  /// A text; empty when there is none of that name, or it is not a text.
  std::string text(const std::string& name) const;
  bool flag(const std::string& name) const;
  std::optional<uint64_t> number(const std::string& name) const;
  bool has(const std::string& name) const { return members_.contains(name); }
  /// The member as it is, null when there is none.
  nlohmann::ordered_json member(const std::string& name) const;

 private:
  friend class RequestReader;
  std::map<std::string, nlohmann::ordered_json> members_;
};

}  // namespace Agent
