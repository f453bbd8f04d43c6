#pragma once

#include <cstdint>

namespace Nimnet {

/// Numbers in network byte order (highest octet first) at any address.
constexpr uint16_t read16(const uint8_t* at) { return static_cast<uint16_t>(at[0] << 8 | at[1]); }
constexpr uint32_t read32(const uint8_t* at) { return uint32_t{read16(at)} << 16 | read16(at + 2); }
constexpr uint64_t read64(const uint8_t* at) { return uint64_t{read32(at)} << 32 | read32(at + 4); }

}  // namespace Nimnet
