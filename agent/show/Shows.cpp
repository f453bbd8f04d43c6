#include <agent/show/Shows.h>

#include <algorithm>
#include <vector>

namespace Agent {

std::span<const Show> shows() {
  static const std::vector<Show> all = [] {
    std::vector<Show> rows;
    for (const auto some :
         {listShows(), configurationShows(), statusShows(), portShows(), agentShows(), traceShows()})
      rows.insert(rows.end(), some.begin(), some.end());
    return rows;
  }();
  return all;
}

const Show* showOf(std::string_view name) {
  const auto all = shows();
  const auto at = std::find_if(all.begin(), all.end(), [&](const Show& show) { return show.name == name; });
  return at == all.end() ? nullptr : &*at;
}

}  // namespace Agent
