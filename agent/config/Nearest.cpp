#include <agent/config/Mistake.h>
#include <agent/config/Nearest.h>
#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <utility>

namespace Config {

namespace {

constexpr size_t longest = 40;  // words beyond it are no mistyped names
constexpr size_t mostNames = 3;

char lower(char c) { return 'A' <= c && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; }

/// Both are at most `longest` long.
size_t distance(std::string_view a, std::string_view b) {
  std::array<std::array<size_t, longest + 1>, longest + 1> steps;
  for (size_t i = 0; i <= a.size(); ++i) {
    for (size_t j = 0; j <= b.size(); ++j) {
      if (i == 0 || j == 0) {
        steps[i][j] = i + j;
        continue;
      }
      const bool same = lower(a[i - 1]) == lower(b[j - 1]);
      size_t& here = steps[i][j];
      here = std::min({steps[i - 1][j] + 1, steps[i][j - 1] + 1, steps[i - 1][j - 1] + (same ? 0 : 1)});
      const bool exchanged =
          i > 1 && j > 1 && lower(a[i - 1]) == lower(b[j - 2]) && lower(a[i - 2]) == lower(b[j - 1]);
      if (exchanged) here = std::min(here, steps[i - 2][j - 2] + 1);
    }
  }
  return steps[a.size()][b.size()];
}

}  // namespace

std::vector<std::string_view> nearestNames(std::string_view word, std::span<const std::string_view> names) {
  std::vector<std::string_view> nearest;
  if (word.empty() || word.size() > longest) return nearest;
  // Of a word of two letters half would have to be wrong.
  size_t least = word.size() <= 2 ? 0 : word.size() <= 4 ? 1 : word.size() <= 8 ? 2 : 3;
  for (const auto name : names) {
    if (name.size() > longest) continue;
    const bool shortened = word.size() > 2 && name.starts_with(word);
    // There may be very many names, and each letter more or less counts 1.
    if (!shortened && std::max(word.size(), name.size()) - std::min(word.size(), name.size()) > least)
      continue;
    const size_t far = shortened ? 1 : distance(word, name);
    if (far > least) continue;
    if (far < least) nearest.clear();
    least = far;
    if (nearest.size() < mostNames && std::find(nearest.begin(), nearest.end(), name) == nearest.end())
      nearest.push_back(name);
  }
  return nearest;
}

std::string orMeant(std::string sentence, std::string_view meant) {
  return meant.empty() ? sentence : fmt::format("{} (did you mean {}?)", sentence, meant);
}

std::string orNearest(std::string expected, std::string_view word, std::span<const std::string_view> names) {
  const auto nearest = nearestNames(word, names);
  return orMeant(std::move(expected), nearest.empty() ? "" : anyOf(nearest));
}

bool failNear(Cursor& at, std::string expected, std::initializer_list<std::string_view> names) {
  return at.fail(orNearest(std::move(expected), at.peek(), {names.begin(), names.size()}));
}

}  // namespace Config
