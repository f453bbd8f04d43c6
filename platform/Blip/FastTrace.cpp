#include <Blip/FastTrace.h>
#include <Blip/Ring.h>
#include <fmt/format.h>

#include <functional>
#include <set>
#include <string>

namespace Blip {

namespace {
using Names = std::set<std::string, std::less<>>;

Names& facilitiesOn() {
  static auto& instance = *new Names;
  return instance;
}
Names& facilitiesAsked() {
  static auto& instance = *new Names;
  return instance;
}
}  // namespace

bool fastTraceOn(std::string_view facility) {
  if (!facilitiesAsked().contains(facility)) facilitiesAsked().emplace(facility);
  return facilitiesOn().contains(facility);
}

std::vector<std::string> fastTraceFacilities() {
  return {facilitiesAsked().begin(), facilitiesAsked().end()};
}

bool fastTraceIs(std::string_view facility, bool on) {
  auto& facilities = facilitiesOn();
  const auto known = facilities.find(facility);
  if (on == (known != facilities.end())) return true;
  if (!on) {
    facilities.erase(known);
  } else if (facilities.size() < mostFastTraces) {
    facilities.emplace(facility);
  } else {
    return false;
  }
  return true;
}

void fastTrace(std::string_view file, int line, std::initializer_list<std::string_view> args) {
  fmt::memory_buffer text;
  fmt::format_to(fmt::appender(text), "{}:{}", file, line);
  for (std::string_view arg : args) {
    text.push_back(' ');
    text.append(arg);
  }
  ring().append(std::string_view(text.data(), text.size()));
}

}  // namespace Blip
