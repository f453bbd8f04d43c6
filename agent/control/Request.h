#pragma once

#include <cstdint>
#include <map>
#include <nlohmann/json.hpp>
#include <optional>
#include <span>
#include <string>
#include <string_view>

namespace Agent {

/// What a member of a request may be.
enum class MemberKind : uint8_t {
  text,
  name,      ///< a text that is not empty
  flag,      ///< true or false
  number,    ///< a whole number of 32 bits
  anything,  ///< whatever a flat object can have
};

/// The declaration of a member that a request may have.
struct RequestMember {
  std::string_view name;
  MemberKind kind;
  /// What it is when it was not sent, as JSON: "null" when it then is nothing. Empty: the request needs it.
  std::string_view otherwise;
  std::string_view meaning;  ///< for the documentation

  bool required() const { return otherwise.empty(); }
};

/// Of a kind, for people: "a text", "true or false".
std::string_view kindText(MemberKind kind);

/// A request of the control protocol: one flat JSON object whose members are texts, numbers, booleans or
/// null. Flatness is what keeps reading it cheap whatever a client sends.
class Request {
 public:
  static constexpr size_t mostMembers = 16;

  /// Reads one line; nothing, with what is wrong, for anything else, also for a member that comes twice.
  static std::optional<Request> read(std::string_view line, std::string* wrong);

  /// What is wrong in this request with a member: it is missing, or of another kind.
  std::optional<std::string> wrongIn(const RequestMember& member) const;
  /// What of this request is not as declared, a member that `members` does not have included. When nothing
  /// is, the members can be asked for. The declaration outlives the request.
  std::optional<std::string> check(std::span<const RequestMember> members);

  // What is asked for below is declared, with that kind, in what the request was checked against. A member
  // that was not sent is what its declaration says.

  /// A text or a name; empty when it is nothing.
  std::string text(std::string_view name) const;
  bool flag(std::string_view name) const;
  std::optional<uint32_t> number(std::string_view name) const;
  /// True when it was sent.
  bool has(std::string_view name) const { return members_.contains(name); }
  /// The member as it was sent, null when it was not, checked or not.
  nlohmann::ordered_json member(std::string_view name) const;

 private:
  friend class RequestReader;
  nlohmann::ordered_json valueOf(std::string_view name, std::initializer_list<MemberKind> kinds) const;

  std::map<std::string, nlohmann::ordered_json, std::less<>> members_;
  std::span<const RequestMember> declared_;
};

}  // namespace Agent
