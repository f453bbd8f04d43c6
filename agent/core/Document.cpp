#include <agent/core/Document.h>
#include <agent/core/Version.h>
#include <fmt/format.h>

#include <algorithm>
#include <utility>

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

}  // namespace

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
