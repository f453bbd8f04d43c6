#include <agent/core/Words.h>
#include <fmt/format.h>

#include <cstdio>

namespace Agent {

using Json = nlohmann::ordered_json;

namespace {

std::string_view textOf(const Json& object, const char* member) {
  return object.at(member).get_ref<const std::string&>();
}

}  // namespace

std::string listTitle(const Json& list) { return listTitle(textOf(list, "type"), textOf(list, "name")); }

Json listWords(Acl::AclType type, std::string_view name) {
  return {{"type", Acl::stringValue(type)}, {"name", name}};
}

std::string ruleTitle(uint32_t sequence, std::string_view text) {
  return fmt::format("{} {}", sequence, text);
}

std::string ruleTitle(const Json& rule) {
  return ruleTitle(rule.at("sequence").get<uint32_t>(), textOf(rule, "text"));
}

Json ruleWords(uint32_t sequence, std::string_view text) { return {{"sequence", sequence}, {"text", text}}; }

std::string boundAt(std::string_view interface, std::string_view direction) {
  return fmt::format("{} {}", interface, direction);
}

std::string boundAt(const Json& binding) {
  return boundAt(textOf(binding, "interface"), textOf(binding, "direction"));
}

Json boundAtWords(std::string_view interface, Acl::AclDirection direction) {
  return {{"interface", interface}, {"direction", Acl::stringValue(direction)}};
}

std::string bindingTitle(const Json& place, std::string_view list) {
  return bindingTitle(textOf(place, "interface"), textOf(place, "type"), list, textOf(place, "direction"));
}

Json bindingWords(const Config::BindingKey& place) {
  Json words = boundAtWords(place.interface, place.direction);
  words["type"] = Acl::stringValue(place.type);
  return words;
}

Json sizeWords(const Config::Size& size) {
  return {{"lists", size.lists}, {"rules", size.rules}, {"bindings", size.bindings}};
}

std::string sizeText(const Json& document) {
  const auto counted = [&document](const char* member, std::string_view one) {
    return countText(document.at(member).get<uint64_t>(), one);
  };
  return fmt::format("{}, {}, {}", counted("lists", "list"), counted("rules", "rule"),
                     counted("bindings", "binding"));
}

std::string portChannelIsNoPort(std::string_view name) {
  return fmt::format("{} is a port-channel: frames come in and leave by its members", name);
}

std::string waitsText(double within) {
  return fmt::format(
      "a change waits to be confirmed, and is taken back in {:.0f} s: velo confirm, or velo rollback",
      within);
}

std::string printableText(std::string text) {
  for (char& c : text) {
    if (c < ' ' || c > '~') c = '?';
  }
  return text;
}

std::vector<std::string> restartSentences(const Json& restart) {
  std::vector<std::string> sentences;
  if (const Json& looking = restart.at("looking"); !looking.is_null()) {
    return {fmt::format(
        "what a restart would make is not known yet: the files are being looked at, for {:.0f} s by now",
        looking.get<double>())};
  }
  for (const Json& why : restart.at("why"))
    sentences.push_back("a restart would not be the same: " + why.get<std::string>());
  if (const Json& refused = restart.at("refused"); !refused.is_null())
    sentences.push_back("a restart would be refused: " + refused.get<std::string>());
  if (!restart.at("refused").is_null()) return sentences;  // which says it, too
  for (const Json& opening : restart.at("opens"))
    sentences.push_back("a restart would open something: " + opening.get<std::string>());
  return sentences;
}

std::string countText(uint64_t count, std::string_view one) {
  return fmt::format("{} {}{}", count, one, count == 1 ? "" : "s");
}

void tellMistakes(const std::vector<std::string>& mistakes) {
  for (const std::string& mistake : mistakes) fmt::print(stderr, "{}\n", mistake);
}

void tellMistakes(const Json& document) {
  tellMistakes(document.value("mistakes", std::vector<std::string>()));
}

}  // namespace Agent
