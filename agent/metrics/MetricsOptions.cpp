#include <agent/metrics/MetricsOptions.h>
#include <arpa/inet.h>
#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <charconv>
#include <map>

namespace Agent {

namespace {

constexpr std::string_view loopback = "127.0.0.1";

bool isAddress(std::string_view text) {
  in6_addr address;
  const bool quoted = text.size() > 2 && text.front() == '[' && text.back() == ']';
  const std::string bare(quoted ? text.substr(1, text.size() - 2) : text);
  return inet_pton(quoted ? AF_INET6 : AF_INET, bare.c_str(), &address) == 1;
}

/// [ADDRESS:]PORT with the address of this machine alone where there is none.
std::string wholeAddress(const std::string& text) {
  const size_t colon = text.rfind(':');
  const std::string_view all = text;
  const auto address = colon == std::string::npos || colon == 0 ? loopback : all.substr(0, colon);
  const auto port = colon == std::string::npos ? all : all.substr(colon + 1);
  uint16_t number = 0;
  const auto read = std::from_chars(port.data(), port.data() + port.size(), number);
  if (port.empty() || read.ec != std::errc() || read.ptr != port.data() + port.size())
    throw CLI::ValidationError("--metrics", fmt::format("{} is not [ADDRESS:]PORT, as 127.0.0.1:9464", text));
  if (!isAddress(address))
    throw CLI::ValidationError(
        "--metrics",
        fmt::format("{} is no address: one of IPv4, or of IPv6 as [::1], was expected", address));
  return fmt::format("{}:{}", address, number);
}

}  // namespace

void addMetrics(CLI::App& command, MetricsOptions& options) {
  command
      .add_option_function<std::string>(
          "--metrics", [&options](const std::string& text) { options.address = wholeAddress(text); },
          "answer http://ADDRESS:PORT/metrics for Prometheus; without an address on this machine alone")
      ->type_name("[ADDRESS:]PORT");
  static const std::map<std::string, RuleChoice> choices = {
      {"none", RuleChoice::none}, {"hit", RuleChoice::hit}, {"all", RuleChoice::all}};
  command
      .add_option_function<std::string>(
          "--metrics-rules", [&options](const std::string& text) { options.rules = choices.at(text); },
          fmt::format(
              "which of the first {} rules have metrics of their own: none, those that were hit, or all (default all)",
              mostRuleMetrics))
      ->check(CLI::IsMember({"none", "hit", "all"}))
      ->type_name("WHICH");
}

}  // namespace Agent
