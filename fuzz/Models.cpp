// A document of a model is read, or refused with places in it; what was read is written and read again as a
// configuration that permits the same. Documents are those that random texts are written as, changed at a few
// places.

#include "../tests/agent/config/RandomText.h"
#include "Target.h"

#include <agent/config/Writer.h>
#include <agent/models/Reader.h>
#include <agent/models/Writer.h>
#include <fmt/format.h>

#include <algorithm>
#include <nlohmann/json.hpp>
#include <utility>

namespace {

using Models::Format;

constexpr Format formats[] = {Format::ietf, Format::openConfig, Format::sonic};

/// Words of all models, for the places of others.
constexpr std::string_view words[] = {
    "\"DROP\"",
    "\"FORWARD\"",
    "{}",
    "[]",
    "null",
    "0",
    "65536",
    "\"name\"",
    "\"ports\"",
    "\"stage\"",
    "\"ACL_L2\"",
    "\"IP_TYPE\"",
    "\"ecn\"",
    "\"config\"",
    "\"ipv6\"",
    "\"tcp\"",
    "\"state\"",
    "\"10\"",
    "\"operator\"",
    "\"lte\"",
    "\"0x12/0x12\"",
    "\"ANY\"",
    "\"1..2\"",
    "\"a\\nb\"",
    "\"transport\"",
    "\"detail-mode\"",
    "\"BUILTIN\"",
    "\"FRAGMENT\"",
    "</name>",
    "<tcp/>",
    "<!-- -->",
    "&lt;",
    "<![CDATA[10]]>",
    "<!DOCTYPE a>",
    "a=\"b\"",
};

/// A member of a JSON document as XML has it.
void addXml(const std::string& name, const std::string& more, const nlohmann::ordered_json& value,
            std::string& xml) {
  if (value.is_array()) {
    for (const auto& element : value) addXml(name, more, element, xml);
    return;
  }
  xml += fmt::format("<{}{}>", name, more);
  if (value.is_object()) {
    for (const auto& [member, inside] : value.items()) addXml(member, "", inside, xml);
  } else {
    for (const char c : value.is_string() ? value.get<std::string>() : value.dump())
      xml += c == '<' ? "&lt;" : c == '&' ? "&amp;" : std::string(1, c);
  }
  xml += fmt::format("</{}>\n", name);
}

/// A document of RFC 8519 as XML, which says the same.
std::string asXml(const std::string& document) {
  constexpr const char* root = "ietf-access-control-list:acls";
  constexpr const char* spaces =
      " xmlns=\"urn:ietf:params:xml:ns:yang:ietf-access-control-list\""
      " xmlns:ietf-access-control-list=\"urn:ietf:params:xml:ns:yang:ietf-access-control-list\"";
  std::string xml;
  addXml("acls", spaces, nlohmann::ordered_json::parse(document).at(root), xml);
  const auto model = Models::read({{"t", xml}}).model;
  Fuzz::require(model.has_value() && model == Models::read({{"t", document}}).model,
                [&] { return xml + "reads as another model than\n" + document; });
  return xml;
}

/// A document as a configuration is written; without an input that has any, one of a few octets.
std::string someDocument(Fuzz::Dice& dice) {
  const auto model = Config::read({{"t", Config::randomText(dice, false)}}).model;
  const auto format = dice.of(formats);
  const std::string document = model ? Models::write(*model, format, true).document : std::string();
  return format == Format::ietf && !document.empty() && dice.once(2) ? asXml(document) : document;
}

/// Puts other words in the places of some, and cuts.
std::string changed(std::string document, Fuzz::Dice& dice) {
  for (uint64_t times = dice.below(4); times > 0 && !document.empty(); --times) {
    const size_t at = document.find_first_of("\"{[0123456789<", dice.below(document.size()));
    if (at == std::string::npos) continue;
    const size_t end = document[at] == '"' ? document.find('"', at + 1) : at;
    const size_t length = end == std::string::npos ? 1 : end - at + 1;
    document.replace(at, dice.once(8) ? 0 : length, dice.once(8) ? std::string_view() : dice.of(words));
  }
  return document;
}

void requirePlaces(const Config::Result& result, const std::string& document) {
  const auto lines = static_cast<int>(std::count(document.begin(), document.end(), '\n')) + 1;
  std::pair<int, int> last;
  for (const Config::Mistake& mistake : result.mistakes) {
    const auto where = [&] { return mistake.str() + "\n" + document; };
    const std::pair place(mistake.line, mistake.column);
    Fuzz::require(mistake.file == "t" && mistake.line >= 1 && mistake.line <= lines && mistake.column >= 1,
                  where);
    Fuzz::require(place >= last, where);
    Fuzz::require(!mistake.found.empty() && !mistake.expected.empty(), where);
    const std::string shown = mistake.str();
    Fuzz::require(
        std::none_of(shown.begin(), shown.end(), [](char c) { return static_cast<unsigned char>(c) < ' '; }),
        where);
    last = place;
  }
}

}  // namespace

void Fuzz::run(Dice& dice) {
  std::string document = changed(someDocument(dice), dice);
  while (document.empty() && dice.more()) document += static_cast<char>(dice.below(256));
  const Config::Result result = Models::read({{"t", document}});
  require(result.model.has_value() == result.mistakes.empty(), document);
  requirePlaces(result, document);
  if (!result.model) return;
  // What a document says is a text that says the same.
  const std::string text = Config::textOf(*result.model);
  const Config::Result asText = Config::read({{"t", text}});
  require(asText.model == result.model, [&] { return text + "reads as another model than\n" + document; });
  for (const Format format : formats) {
    const auto written = Models::write(*result.model, format, dice.once(2));
    require(written.document.empty() == !written.refused.empty(), text);
    if (written.document.empty()) continue;
    const auto again = Models::read({{"again", written.document}});
    require(again.model.has_value(),
            [&] { return again.mistakes.front().str() + "\n" + written.document + "of\n" + text; });
  }
}
