#pragma once

#include <agent/show/Documents.h>

#include <cstddef>
#include <string>
#include <string_view>
#include <utility>

namespace Agent {

/// How much text a piece has before it ends; one element more may follow.
inline constexpr size_t pieceOctets = 16 * 1024;

/// Writes the elements of an array or object one by one, with the commas between them.
class Elements {
 public:
  /// Appends an element of an array.
  void add(std::string& text, const std::string& element) {
    text += first_ ? "" : ",";
    text += element;
    first_ = false;
  }
  void add(std::string& text, const nlohmann::ordered_json& element) { add(text, lineOf(element)); }
  /// Appends the name of a member and the colon.
  void name(std::string& text, std::string_view member) { add(text, lineOf(member) + ":"); }

 private:
  bool first_ = true;
};

/// A JSON object without its closing brace, for further members.
inline std::string openObject(const nlohmann::ordered_json& object) {
  std::string text = lineOf(object);
  text.pop_back();
  if (!object.empty()) text += ",";
  return text;
}

/// True while a piece that began at `start` has room.
inline bool hasRoom(const std::string& text, size_t start) { return text.size() - start < pieceOctets; }

}  // namespace Agent
