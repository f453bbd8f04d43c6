#pragma once

#include <cstddef>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <string_view>

namespace Agent {

/// JSON as text, in one line without a line end. Its texts may have any bytes.
std::string lineOf(const nlohmann::ordered_json& json);
/// A document for a user, one of several: in a line, with `version` as its first member.
std::string documentLineOf(const nlohmann::ordered_json& object);
/// The same of a document that is printed alone: each member and element in a line of its own.
std::string linesOf(const nlohmann::ordered_json& json);

/// Reads a document that an agent has made: in a time that grows with its length. (Json::parse() looks
/// through all members of an object for each further one, and a status may have a hundred thousand.) Nothing
/// if the text is no JSON. No object in it may have a member twice.
std::optional<nlohmann::ordered_json> readDocument(std::string_view text);

/// A JSON document that is made piece by piece, so that packets do not wait long for it: a piece has some
/// tens of kilobytes and takes a fraction of a millisecond. Between two pieces the configuration may change.
/// The document is complete JSON in spite of that, and each list or rule in it is as it was at one moment.
class Document {
 public:
  virtual ~Document() = default;
  /// Appends the next piece; false when that was the last one.
  virtual bool next(std::string& text) = 0;
};

/// A document whose line of JSON is known already; and one that is small enough to be made at once.
std::unique_ptr<Document> lineDocument(std::string line);
std::unique_ptr<Document> wholeDocument(const nlohmann::ordered_json& json);

// For classes that make a document piece by piece.

/// A piece ends with the first element behind so much text.
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
