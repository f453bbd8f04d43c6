#include <Zeb/LogHandle.h>
#include <agent/core/Words.h>
#include <agent/observe/MatchLine.h>
#include <fmt/format.h>

#include <algorithm>
#include <optional>

namespace Agent {

namespace {

using Field = MatchMessages::Field;
using Message = MatchMessages::Message;

std::string ruleWords(const MatchLine& line) {
  return line.sequence ? fmt::format("rule {}", line.sequence) : "implicit drop";
}

std::string endWords(const MatchLine& line) {
  return fmt::format("{} on {} {}, {}", flowRest(line.flow), line.flow.intf.name(), line.direction,
                     countText(line.packets, line.first ? "packet" : "more packet"));
}

namespace Fields {

constexpr Field nothing{"nothing", [](const MatchLine&) { return std::string(); }};
constexpr Field list{"the list", [](const MatchLine& line) { return line.list; }};
constexpr Field rule{"`rule` and its number, or `implicit drop`", ruleWords};
constexpr Field ruleBehindBlank{"a blank, then `rule` and its number, or `implicit drop`",
                                [](const MatchLine& line) { return " " + ruleWords(line); }};
constexpr Field verdict{"`permitted` or `denied`", [](const MatchLine& line) {
                          return std::string(line.action == Acl::Action::permit ? "permitted" : "denied");
                        }};
constexpr Field protocol{"the protocol", [](const MatchLine& line) { return flowProtocol(line.flow); }};
constexpr Field etherType{"the type of the frame, in hexadecimal",
                          [](const MatchLine& line) { return flowProtocol(line.flow); }};
constexpr Field source{"the source, its port in brackets",
                       [](const MatchLine& line) { return flowSource(line.flow); }};
constexpr Field destination{"the destination, its port in brackets",
                            [](const MatchLine& line) { return flowDestination(line.flow); }};
constexpr Field sourceMac{"the source", [](const MatchLine& line) { return flowSource(line.flow); }};
constexpr Field destinationMac{"the destination",
                               [](const MatchLine& line) { return flowDestination(line.flow); }};
constexpr Field end{"ICMP type and code or `later fragment`, interface and direction, number of packets",
                    endWords};
constexpr Field endOfMac{"interface and direction, number of packets",
                         [](const MatchLine& line) { return endWords(line).substr(1); }};
constexpr Field packet{"protocol, source, `->`, destination, and the rest as with IPv6",
                       [](const MatchLine& line) {
                         return fmt::format("{} {} -> {}{}", flowProtocol(line.flow), flowSource(line.flow),
                                            flowDestination(line.flow), endWords(line));
                       }};

constexpr Field ofIp[] = {nothing, list, ruleBehindBlank, verdict, packet};
constexpr Field ofIp6[] = {nothing, list, rule, verdict, protocol, source, destination, end};
constexpr Field ofMac[] = {nothing, list, rule, verdict, etherType, sourceMac, destinationMac, endOfMac};

}  // namespace Fields

constexpr Message messages[] = {
    {"ACL_IPACCESS", "IPv4, permitted", Fields::ofIp},
    {"ACL_IPACCESS2", "IPv4, denied", Fields::ofIp},
    {"ACL_IP6ACCESS", "IPv6", Fields::ofIp6},
    {"ACL_MACACCESS", "MAC lists", Fields::ofMac},
};

size_t messageOf(const MatchLine& line) {
  switch (line.flow.type) {
    case Acl::AclType::ip:
      return line.action == Acl::Action::permit ? 0 : 1;
    case Acl::AclType::ipv6:
      return 2;
    case Acl::AclType::mac:
      break;
  }
  return 3;
}

/// How many %s a format has; nothing when it has another % besides.
std::optional<size_t> fieldsOf(std::string_view format) {
  size_t fields = 0;
  for (size_t at = format.find('%'); at != format.npos; at = format.find('%', at + 2)) {
    if (!format.substr(at).starts_with("%s")) return std::nullopt;
    ++fields;
  }
  return fields;
}

std::string filled(std::string_view format, const Message& message, const MatchLine& line) {
  std::string text(message.name);
  text += ": ";
  for (const Field& field : message.fields) {
    const size_t at = format.find("%s");
    text += format.substr(0, at);
    text += field.words(line);
    format.remove_prefix(at + 2);
  }
  return text += format;
}

}  // namespace

std::span<const Message> MatchMessages::table() { return messages; }

MatchMessages::MatchMessages() {
  static_assert(std::size(messages) == count);
  const auto& catalogue = Zeb::LogHandle::catalogue();
  for (size_t i = 0; i < count; ++i) {
    const Message& message = messages[i];
    const auto handle = std::find_if(catalogue.begin(), catalogue.end(), [&message](const auto* each) {
      return each->descriptor().name == message.name;
    });
    if (handle == catalogue.end()) {
      wrong_.push_back(
          fmt::format("the plugin has no log message {}: matches of rules with log are not told ({})",
                      message.name, message.tells));
      continue;
    }
    const Zeb::LogDescriptor& descriptor = (*handle)->descriptor();
    if (fieldsOf(descriptor.format) != message.fields.size()) {
      wrong_.push_back(fmt::format(
          "the plugin's log message {} is \"{}\", not one of {} fields: matches of rules with log are not told ({})",
          message.name, descriptor.format, message.fields.size(), message.tells));
      continue;
    }
    known_[i] = {descriptor.format, static_cast<Severity>(descriptor.severity)};
  }
}

void MatchMessages::addTo(std::vector<LogEvent>& events, const MatchLine& line) const {
  const size_t which = messageOf(line);
  const Known& known = known_[which];
  if (known.format.empty()) return;
  const FlowKey& flow = line.flow;
  LogEvent event{known.severity,
                 filled(known.format, messages[which], line),
                 {{"VELO_EVENT", "match"},
                  {"VELO_MESSAGE", std::string(messages[which].name)},
                  {"VELO_TYPE", fmt::format("{}", flow.type)},
                  {"VELO_LIST", line.list},
                  {"VELO_RULE", line.sequence ? std::to_string(line.sequence) : "implicit"},
                  {"VELO_VERDICT", fmt::format("{}", line.action)},
                  {"VELO_PORT", flow.intf.name().str()},
                  {"VELO_DIRECTION", fmt::format("{}", line.direction)},
                  {"VELO_PROTOCOL", flowProtocol(flow)},
                  {"VELO_SOURCE", flowAddresses(flow).first},
                  {"VELO_DESTINATION", flowAddresses(flow).second},
                  {"VELO_PACKETS", std::to_string(line.packets)}}};
  if (flow.kind == FlowKey::Kind::ports) {
    event.fields.emplace_back("VELO_SOURCE_PORT", std::to_string(flow.first));
    event.fields.emplace_back("VELO_DESTINATION_PORT", std::to_string(flow.second));
  }
  if (flow.kind == FlowKey::Kind::icmp) {
    event.fields.emplace_back("VELO_ICMP_TYPE", std::to_string(flow.first));
    event.fields.emplace_back("VELO_ICMP_CODE", std::to_string(flow.second));
  }
  events.push_back(std::move(event));
}

}  // namespace Agent
