#include <Kelp/Assert.h>
#include <agent/control/Request.h>
#include <fmt/format.h>

#include <algorithm>
#include <limits>

namespace Agent {

using Json = nlohmann::ordered_json;

/// Receives the events of the JSON parser, and stops it at the first one that a flat object does not have.
class RequestReader final : public nlohmann::json_sax<Json> {
 public:
  std::string wrong;
  Request request;

  bool null() override { return put(nullptr); }
  bool boolean(bool value) override { return put(value); }
  bool number_integer(number_integer_t value) override { return put(value); }
  bool number_unsigned(number_unsigned_t value) override { return put(value); }
  bool number_float(number_float_t value, const string_t&) override { return put(value); }
  bool string(string_t& value) override { return put(std::move(value)); }
  bool binary(binary_t&) override { return fail("binary data"); }
  bool start_object(size_t) override {
    if (inside_) return fail("an object inside the request");
    inside_ = true;
    return true;
  }
  bool end_object() override { return true; }
  bool start_array(size_t) override { return fail("an array"); }
  bool end_array() override { return true; }
  bool key(string_t& value) override {
    key_ = std::move(value);
    return true;
  }
  bool parse_error(size_t place, const std::string&, const nlohmann::detail::exception&) override {
    wrong = "no JSON at octet " + std::to_string(place);
    return false;
  }

 private:
  template <class Value>
  bool put(Value&& value) {
    if (!inside_) return fail("no object");
    if (request.members_.size() == Request::mostMembers) return fail("too many members");
    if (!request.members_.emplace(std::move(key_), std::forward<Value>(value)).second)
      return fail("a member twice");
    return true;
  }
  bool fail(const char* what) {
    wrong = std::string("a request is one flat object, found ") + what;
    return false;
  }

  bool inside_ = false;
  std::string key_;
};

std::optional<Request> Request::read(std::string_view line, std::string* wrong) {
  RequestReader reader;
  if (!Json::sax_parse(line.begin(), line.end(), &reader)) {
    *wrong = reader.wrong;
    return std::nullopt;
  }
  return std::move(reader.request);
}

namespace {

bool isOfKind(const Json& value, MemberKind kind) {
  switch (kind) {
    case MemberKind::text:
      return value.is_string();
    case MemberKind::name:
      return value.is_string() && !value.get_ref<const std::string&>().empty();
    case MemberKind::flag:
      return value.is_boolean();
    case MemberKind::number:
      return value.is_number_unsigned() && value.get<uint64_t>() <= std::numeric_limits<uint32_t>::max();
    case MemberKind::anything:
      return true;
  }
  return false;
}

/// Describes a value that was not expected.
std::string foundText(const Json& value) {
  if (!value.is_string()) return value.dump();
  return value.get_ref<const std::string&>().empty() ? "an empty text" : "a text";
}

const RequestMember* declarationOf(std::span<const RequestMember> members, std::string_view name) {
  const auto at = std::find_if(members.begin(), members.end(),
                               [name](const RequestMember& member) { return member.name == name; });
  return at == members.end() ? nullptr : &*at;
}

}  // namespace

std::string_view kindText(MemberKind kind) {
  switch (kind) {
    case MemberKind::text:
      return "a text";
    case MemberKind::name:
      return "a text that is not empty";
    case MemberKind::flag:
      return "true or false";
    case MemberKind::number:
      return "a whole number from 0 to 4294967295";
    case MemberKind::anything:
      return "anything";
  }
  return "";
}

std::optional<std::string> Request::wrongIn(const RequestMember& member) const {
  const auto at = members_.find(member.name);
  if (at == members_.end()) {
    if (!member.required()) return std::nullopt;
    return fmt::format("the member \"{}\" is missing: {}", member.name, member.meaning);
  }
  if (isOfKind(at->second, member.kind)) return std::nullopt;
  return fmt::format("the member \"{}\" is to be {}, found {}", member.name, kindText(member.kind),
                     foundText(at->second));
}

std::optional<std::string> Request::check(std::span<const RequestMember> members) {
  for (const auto& [name, value] : members_) {
    if (!declarationOf(members, name)) return fmt::format("there is no member \"{}\"", name);
  }
  for (const RequestMember& member : members) {
    if (auto wrong = wrongIn(member)) return wrong;
  }
  declared_ = members;
  return std::nullopt;
}

Json Request::member(std::string_view name) const {
  const auto at = members_.find(name);
  return at == members_.end() ? Json() : at->second;
}

Json Request::valueOf(std::string_view name, std::initializer_list<MemberKind> kinds) const {
  const RequestMember* declared = declarationOf(declared_, name);
  KELP_ASSERT(declared && std::find(kinds.begin(), kinds.end(), declared->kind) != kinds.end(),
              fmt::format("a member {} that is asked for is declared so", name));
  return has(name) ? member(name) : Json::parse(declared->otherwise);
}

std::string Request::text(std::string_view name) const {
  const Json value = valueOf(name, {MemberKind::text, MemberKind::name});
  return value.is_null() ? "" : value.get<std::string>();
}

bool Request::flag(std::string_view name) const { return valueOf(name, {MemberKind::flag}) == true; }

std::optional<uint32_t> Request::number(std::string_view name) const {
  const Json value = valueOf(name, {MemberKind::number});
  return value.is_null() ? std::nullopt : std::optional(value.get<uint32_t>());
}

}  // namespace Agent
