// JSON, whose templates are compiled once, optimised, in cmake/json.cpp and not in each file that speaks it:
// for the precompiled headers of those files.
#pragma once

#include <nlohmann/json.hpp>
#include <string>
#include <string_view>
#include <utility>

namespace VeloBuild {
using TextOfJson = decltype(nlohmann::detail::input_adapter(std::declval<const std::string&>()));
using ViewOfJson = decltype(nlohmann::detail::input_adapter(std::declval<const std::string_view&>()));
}  // namespace VeloBuild

#ifndef VELO_COMPILES_JSON
#define VELO_COMPILES_JSON extern
#endif
VELO_COMPILES_JSON template class nlohmann::basic_json<nlohmann::ordered_map>;
VELO_COMPILES_JSON template class nlohmann::detail::iter_impl<const nlohmann::ordered_json>;
VELO_COMPILES_JSON template class nlohmann::detail::serializer<nlohmann::ordered_json>;
VELO_COMPILES_JSON template class nlohmann::detail::lexer<nlohmann::ordered_json, VeloBuild::TextOfJson>;
VELO_COMPILES_JSON template class nlohmann::detail::lexer<nlohmann::ordered_json, VeloBuild::ViewOfJson>;
VELO_COMPILES_JSON template class nlohmann::detail::parser<nlohmann::ordered_json, VeloBuild::TextOfJson>;
VELO_COMPILES_JSON template class nlohmann::detail::parser<nlohmann::ordered_json, VeloBuild::ViewOfJson>;
