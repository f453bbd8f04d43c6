#include <agent/config/Cursor.h>
#include <agent/config/Names.h>
#include <agent/explain/FrameLine.h>
#include <fmt/format.h>

#include <algorithm>
#include <optional>
#include <vector>

namespace Agent {

namespace {

using Words = std::vector<std::string_view>;

Words wordsOf(std::string_view text) {
  Words words;
  while (!text.empty()) {
    const size_t end = std::min(text.find(' '), text.size());
    if (end > 0) words.push_back(text.substr(0, end));
    text.remove_prefix(std::min(end + 1, text.size()));
  }
  return words;
}

/// "15:04:05" and maybe a fraction.
bool isTime(std::string_view word) {
  constexpr std::string_view shape = "00:00:00";
  if (word.size() < shape.size()) return false;
  for (size_t i = 0; i < shape.size(); ++i) {
    const bool isDigit = word[i] >= '0' && word[i] <= '9';
    if (shape[i] == ':' ? word[i] != ':' : !isDigit) return false;
  }
  return word.size() == shape.size() || word[shape.size()] == '.';
}

/// The last column, with the port of the second one.
std::optional<std::string> textOfTail(std::string_view line) {
  while (line.ends_with(' ')) line.remove_suffix(1);
  const Words words = wordsOf(line);
  if (words.size() < 5 || !isTime(words[0]) || (words[2] != "pass" && words[2] != "drop"))
    return std::nullopt;
  const size_t column = line.rfind("  ");
  if (column < static_cast<size_t>(words[2].data() - line.data())) return std::nullopt;
  return fmt::format("{} on {}", line.substr(column + 2), words[1]);
}

/// "192.0.2.1(53)" as "192.0.2.1:53".
std::string endOf(std::string_view word) {
  const size_t bracket = word.find('(');
  if (bracket == word.npos || !word.ends_with(')')) return std::string(word);
  const std::string_view address = word.substr(0, bracket);
  const std::string_view port = word.substr(bracket + 1, word.size() - bracket - 2);
  const bool six = address.find(':') != address.npos;
  return fmt::format("{}{}{}:{}", six ? "[" : "", address, six ? "]" : "", port);
}

/// A packet of the type that a MAC list's line tells; null of a type whose frames need no packet. The line
/// does not say what the packet is.
const char* madeUp(std::string_view type) {
  if (type == "0x0800") return "ip 0.0.0.0 > 0.0.0.0";
  if (type == "0x86dd") return "ipv6 :: > ::";
  return nullptr;
}

/// The words of a flow as those of a frame. Protocols without a first word of their own are `ip ... protocol
/// gre`.
std::string textOfFlow(std::string_view protocol, std::string_view source, std::string_view destination,
                       std::string_view rest) {
  const std::string ends = fmt::format("{} > {}", endOf(source), endOf(destination));
  if (const char* made = madeUp(protocol))
    return fmt::format("{} from {} to {}{}", made, source, destination, rest);
  if (protocol.starts_with("0x")) return fmt::format("eth {} {}{}", ends, protocol, rest);
  const bool six = source.find(':') != source.npos;
  for (const std::string_view own : {"tcp", "udp", "sctp", six ? "icmpv6" : "icmp"}) {
    if (protocol == own) return fmt::format("{} {}{}", protocol, ends, rest);
  }
  return fmt::format("{} {} protocol {}{}", six ? "ipv6" : "ip", ends, protocol, rest);
}

/// Behind "rule 10 denied" or "implicit drop denied".
size_t behindVerdict(std::string_view line) {
  for (const std::string_view verdict : {" permitted ", " denied "}) {
    for (size_t at = line.find(verdict); at != line.npos; at = line.find(verdict, at + 1)) {
      const Words before = wordsOf(line.substr(0, at));
      if (before.size() < 2) continue;
      const std::string_view last = before.back(), one = before[before.size() - 2];
      if ((one == "implicit" && last == "drop") || (one == "rule" && Config::isDigits(last)))
        return at + verdict.size();
    }
  }
  return line.npos;
}

std::optional<std::string> textOfLog(std::string_view line, std::vector<std::string>* notes) {
  const size_t behind = behindVerdict(line);
  if (behind == line.npos) return std::nullopt;
  const Words words = wordsOf(line.substr(behind));
  if (words.size() < 4 || words[2] != "->") return std::nullopt;
  std::string rest;
  for (size_t i = 4; i < words.size(); ++i) {
    if (words[i] != "on") {
      rest += fmt::format(" {}", words[i]);
      continue;
    }
    const bool in = i + 2 < words.size() && words[i + 2].starts_with("in");
    if (in)
      rest += fmt::format(" on {}", words[i + 1]);
    else if (notes && i + 1 < words.size())
      notes->push_back(
          fmt::format("the line says that the packet left on {}, not where it came in", words[i + 1]));
    break;
  }
  const char* made = madeUp(words[0]);
  if (made && notes)
    notes->push_back(fmt::format(
        "the line does not say what the packet is: it is taken for {}, and what IP lists say of it means nothing",
        made));
  return textOfFlow(words[0], words[1], words[3], rest);
}

}  // namespace

std::string frameTextOf(std::string_view line, std::vector<std::string>* notes) {
  if (auto text = textOfTail(line)) return *text;
  if (auto text = textOfLog(line, notes)) return *text;
  return std::string(line);
}

}  // namespace Agent
