#pragma once

#include <cstdint>
#include <map>
#include <nlohmann/json.hpp>
#include <optional>
#include <span>
#include <string>
#include <string_view>

namespace Agent {

/// What kind of value a member of a request has.
enum class MemberKind : uint8_t {
  text,
  name,      ///< a text that is not empty
  flag,      ///< true or false
  number,    ///< a whole number of 32 bits
  anything,  ///< any value that a flat object can have
};

/// Declares a member that a request may have.
struct RequestMember {
  std::string_view name;
  MemberKind kind;
  /// Its value when it was not sent, as JSON ("null": none). Empty: it must be sent.
  std::string_view otherwise;
  std::string_view meaning;  ///< for the documentation

  bool required() const { return otherwise.empty(); }
};

/// A kind for people: "a text", "true or false".
std::string_view kindText(MemberKind kind);

/// A request of the control protocol: one flat JSON object whose members are texts, numbers, booleans or
/// null. Flatness is what keeps reading it cheap whatever a client sends.
class Request {
 public:
  static constexpr size_t mostMembers = 16;

  /// Reads one line. Nothing, with the reason in `wrong`, when it is not such an object, or has a member
  /// twice.
  static std::optional<Request> read(std::string_view line, std::string* wrong);

  /// What is wrong with a member in this request: it is missing, or of another kind. Nothing if it is right.
  std::optional<std::string> wrongIn(const RequestMember& member) const;
  /// What is wrong in this request, by the declarations of its members; a member that is not declared is
  /// wrong, too. When it returns nothing the members can be read. `members` outlives the request.
  std::optional<std::string> check(std::span<const RequestMember> members);

  // The functions below are for members that were declared, with that kind, when the request was checked. A
  // member that was not sent has the value that its declaration says.

  /// A text or a name; empty when it has no value.
  std::string text(std::string_view name) const;
  bool flag(std::string_view name) const;
  std::optional<uint32_t> number(std::string_view name) const;
  /// True when it was sent.
  bool has(std::string_view name) const { return members_.contains(name); }
  /// The member as it was sent; null when it was not. Also for a request that was not checked.
  nlohmann::ordered_json member(std::string_view name) const;

 private:
  friend class RequestReader;
  nlohmann::ordered_json valueOf(std::string_view name, std::initializer_list<MemberKind> kinds) const;

  std::map<std::string, nlohmann::ordered_json, std::less<>> members_;
  std::span<const RequestMember> declared_;
};

}  // namespace Agent
