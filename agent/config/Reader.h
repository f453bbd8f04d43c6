#pragma once

#include <agent/config/Mistake.h>
#include <agent/config/Model.h>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace Config {

/// One configuration text; the name is the one that mistakes carry.
struct Source {
  std::string name;
  std::string text;
};

/// What became of some texts: the model, or every mistake that is in them.
struct Result {
  std::optional<Model> model;  ///< there exactly if there are no mistakes
  std::vector<Mistake> mistakes;
};

/// Reads the texts in order as one: a later one continues, replaces or takes back what an earlier one said,
/// and goes on in the list or interface that is open at its start.
///
/// `start` is what was said before the first text; reading ends behind the text or line with mistake number
/// `mostMistakes`, for texts that nobody can vouch for. A result is whole: with a mistake in any text there
/// is no model. Takes any bytes; linear in the size of the texts, but for `no permit ...`, which walks its
/// list.
Result read(const std::vector<Source>& sources, Model start = {}, size_t mostMistakes = SIZE_MAX);

}  // namespace Config
