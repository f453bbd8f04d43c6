#pragma once

#include <agent/core/Descriptor.h>

#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

namespace Agent {

/// The octets of a file from its beginning to its end, with a count of those that were taken.
class OctetSource {
 public:
  explicit OctetSource(Descriptor file) : file_(std::move(file)) {}

  /// The next octets, at most `most`; 0 at the end, negative when reading failed (errno).
  ssize_t read(void* to, size_t most);
  /// Shows the octets that the next read() begins with, at most `most` of them.
  std::string peek(size_t most);
  uint64_t position() const { return position_; }

 private:
  const Descriptor file_;
  std::string peeked_;  // read already, and given out next
  uint64_t position_ = 0;
};

/// Turns the octets of a file into what they stand for.
class Unpacker {
 public:
  virtual ~Unpacker() = default;
  /// As OctetSource::read(). When the data are wrong it returns a negative number and sets `wrong`.
  virtual ssize_t read(char* to, size_t most, std::string& wrong) = 0;
};

/// A file for reading that is unpacked on the way when it is compressed, with gzip or zstd. Its first octets
/// say whether it is; so that works with pipes, too.
class UnpackedFile {
 public:
  /// Opens a file; "-" is standard input. When that fails, or it is of a kind that this program was built
  /// without, stream() is null and wrong() says why.
  explicit UnpackedFile(const std::string& path);

  /// What is in the file, for libraries that read streams. Whoever takes it closes it, while this object
  /// lives.
  std::FILE* stream() const { return stream_; }
  /// What is wrong with the file or its data; without the path. Empty if nothing is.
  const std::string& wrong() const { return wrong_; }
  /// How many octets of the file itself have been read.
  uint64_t position() const { return source_ ? source_->position() : 0; }

 private:
  static ssize_t read(void* file, char* to, size_t most);

  std::unique_ptr<OctetSource> source_;
  std::unique_ptr<Unpacker> unpacker_;
  std::FILE* stream_ = nullptr;
  std::string wrong_;
};

}  // namespace Agent
