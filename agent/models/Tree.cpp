#include <agent/config/Mistake.h>
#include <agent/models/Tree.h>

#include <algorithm>

namespace Models {

const Node* Node::find(std::string_view member) const {
  const auto found =
      std::find_if(members.begin(), members.end(), [&](const Node& node) { return node.name == member; });
  return found == members.end() ? nullptr : &*found;
}

std::string Node::shown() const {
  switch (kind) {
    case Kind::object:
      return xml && members.empty() ? "nothing" : "an object";
    case Kind::array:
      return "an array";
    case Kind::null:
      return "null";
    case Kind::number:
    case Kind::boolean:
      return value;
    case Kind::text:
      break;
  }
  return printableQuote(value);
}

std::string printable(std::string_view text) {
  constexpr size_t longest = 200;
  size_t end = std::min(text.size(), longest);
  while (end > 0 && end < text.size() && (static_cast<unsigned char>(text[end]) & 0xc0) == 0x80) --end;
  std::string all(text.substr(0, end));
  if (end < text.size()) all += "...";
  for (char& c : all) {
    if (static_cast<unsigned char>(c) < ' ' || c == '\x7f') c = ' ';
  }
  return all;
}

std::string printableQuote(std::string_view text) { return Config::quote(printable(text)); }

}  // namespace Models
