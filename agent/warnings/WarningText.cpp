#include <agent/warnings/WarningText.h>
#include <fmt/format.h>

namespace Agent {

using Json = nlohmann::ordered_json;

namespace {

/// Surprises are called warnings, as people expect.
std::string_view word(std::string_view consequence) {
  return consequence == stringValue(Consequence::surprise) ? "warning" : consequence;
}

std::string line(const Place& place, std::string_view consequence, std::string_view text,
                 std::string_view example) {
  const std::string where =
      place.file.empty() ? "" : fmt::format("{}:{}:{}: ", place.file, place.line, place.column);
  const std::string shown = example.empty() ? "" : fmt::format(" (for example {})", example);
  return fmt::format("{}{}: {}{}", where, word(consequence), text, shown);
}

}  // namespace

std::string warningText(const Warning& warning) {
  return line(warning.place, stringValue(warning.consequence()), warning.text, warning.example);
}

void tellWarnings(const Warnings& warnings) {
  for (const Warning& warning : warnings) fmt::print(stderr, "{}\n", warningText(warning));
}

Json warningJson(const Warning& warning) {
  const Place& place = warning.place;
  Json document = {{"code", warning.code.kind().code}, {"consequence", stringValue(warning.consequence())}};
  const bool placed = !place.file.empty();
  document["file"] = placed ? Json(place.file) : Json(nullptr);
  document["line"] = placed ? Json(place.line) : Json(nullptr);
  document["column"] = placed ? Json(place.column) : Json(nullptr);
  document["text"] = warning.text;
  if (!warning.example.empty()) document["example"] = warning.example;
  if (!warning.by.empty()) document["by"] = warning.by;
  return document;
}

Json warningsJson(const Warnings& warnings) {
  Json documents = Json::array();
  for (const Warning& warning : warnings) documents.push_back(warningJson(warning));
  return documents;
}

std::string warningsText(const Json& warnings) {
  std::string text;
  for (const Json& one : warnings) {
    Place place;
    if (one.at("file").is_string()) {
      place = {one.at("file").get<std::string>(), one.at("line").get<int>(), one.at("column").get<int>()};
    }
    text += line(place, one.at("consequence").get<std::string>(), one.at("text").get<std::string>(),
                 one.value("example", "")) +
            "\n";
  }
  return text;
}

}  // namespace Agent
