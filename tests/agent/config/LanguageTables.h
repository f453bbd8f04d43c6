#pragma once

#include <agent/config/Names.h>
#include <fmt/format.h>

#include <map>
#include <string>
#include <vector>

namespace Config {

/// A table of names as documents have it: a key, which is a number or several, and the names that stand for
/// it, the usual one first.
struct NameTable {
  std::string title;
  std::vector<std::string> columns;  ///< of the key
  std::map<std::vector<uint32_t>, std::vector<std::string_view>> rows;
  std::string (*shown)(size_t column, uint32_t number);
};

inline std::string plainNumber(size_t, uint32_t number) { return std::to_string(number); }
inline std::string hexNumber(size_t, uint32_t number) { return fmt::format("0x{:04x}", number); }
inline std::string typeAndCode(size_t column, uint32_t number) {
  return column == 1 ? (number == 0 ? std::string("any") : std::to_string(number - 1))
                     : std::to_string(number);
}
inline std::string portAndTransports(size_t column, uint32_t number) {
  if (column == 0) return std::to_string(number);
  std::string text;
  for (const auto& [name, protocol] :
       {std::pair("tcp", protocolTcp), std::pair("udp", protocolUdp), std::pair("sctp", protocolSctp)}) {
    if (number & transportBit(protocol)) text += (text.empty() ? "" : " ") + std::string(name);
  }
  return text;
}

/// All tables of names that the language has.
inline std::vector<NameTable> nameTables() {
  const auto numbers = [](std::string title, std::string column, auto names, auto shown) {
    NameTable table{std::move(title), {std::move(column)}, {}, shown};
    for (const auto& row : names) table.rows[{row.number}].push_back(row.name);
    return table;
  };
  std::vector<NameTable> all;
  all.push_back(numbers("Protocols", "number", protocolNames(), plainNumber));
  NameTable ports{"Ports", {"port", "with"}, {}, portAndTransports};
  for (const auto& row : portNames()) ports.rows[{row.port, row.transports}].push_back(row.name);
  all.push_back(std::move(ports));
  for (const auto& [title, protocol] :
       {std::pair("ICMP messages", protocolIcmp), std::pair("ICMPv6 messages", protocolIcmpV6)}) {
    NameTable messages{title, {"type", "code"}, {}, typeAndCode};
    for (const auto& row : icmpMessages(protocol))
      messages.rows[{row.type, static_cast<uint32_t>(row.code + 1)}].push_back(row.name);
    all.push_back(std::move(messages));
  }
  all.push_back(numbers("DSCP", "number", dscpNames(), plainNumber));
  all.push_back(numbers("EtherTypes", "type", etherTypeNames(), hexNumber));
  return all;
}

}  // namespace Config
