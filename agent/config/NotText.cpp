#include <agent/config/NotText.h>

#include <algorithm>
#include <string>

namespace Config {

namespace {

using namespace std::string_view_literals;

/// What files of some kinds begin with. No statement does, nor does a comment.
constexpr std::pair<std::string_view, std::string_view> beginnings[] = {
    {"\x1f\x8b"sv, "a compressed file"},
    {"\x28\xb5\x2f\xfd"sv, "a compressed file"},
    {"\xfd\x37zXZ\0"sv, "a compressed file"},
    {"BZh"sv, "a compressed file"},
    {"PK\x03\x04"sv, "an archive"},
    {"\x7f\x45LF"sv, "a program"},
    {"\xd4\xc3\xb2\xa1"sv, "a capture"},
    {"\xa1\xb2\xc3\xd4"sv, "a capture"},
    {"\x4d\x3c\xb2\xa1"sv, "a capture"},
    {"\xa1\xb2\x3c\x4d"sv, "a capture"},
    {"\x0a\x0d\x0d\x0a"sv, "a capture"},
    {"SQLite format 3\0"sv, "a database (a state file?)"},
    {"\xff\xfe"sv, "UTF-16 text"},
    {"\xfe\xff"sv, "UTF-16 text"},
    {"%PDF-"sv, "a PDF document"},
    {"-----BEGIN "sv, "a key or certificate"},
};

bool isNoText(char c) {
  const auto byte = static_cast<unsigned char>(c);
  return (byte < 0x20 && c != '\t' && c != '\n' && c != '\r') || byte == 0x7f;
}

bool isLetter(char c) { return ('a' <= c && c <= 'z') || ('A' <= c && c <= 'Z'); }

/// From the first character on that is no blank.
std::string_view trimmed(std::string_view text) {
  text.remove_prefix(std::min(text.find_first_not_of(" \t\r\n"), text.size()));
  return text;
}

/// Whether a text behind the bracket of an array goes on as one.
bool beginsElement(std::string_view text) {
  constexpr std::string_view first = "\"{[]-0123456789";
  const auto isWord = [text](std::string_view word) { return text.starts_with(word); };
  return (!text.empty() && first.find(text[0]) != std::string_view::npos) || isWord("true") ||
         isWord("false") || isWord("null");
}

}  // namespace

std::string_view notText(std::string_view bytes) {
  for (const auto& [beginning, what] : beginnings) {
    if (bytes.starts_with(beginning)) return what;
  }
  // A few such bytes are mistakes of a text, each with its place.
  constexpr size_t looked = 512, few = 8;
  const auto begin = bytes.substr(0, looked);
  if (std::count_if(begin.begin(), begin.end(), isNoText) >= std::ptrdiff_t{few}) return "binary data";

  const auto text = trimmed(bytes);
  if (text.empty()) return {};
  const auto behind = trimmed(text.substr(1));
  const auto next = behind.empty() ? '\0' : behind[0];
  if (text[0] == '{' && (next == '"' || next == '}')) return jsonDocument;
  if (text[0] == '[' && beginsElement(behind)) return jsonDocument;
  if (text[0] == '<' && (next == '?' || next == '!' || isLetter(next))) return xmlDocument;
  return {};
}

}  // namespace Config
