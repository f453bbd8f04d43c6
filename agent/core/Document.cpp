#include <agent/core/Document.h>
#include <agent/core/Version.h>
#include <fmt/format.h>

#include <algorithm>
#include <utility>
#include <vector>

namespace Agent {

using Json = nlohmann::ordered_json;

namespace {

class LineDocument final : public Document {
 public:
  explicit LineDocument(std::string line) : line_(std::move(line)) {}
  bool next(std::string& text) override {
    text += std::string_view(line_).substr(at_, pieceOctets);
    at_ = std::min(line_.size(), at_ + pieceOctets);
    return at_ < line_.size();
  }

 private:
  const std::string line_;
  size_t at_ = 0;
};

/// Puts a document together from what the parser tells.
class DocumentReader final : public nlohmann::json_sax<Json> {
 public:
  bool null() override { return put(nullptr); }
  bool boolean(bool value) override { return put(value); }
  bool number_integer(number_integer_t value) override { return put(value); }
  bool number_unsigned(number_unsigned_t value) override { return put(value); }
  bool number_float(number_float_t value, const string_t&) override { return put(value); }
  bool string(string_t& value) override { return put(std::move(value)); }
  bool binary(binary_t& value) override { return put(std::move(value)); }
  bool start_object(size_t) override { return open(Json::object()); }
  bool start_array(size_t) override { return open(Json::array()); }
  bool key(string_t& name) override {
    name_ = std::move(name);
    return true;
  }
  bool end_object() override { return close(); }
  bool end_array() override { return close(); }
  bool parse_error(size_t, const std::string&, const nlohmann::detail::exception&) override { return false; }

  Json root;

 private:
  bool put(Json value) {
    add(std::move(value));
    return true;
  }
  bool open(Json value) {
    open_.push_back(add(std::move(value)));
    return true;
  }
  bool close() {
    open_.pop_back();
    return true;
  }
  /// What is open stays where it is, because only the last of them grows.
  Json* add(Json&& value) {
    if (open_.empty()) return &(root = std::move(value));
    Json& in = *open_.back();
    if (in.is_array()) return &in.get_ref<Json::array_t&>().emplace_back(std::move(value));
    return &in.get_ref<Json::object_t&>().emplace_back(std::move(name_), std::move(value)).second;
  }

  std::vector<Json*> open_;
  std::string name_;
};

}  // namespace

std::optional<Json> readDocument(std::string_view text) {
  DocumentReader reader;
  if (!Json::sax_parse(text.begin(), text.end(), &reader)) return std::nullopt;
  return std::move(reader.root);
}

std::string lineOf(const Json& json) { return json.dump(-1, ' ', false, Json::error_handler_t::replace); }

std::string documentLineOf(const Json& object) {
  std::string text = lineOf(object) + "\n";
  return text.insert(1, fmt::format("\"version\":\"{}\"{}", version(), object.empty() ? "" : ","));
}

std::string linesOf(const Json& json) {
  std::string text = json.dump(2, ' ', false, Json::error_handler_t::replace) + "\n";
  if (json.is_object())
    text.insert(1, fmt::format("\n  \"version\": \"{}\"{}", version(), json.empty() ? "\n" : ","));
  return text;
}

std::unique_ptr<Document> lineDocument(std::string line) {
  return std::make_unique<LineDocument>(std::move(line));
}

std::unique_ptr<Document> wholeDocument(const Json& json) { return lineDocument(lineOf(json)); }

}  // namespace Agent
