#include <agent/control/Request.h>

namespace Agent {

using Json = nlohmann::ordered_json;

/// Takes the parser's events and ends it at the first that a flat object does not have.
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

Json Request::member(const std::string& name) const {
  const auto at = members_.find(name);
  return at == members_.end() ? Json() : at->second;
}

std::string Request::text(const std::string& name) const {
  const Json value = member(name);
  return value.is_string() ? value.get<std::string>() : "";
}

bool Request::flag(const std::string& name) const { return member(name) == true; }

std::optional<uint64_t> Request::number(const std::string& name) const {
  const Json value = member(name);
  if (!value.is_number_unsigned()) return std::nullopt;
  return value.get<uint64_t>();
}

}  // namespace Agent
