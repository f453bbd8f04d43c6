#pragma once

#include <fmt/format.h>

#include <string>

#include "../support/RunningAgent.h"

namespace TestSupport {

/// A list A of so many rules, bound to eth1.
inline std::string rules(int count, const char* action) {
  std::string text = "ip access-list A\n";
  for (int i = 1; i <= count; ++i) text += fmt::format(" {} {} udp any any eq {}\n", i, action, i);
  return text + "interface eth1\n ip access-group A in\n";
}

inline size_t ruleCount(RunningAgent& agent, const char* list) {
  const Json shown = agent.show("access-lists", list);
  return shown.contains("error") ? 0 : shown.at("lists").at(0).at("rules").size();
}

}  // namespace TestSupport
