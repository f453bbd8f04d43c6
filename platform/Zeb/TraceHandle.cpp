#include <Kelp/Assert.h>
#include <Plog/Plog.h>
#include <Zeb/System.h>
#include <Zeb/TraceHandle.h>

#include <functional>
#include <map>
#include <memory>
#include <set>
#include <utility>
#include <vector>

namespace Zeb {

namespace {

using Impl::TraceFacility;

// A facility is here while it has handles or is on. The records and their names belong to this library, so
// that nothing points into a plugin that was closed. Never destroyed: globals with handles are destroyed in
// any order.
using FacilityMap = std::map<std::string, std::unique_ptr<TraceFacility>, std::less<>>;

FacilityMap& allFacilities() {
  static FacilityMap& instance = *new FacilityMap;
  return instance;
}

TraceFacility& facilityOf(std::string_view name) {
  auto known = allFacilities().find(name);
  if (known == allFacilities().end()) {
    known = allFacilities().emplace(name, std::make_unique<TraceFacility>(name)).first;
  }
  return *known->second;
}

std::string_view trimmed(std::string_view text) {
  constexpr std::string_view blanks = " \t\n\r";
  const size_t first = text.find_first_not_of(blanks);
  if (first == text.npos) return {};
  return text.substr(first, text.find_last_not_of(blanks) - first + 1);
}

struct Element {
  std::string_view name;
  int level = 0;
  std::string error;
};

Element parsed(std::string_view text) {
  const size_t slash = text.find('/');
  const auto wrong = [&](const char* why) {
    return Element{{}, 0, fmt::format("trace facility \"{}\": {}", text, why)};
  };
  if (text.empty()) return wrong("empty; NAME/LEVEL expected");
  if (slash == text.npos) return wrong("no level; NAME/LEVEL expected");
  if (slash == 0) return wrong("no name; NAME/LEVEL expected");
  const std::string_view level = text.substr(slash + 1);
  if (level.size() != 1 || level[0] < '0' || level[0] > '9') return wrong("the level is not one of 0 to 9");
  return Element{text.substr(0, slash), level[0] - '0', {}};
}

std::optional<std::string> whyTooMany(const std::vector<Element>& elements) {
  std::set<std::string_view> unused;
  for (const auto& [name, facility] : allFacilities()) {
    if (facility->handles == 0) unused.insert(name);
  }
  for (const Element& element : elements) {
    if (!allFacilities().contains(element.name)) unused.insert(element.name);
  }
  if (unused.size() <= TraceHandle::mostUnused) return std::nullopt;
  return fmt::format("more than {} trace facilities that nothing uses", TraceHandle::mostUnused);
}

}  // namespace

TraceHandle::TraceHandle(std::string_view name, std::string_view source)
    : facility_(&facilityOf(name)), source_(source) {
  KELP_ASSERT(!source.starts_with('/') && source.find('.') == source.npos,
              "the source of a trace handle is a path of the tree without its extension");
  ++facility_->handles;
}

TraceHandle::~TraceHandle() {
  if (--facility_->handles == 0 && !on(lowestLevel)) allFacilities().erase(facility_->name);
}

void TraceHandle::format(int level, std::string_view function, int line, fmt::string_view text,
                         fmt::format_args args) const {
  const std::string formatted = fmt::vformat(text, args);
  Plog::write({.time = System::currentTime(),
               .facility = name(),
               .level = level,
               .function = function,
               .file = source_,
               .line = line,
               .text = formatted});
}

std::optional<std::string> TraceHandle::enable(std::string_view spec, const WhyNot& whyNot) {
  if (trimmed(spec).empty()) return std::nullopt;
  std::vector<Element> elements;
  for (bool more = true; more;) {
    const size_t comma = spec.find(',');
    elements.push_back(parsed(trimmed(spec.substr(0, comma))));
    if (!elements.back().error.empty()) return std::move(elements.back().error);
    if (auto wrong = whyNot ? whyNot(elements.back().name) : std::nullopt) return wrong;
    more = comma != spec.npos;
    if (more) spec.remove_prefix(comma + 1);
  }
  if (auto tooMany = whyTooMany(elements)) return tooMany;
  for (const Element& element : elements) facilityOf(element.name).enabledLevel = element.level;
  return std::nullopt;
}

void TraceHandle::disableAll() {
  for (auto& [name, facility] : allFacilities()) facility->enabledLevel = -1;
  std::erase_if(allFacilities(), [](const auto& known) { return known.second->handles == 0; });
}

std::vector<TraceHandle::Facility> TraceHandle::facilities() {
  std::vector<Facility> all;
  for (const auto& [name, facility] : allFacilities())
    all.push_back({name, facility->enabledLevel.load(std::memory_order_relaxed), facility->handles != 0});
  return all;
}

}  // namespace Zeb
