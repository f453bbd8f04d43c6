#include <agent/models/Tree.h>
#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <cstddef>
#include <iterator>
#include <unordered_set>

namespace Models {

namespace {

/// A character of the text that tells how far it was read.
class CountedCharacter {
 public:
  using iterator_category = std::forward_iterator_tag;
  using value_type = char;
  using difference_type = std::ptrdiff_t;
  using pointer = const char*;
  using reference = const char&;

  CountedCharacter() = default;
  CountedCharacter(const char* at, const char** read) : at_(at), read_(read) {}

  reference operator*() const { return *at_; }
  CountedCharacter& operator++() {
    *read_ = ++at_;
    return *this;
  }
  CountedCharacter operator++(int) {
    auto before = *this;
    ++*this;
    return before;
  }
  bool operator==(const CountedCharacter& other) const { return at_ == other.at_; }

 private:
  const char* at_ = nullptr;
  const char** read_ = nullptr;
};

/// Makes the tree of what the parser finds. The parser has then read to the end of what it tells, behind a
/// number one character further: so the next thing begins behind that, blanks and separators aside.
class JsonBuilder {
 public:
  using number_integer_t = nlohmann::json::number_integer_t;
  using number_unsigned_t = nlohmann::json::number_unsigned_t;
  using number_float_t = nlohmann::json::number_float_t;
  using string_t = std::string;
  using binary_t = nlohmann::json::binary_t;

  JsonBuilder(std::string_view text, Tree* tree) : text_(text), read_(text.data()), tree_(tree) {}

  CountedCharacter begin() { return {text_.data(), &read_}; }
  CountedCharacter end() { return {text_.data() + text_.size(), &read_}; }

  bool null() { return leaf(Node::Kind::null, "null"); }
  bool boolean(bool value) { return leaf(Node::Kind::boolean, value ? "true" : "false"); }
  bool number_integer(number_integer_t value) { return leaf(Node::Kind::number, std::to_string(value)); }
  bool number_unsigned(number_unsigned_t value) { return leaf(Node::Kind::number, std::to_string(value)); }
  bool number_float(number_float_t, const std::string& written) { return leaf(Node::Kind::number, written); }
  bool string(std::string& value) { return leaf(Node::Kind::text, std::move(value)); }
  bool binary(binary_t&) { return false; }  // JSON has none
  bool start_object(size_t) { return open(Node::Kind::object); }
  bool start_array(size_t) { return open(Node::Kind::array); }
  bool end_object() { return close(); }
  bool end_array() { return close(); }
  bool key(std::string& name);
  bool parse_error(size_t, const std::string&, const nlohmann::json::exception& why);

 private:
  struct Open {
    Node* node;
    std::unordered_set<std::string> names{};  ///< as they are written
  };

  /// Where the token that was read last begins.
  At place();
  bool open(Node::Kind kind);
  bool close();
  bool leaf(Node::Kind kind, std::string value);
  /// The node for the next value: what the key was for, an element, or the root.
  Node& next();
  bool fail(At at, std::string why) {
    tree_->wrongAt = at;
    tree_->wrong = std::move(why);
    return false;
  }

  const std::string_view text_;
  const char* read_;
  Tree* const tree_;
  std::vector<Open> open_;
  Node* named_ = nullptr;
  size_t behind_ = 0;  ///< the last token
  size_t lineBegin_ = 0, counted_ = 0;
  int line_ = 1;
};

At JsonBuilder::place() {
  const size_t begin = std::min(text_.find_first_not_of(" \t\r\n,:", behind_), text_.size());
  for (; counted_ < begin; ++counted_) {
    if (text_[counted_] != '\n') continue;
    ++line_;
    lineBegin_ = counted_ + 1;
  }
  behind_ = static_cast<size_t>(read_ - text_.data());
  return {line_, static_cast<int>(begin - lineBegin_) + 1};
}

Node& JsonBuilder::next() {
  if (open_.empty()) return tree_->root;
  if (named_) return *std::exchange(named_, nullptr);
  auto& elements = open_.back().node->members;
  Node& element = elements.emplace_back();
  element.module = open_.back().node->module;
  return element;
}

bool JsonBuilder::open(Node::Kind kind) {
  const At at = place();
  if (open_.size() == deepest) return fail(at, fmt::format("a document that is more than {} deep", deepest));
  Node& node = next();
  node.kind = kind;
  if (node.name.empty()) node.at = at;
  open_.push_back({&node});
  return true;
}

bool JsonBuilder::close() {
  place();
  open_.pop_back();
  return true;
}

bool JsonBuilder::leaf(Node::Kind kind, std::string value) {
  At at = place();
  // A number has been read one character beyond its end.
  if (kind == Node::Kind::number && behind_ > 0 &&
      std::string_view(",]} \t\r\n").find(text_[behind_ - 1]) != std::string_view::npos)
    --behind_;
  Node& node = next();
  node.kind = kind;
  if (node.name.empty()) node.at = at;
  const size_t colon = kind == Node::Kind::text ? value.find(':') : std::string::npos;
  if (colon != std::string::npos) node.valueModule = value.substr(0, colon);
  node.value = std::move(value);
  return true;
}

bool JsonBuilder::key(std::string& name) {
  const At at = place();
  Open& object = open_.back();
  if (!object.names.insert(name).second)
    return fail(at, fmt::format("{} a second time", printableQuote(name)));
  Node& member = object.node->members.emplace_back();
  const size_t colon = name.find(':');
  member.at = at;
  member.ownModule = colon != std::string::npos;
  member.module = colon == std::string::npos ? object.node->module : name.substr(0, colon);
  member.name = colon == std::string::npos ? std::move(name) : name.substr(colon + 1);
  named_ = &member;
  return true;
}

bool JsonBuilder::parse_error(size_t, const std::string&, const nlohmann::json::exception& why) {
  // "[json.exception.parse_error.101] parse error at line 1, column 2: syntax error while ... - reason"
  std::string_view text = why.what();
  const size_t dash = text.find(" - ");
  text.remove_prefix(dash == std::string_view::npos ? std::min(text.find("] ") + 2, text.size()) : dash + 3);
  behind_ = std::max(static_cast<size_t>(read_ - text_.data()), behind_);
  if (behind_ > 0) --behind_;  // the character that is wrong was read
  std::string printable;
  for (const char c : text.substr(0, text.find("; last read"))) printable += c < ' ' ? ' ' : c;
  return fail(place(), fmt::format("no JSON ({})", printable));
}

}  // namespace

Tree jsonTree(std::string_view text) {
  Tree tree;
  JsonBuilder builder(text, &tree);
  if (!nlohmann::json::sax_parse(builder.begin(), builder.end(), &builder) && tree.wrong.empty())
    tree.wrong = "no JSON";
  return tree;
}

}  // namespace Models
