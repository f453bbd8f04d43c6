#pragma once

#include <agent/config/Reader.h>
#include <gtest/gtest.h>

#include <initializer_list>
#include <string>
#include <string_view>
#include <vector>

namespace Config {

/// Reads one text under the name "t".
inline Result readText(std::string_view text, Model start = {}) {
  return read({{"t", std::string(text)}}, std::move(start));
}

/// All mistakes of a text, a line each; empty for a text without one.
inline std::string mistakesOf(std::string_view text) {
  std::string all;
  for (const auto& mistake : readText(text).mistakes) all += mistake.str() + "\n";
  return all;
}

/// A row of a table of mistakes.
struct MistakeRow {
  const char* why;
  const char* text;
  const char* mistake;  ///< without the first file's name
};

/// Reads each row's text below the header, and expects the mistakes that it names, and no others.
template <size_t N>
void expectMistakes(const char* header, const MistakeRow (&table)[N]) {
  for (const auto& row : table) {
    const std::string expected = std::string("t:") + row.mistake + "\n";
    EXPECT_EQ(mistakesOf(std::string(header) + row.text + "\n"), expected) << row.why << ": " << row.text;
  }
}

/// The model of a text that has no mistake.
inline Model modelOf(std::string_view text, Model start = {}) {
  const auto result = readText(text, std::move(start));
  for (const auto& mistake : result.mistakes) ADD_FAILURE() << mistake.str();
  return result.model.value_or(Model());
}

/// A list of a text that has no mistake.
inline List listOf(std::string_view text, std::string_view name = "A", Acl::AclType type = Acl::AclType::ip) {
  const auto model = modelOf(text);
  const auto entry = model.lists.find({type, std::string(name)});
  if (entry != model.lists.end()) return entry->second;
  ADD_FAILURE() << "no list " << name << " in\n" << text;
  return {};
}

/// The one rule of a list below a header, as the alternative of its kind.
template <class RuleConfig>
RuleConfig ruleOf(std::string_view header, std::string_view rule) {
  const std::string text = std::string(header) + "\n" + std::string(rule) + "\n";
  const auto result = readText(text);
  for (const auto& mistake : result.mistakes) ADD_FAILURE() << mistake.str() << " in\n" << text;
  if (!result.model || result.model->lists.size() != 1) return {};
  const auto& rules = result.model->lists.begin()->second.rules;
  EXPECT_EQ(rules.size(), 1u) << text;
  if (rules.empty() || !std::holds_alternative<RuleConfig>(rules.begin()->second)) {
    ADD_FAILURE() << "no rule of the list's kind in\n" << text;
    return {};
  }
  return std::get<RuleConfig>(rules.begin()->second);
}

inline Acl::IpRule ipRule(std::string_view rule) { return ruleOf<Acl::IpRule>("ip access-list A", rule); }
inline Acl::Ip6Rule ip6Rule(std::string_view rule) {
  return ruleOf<Acl::Ip6Rule>("ipv6 access-list A", rule);
}
inline Acl::MacRule macRule(std::string_view rule) { return ruleOf<Acl::MacRule>("mac access-list A", rule); }

/// The sequence numbers of a list, in order.
inline std::vector<uint32_t> numbersOf(const List& list) {
  std::vector<uint32_t> numbers;
  for (const auto& [number, rule] : list.rules) {
    EXPECT_EQ(common(rule).sequence, number) << "a rule's key is its number";
    numbers.push_back(number);
  }
  return numbers;
}

}  // namespace Config
