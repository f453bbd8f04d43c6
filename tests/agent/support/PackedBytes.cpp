#include "PackedBytes.h"

#include <algorithm>

namespace TestSupport {

namespace {

void little(Bytes& to, uint64_t value, int octets) {
  for (int i = 0; i < octets; ++i) to.push_back(static_cast<uint8_t>(value >> (8 * i)));
}

/// Calls `add` with pieces of at most `most` octets, and whether each is the last one.
template <class Add>
void inPieces(const Bytes& content, size_t most, const Add& add) {
  size_t at = 0;
  do {
    const size_t size = std::min(most, content.size() - at);
    const auto begin = content.begin() + static_cast<std::ptrdiff_t>(at);
    at += size;
    add(Bytes(begin, begin + static_cast<std::ptrdiff_t>(size)), at == content.size());
  } while (at < content.size());
}

/// RFC 1952, 8.
uint32_t crc32(const Bytes& content) {
  uint32_t crc = 0xffffffff;
  for (const uint8_t octet : content) {
    crc ^= octet;
    for (int bit = 0; bit < 8; ++bit) crc = crc & 1 ? (crc >> 1) ^ 0xedb88320 : crc >> 1;
  }
  return ~crc;
}

}  // namespace

Bytes gzipBytes(const Bytes& content) {
  Bytes file = {0x1f, 0x8b, 8, 0, 0, 0, 0, 0, 0, 3};
  inPieces(content, 0xffff, [&file](const Bytes& piece, bool last) {
    file.push_back(last ? 1 : 0);
    little(file, piece.size(), 2);
    little(file, ~piece.size(), 2);
    file.insert(file.end(), piece.begin(), piece.end());
  });
  little(file, crc32(content), 4);
  little(file, content.size(), 4);
  return file;
}

Bytes zstdBytes(const Bytes& content) {
  constexpr uint8_t window = 0x50;  // of 1 MiB
  Bytes file = {0x28, 0xb5, 0x2f, 0xfd, 0, window};
  inPieces(content, 100000, [&file](const Bytes& piece, bool last) {
    little(file, piece.size() << 3 | (last ? 1 : 0), 3);
    file.insert(file.end(), piece.begin(), piece.end());
  });
  return file;
}

}  // namespace TestSupport
