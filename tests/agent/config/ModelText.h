#pragma once

#include <agent/config/Model.h>
#include <fmt/format.h>

#include <string>

namespace Config {

/// A model as text that reads back as this model: with nothing taken back, and every rule with its number.
inline std::string textOf(const Model& model) {
  std::string text;
  for (const auto& [name, group] : model.objectGroups) {
    text += fmt::format("object-group {} {}\n", group.service ? "service" : "network", name);
    for (const auto& member : group.members) text += fmt::format(" {}\n", member);
  }
  for (const auto& [key, list] : model.lists) {
    text += fmt::format("{} access-list {}{}\n", stringValue(key.first), list.standard ? "standard " : "",
                        key.second);
    const auto remarks = [&text](std::string_view lines) {
      while (!lines.empty()) {
        const size_t end = std::min(lines.find('\n'), lines.size());
        text += fmt::format(" remark {}\n", lines.substr(0, end));
        lines.remove_prefix(std::min(end + 1, lines.size()));
      }
    };
    for (const auto& [number, rule] : list.rules) {
      remarks(common(rule).remark.view());
      text += fmt::format(" {} {}\n", number, common(rule).text.view());
    }
    for (const std::string& remark : list.pendingRemarks) remarks(remark);
  }
  for (const auto& [name, members] : model.portChannels)
    text += fmt::format("port-channel {} members {}\n", name, fmt::join(members, " "));
  for (const auto& [key, list] : model.bindings) {
    text += fmt::format("interface {}\n {} access-group {} {}\n", key.interface, stringValue(key.type), list,
                        stringValue(key.direction));
  }
  for (const auto& [name, notes] : model.interfaceNotes) {
    text += fmt::format("interface {}\n", name);
    if (!notes.description.empty()) text += fmt::format(" description {}\n", notes.description);
    if (notes.shutdown) text += " shutdown\n";
  }
  for (const auto& [name, destinations] : model.mirrorSessions)
    text += fmt::format("mirror session {} destination {}\n", name, fmt::join(destinations, " "));
  return text;
}

}  // namespace Config
