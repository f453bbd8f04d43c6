#include <agent/ports/Unpack.h>
#include <fcntl.h>
#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <string_view>

// The libraries are optional. Where one is missing, its files are refused with a sentence.
#ifdef VELO_HAS_ZLIB
#include <zlib.h>
#endif
#ifdef VELO_HAS_ZSTD
#include <zstd.h>
#endif

namespace Agent {

namespace {

constexpr size_t pieceOfFile = 64 * 1024;
constexpr const char* cutOff = "the compressed data are cut off";
constexpr const char* damaged = "the compressed data are damaged";

class Plain final : public Unpacker {
 public:
  explicit Plain(OctetSource& source) : source_(source) {}
  ssize_t read(char* to, size_t most, std::string&) override { return source_.read(to, most); }

 private:
  OctetSource& source_;
};

#ifdef VELO_HAS_ZLIB
/// One or several gzip members in a row (RFC 1952, 2.2). What follows them and is none is left alone.
class Gzip final : public Unpacker {
 public:
  explicit Gzip(OctetSource& source) : source_(source) {
    constexpr int gzipWindow = 15 + 16;
    if (inflateInit2(&state_, gzipWindow) != Z_OK) throw std::bad_alloc();
  }
  ~Gzip() override { inflateEnd(&state_); }

  ssize_t read(char* to, size_t most, std::string& wrong) override {
    state_.next_out = reinterpret_cast<Bytef*>(to);
    state_.avail_out = static_cast<uInt>(most);
    while (state_.avail_out == most && !atEnd_) {
      if (state_.avail_in == 0 && !fill(wrong)) return -1;
      if (atEnd_) break;
      const int result = inflate(&state_, Z_NO_FLUSH);
      if (result == Z_STREAM_END) {
        inMember_ = false;
        inflateReset(&state_);
      } else if (result != Z_OK) {
        // Octets behind a whole member that are no member belong to somebody else.
        atEnd_ = !inMember_;
        if (atEnd_) break;
        wrong = damaged;
        return -1;
      } else {
        inMember_ = true;
      }
    }
    return static_cast<ssize_t>(most - state_.avail_out);
  }

 private:
  bool fill(std::string& wrong) {
    const ssize_t got = source_.read(in_.data(), in_.size());
    if (got < 0) return false;
    if (got == 0 && inMember_) {
      wrong = cutOff;
      return false;
    }
    atEnd_ = got == 0;
    state_.next_in = in_.data();
    state_.avail_in = static_cast<uInt>(got);
    return true;
  }

  OctetSource& source_;
  z_stream state_{};
  std::array<uint8_t, pieceOfFile> in_;
  bool atEnd_ = false;
  bool inMember_ = true;  // not between two, nor behind the last one
};
#endif

#ifdef VELO_HAS_ZSTD
/// One or several zstd frames in a row (RFC 8878, 3).
class Zstd final : public Unpacker {
 public:
  explicit Zstd(OctetSource& source) : source_(source), state_(ZSTD_createDStream()) {
    if (!state_) throw std::bad_alloc();
  }
  ~Zstd() override { ZSTD_freeDStream(state_); }

  ssize_t read(char* to, size_t most, std::string& wrong) override {
    ZSTD_outBuffer out{to, most, 0};
    while (out.pos == 0) {
      if (given_.pos == given_.size) {
        const ssize_t got = source_.read(in_.data(), in_.size());
        if (got < 0) return -1;
        if (got == 0) {
          if (!inFrame_) return 0;
          wrong = cutOff;
          return -1;
        }
        given_ = {in_.data(), static_cast<size_t>(got), 0};
      }
      const size_t left = ZSTD_decompressStream(state_, &out, &given_);
      if (ZSTD_isError(left)) {
        wrong = damaged;
        return -1;
      }
      inFrame_ = left != 0;
    }
    return static_cast<ssize_t>(out.pos);
  }

 private:
  OctetSource& source_;
  ZSTD_DStream* const state_;
  std::array<uint8_t, pieceOfFile> in_;
  ZSTD_inBuffer given_{nullptr, 0, 0};
  bool inFrame_ = true;
};
#endif

template <class Kind>
std::unique_ptr<Unpacker> make(OctetSource& source) {
  return std::make_unique<Kind>(source);
}

/// How a file can be packed: what it begins with then, and what unpacks it, if that was built in.
struct Packing {
  std::string_view name;
  std::string_view begin;
  std::unique_ptr<Unpacker> (*unpacker)(OctetSource& source);
  std::string_view library;
};

constexpr Packing packings[] = {
    {"gzip", "\x1f\x8b",
#ifdef VELO_HAS_ZLIB
     make<Gzip>,
#else
     nullptr,
#endif
     "zlib"},
    {"zstd", "\x28\xb5\x2f\xfd",
#ifdef VELO_HAS_ZSTD
     make<Zstd>,
#else
     nullptr,
#endif
     "libzstd"},
    {"", "", make<Plain>, ""},
};

}  // namespace

ssize_t OctetSource::read(void* to, size_t most) {
  if (!peeked_.empty()) {
    const size_t size = std::min(most, peeked_.size());
    std::memcpy(to, peeked_.data(), size);
    peeked_.erase(0, size);
    return static_cast<ssize_t>(size);
  }
  ssize_t got = -1;
  do {
    got = ::read(file_.get(), to, most);
  } while (got < 0 && errno == EINTR);
  if (got > 0) position_ += static_cast<uint64_t>(got);
  return got;
}

std::string OctetSource::peek(size_t most) {
  std::string shown;
  shown.resize(most);
  size_t size = 0;
  for (ssize_t got = 1; size < most && got > 0; size += got > 0 ? static_cast<size_t>(got) : 0)
    got = read(shown.data() + size, most - size);
  shown.resize(size);
  peeked_ = shown;
  return shown;
}

UnpackedFile::UnpackedFile(const std::string& path) {
  constexpr size_t longestBegin = 4;
  Descriptor file(path == "-" ? dup(STDIN_FILENO) : ::open(path.c_str(), O_RDONLY | O_CLOEXEC));
  if (!file) {
    wrong_ = std::strerror(errno);
    return;
  }
  source_ = std::make_unique<OctetSource>(std::move(file));
  const std::string begin = source_->peek(longestBegin);
  const auto* packing = std::find_if(std::begin(packings), std::end(packings),
                                     [&](const Packing& each) { return begin.starts_with(each.begin); });
  if (!packing->unpacker) {
    wrong_ =
        fmt::format("is compressed with {}, and this program was built without {}, which would unpack it",
                    packing->name, packing->library);
    return;
  }
  unpacker_ = packing->unpacker(*source_);
  cookie_io_functions_t functions{};
  functions.read = &UnpackedFile::read;
  stream_ = fopencookie(this, "r", functions);
  if (!stream_)
    wrong_ = std::strerror(errno);
  else
    std::setvbuf(stream_, nullptr, _IOFBF, pieceOfFile);
}

ssize_t UnpackedFile::read(void* file, char* to, size_t most) {
  auto& self = *static_cast<UnpackedFile*>(file);
  const ssize_t got = self.unpacker_->read(to, most, self.wrong_);
  if (got < 0 && !self.wrong_.empty()) errno = EIO;
  return got;
}

}  // namespace Agent
