#pragma once

#include <fmt/format.h>

#include <cstdint>
#include <string>
#include <string_view>

/// Several agents may share one state tree, each in a cell of its own.
namespace Cell {

/// The full path of a cell's entity. Cell 0 is the agent's own and has its entities at the plain path; those
/// of another cell are below "cell/N".
inline std::string path(std::string_view path, uint32_t cell) {
  return cell == 0 ? std::string(path) : fmt::format("cell/{}/{}", cell, path);
}

}  // namespace Cell
