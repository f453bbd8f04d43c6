#pragma once

#include "Frames.h"

namespace TestSupport {

// Appending and overwriting numbers in network byte order; the set functions throw beyond the end.

inline void put8(Bytes& to, uint32_t value) { to.push_back(static_cast<uint8_t>(value)); }
inline void put16(Bytes& to, uint32_t value) {
  put8(to, value >> 8);
  put8(to, value);
}
inline void put32(Bytes& to, uint32_t value) {
  put16(to, value >> 16);
  put16(to, value);
}
inline void set16(Bytes& in, size_t at, uint32_t value) {
  in.at(at) = static_cast<uint8_t>(value >> 8);
  in.at(at + 1) = static_cast<uint8_t>(value);
}
inline void set32(Bytes& in, size_t at, uint32_t value) {
  set16(in, at, value >> 16);
  set16(in, at + 2, value);
}
inline void append(Bytes& to, const Bytes& more) { to.insert(to.end(), more.begin(), more.end()); }
/// Zeros up to the next multiple of `unit`.
inline void fillUp(Bytes& bytes, size_t unit) { bytes.resize((bytes.size() + unit - 1) / unit * unit); }

}  // namespace TestSupport
