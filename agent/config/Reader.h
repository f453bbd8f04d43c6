#pragma once

#include <agent/config/Mistake.h>
#include <agent/config/Model.h>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace Config {

/// One configuration text. Mistakes carry its name.
struct Source {
  std::string name;
  std::string text;
};

/// What reading some texts gave: the model, or every mistake in them.
struct Result {
  std::optional<Model> model;  ///< nothing when there are mistakes
  std::vector<Mistake> mistakes;
};

/// Reads the texts in order as if they were one: a later text continues, replaces or takes back what an
/// earlier one said. It begins in the list or interface in which the one before it has ended.
///
/// `start` is the model before the first text. Reading stops behind mistake number `mostMistakes`: a text
/// from an unknown source may have any number of them. With a mistake in any text there is no model. The
/// texts may contain any bytes. The time is linear in their size; only `no permit ...` walks its whole list.
Result read(const std::vector<Source>& sources, Model start = {}, size_t mostMistakes = SIZE_MAX);

}  // namespace Config
