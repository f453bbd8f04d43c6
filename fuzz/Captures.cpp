// Captures by structure, with whatever times, lengths and blocks: reading ends, what is read is whole, and a
// replay comes to its end.

#include "../tests/agent/support/CaptureBytes.h"
#include "../tests/agent/support/Run.h"
#include "../tests/support/RandomFrames.h"
#include "Target.h"

#include <agent/ports/Captures.h>
#include <agent/replay/Replay.h>

#include <fcntl.h>
#include <unistd.h>
#include <cstdlib>
#include <filesystem>

namespace {

using Fuzz::Dice;
using TestSupport::Bytes;

/// Appends numbers in the byte order that the file says it has, or now and then in the other one.
class File {
 public:
  explicit File(Dice& dice) : dice_(dice), big_(dice.once(4)) {}

  void number(uint64_t value, size_t octets) {
    if (dice_.once(64)) value = someNumber();
    for (size_t i = 0; i < octets; ++i) {
      const size_t shift = 8 * (big_ ? octets - 1 - i : i);
      bytes_.push_back(static_cast<uint8_t>(shift < 64 ? value >> shift : 0));
    }
  }
  void put(const Bytes& bytes) { bytes_.insert(bytes_.end(), bytes.begin(), bytes.end()); }
  void padTo(size_t multiple) { bytes_.resize((bytes_.size() + multiple - 1) / multiple * multiple); }

  /// A block of pcapng; `body` appends what is between its head and its end.
  template <class Body>
  void block(uint32_t type, const Body& body) {
    const size_t start = bytes_.size();
    number(type, 4);
    number(0, 4);
    body();
    padTo(4);
    const uint64_t length = dice_.once(24) ? someNumber() : bytes_.size() + 4 - start;
    number(length, 4);
    for (size_t i = 0; i < 4; ++i) bytes_[start + 4 + i] = bytes_[bytes_.size() - 4 + i];
  }
  void option(uint32_t code, const Bytes& value) {
    number(code, 2);
    number(value.size(), 2);
    put(value);
    padTo(4);
  }

  uint64_t someNumber() {
    const uint64_t border = uint64_t{1} << dice_.below(64);
    return dice_.once(2) ? dice_.any() : border - dice_.below(2);
  }
  Bytes frame() {
    Bytes made = TestSupport::randomFrame(dice_);
    if (dice_.once(6)) TestSupport::damage(made, dice_);
    return made;
  }
  Bytes finish() {
    if (dice_.once(6)) bytes_.resize(dice_.below(bytes_.size() + 1));
    if (dice_.once(6)) TestSupport::damage(bytes_, dice_);
    return std::move(bytes_);
  }

 private:
  Dice& dice_;
  const bool big_;
  Bytes bytes_;
};

constexpr uint64_t usualLinks[] = {1, 1, 1, 1, 1, 0, 101, 113, 276};

/// Seconds of usual captures, at borders of what a number holds, or any.
uint64_t someSeconds(File& file, Dice& dice) {
  if (!dice.once(4)) return 1700000000 + dice.below(4);
  return file.someNumber();
}

Bytes pcapFile(Dice& dice) {
  File file(dice);
  constexpr uint32_t magics[] = {0xa1b2c3d4, 0xa1b23c4d, 0xa1b2cd34, 0xa1b2c3d5};
  file.number(dice.once(8) ? dice.of(magics) : magics[dice.below(2)], 4);
  file.number(2, 2);
  file.number(4, 2);
  file.number(0, 4);
  file.number(0, 4);
  file.number(262144, 4);
  file.number(dice.of(usualLinks), 4);
  while (dice.more()) {
    const Bytes frame = file.frame();
    file.number(someSeconds(file, dice), 4);
    file.number(dice.once(4) ? file.someNumber() : dice.below(1000000), 4);
    file.number(frame.size(), 4);
    file.number(frame.size() + (dice.once(4) ? dice.below(2000) : 0), 4);
    file.put(frame);
  }
  return file.finish();
}

void interfaceBlock(File& file, Dice& dice) {
  file.block(1, [&] {
    file.number(dice.of(usualLinks), 2);
    file.number(0, 2);
    file.number(dice.once(4) ? 0 : 262144, 4);
    // The resolution of the times: a power of ten or of two, and seconds to be added.
    if (dice.once(2)) file.option(9, {static_cast<uint8_t>(dice.once(2) ? dice.below(256) : 9)});
    if (dice.once(8)) {
      Bytes offset;
      for (int i = 0; i < 8; ++i) offset.push_back(static_cast<uint8_t>(dice.below(256)));
      file.option(14, offset);
    }
    file.option(0, {});
  });
}

void packetBlock(File& file, Dice& dice) {
  const Bytes frame = file.frame();
  const uint64_t time = dice.once(4) ? file.someNumber() : someSeconds(file, dice) * 1000000000;
  file.block(6, [&] {
    file.number(dice.once(8) ? dice.below(4) : 0, 4);
    file.number(time >> 32, 4);
    file.number(time & 0xffffffff, 4);
    file.number(frame.size(), 4);
    file.number(frame.size() + (dice.once(4) ? dice.below(2000) : 0), 4);
    file.put(frame);
  });
}

void sectionBlock(File& file) {
  file.block(0x0a0d0d0a, [&] {
    file.number(0x1a2b3c4d, 4);
    file.number(1, 2);
    file.number(0, 2);
    file.number(~uint64_t{0}, 8);
  });
}

Bytes pcapngFile(Dice& dice) {
  File file(dice);
  sectionBlock(file);
  interfaceBlock(file, dice);
  while (dice.more()) {
    const uint64_t kind = dice.below(12);
    if (kind < 7) {
      packetBlock(file, dice);
    } else if (kind == 7) {
      interfaceBlock(file, dice);
    } else if (kind == 8) {
      sectionBlock(file);
    } else if (kind == 9) {  // a simple packet
      const Bytes frame = file.frame();
      file.block(3, [&] {
        file.number(frame.size(), 4);
        file.put(frame);
      });
    } else {  // names, statistics, an old packet, or what nobody knows
      constexpr uint32_t types[] = {4, 5, 2, 10, 0xbad, 0x80000001};
      file.block(dice.of(types), [&] {
        for (auto words = dice.below(8); words > 0; --words) file.number(dice.any(), 4);
      });
    }
  }
  return file.finish();
}

/// Standard output and error are for the fuzzer; what the program prints goes nowhere while this lives,
/// unless VELO_FUZZ_LOUD is set: then the report of a sanitizer can be seen.
class Silence {
 public:
  Silence() {
    if (loud_) return;
    const int nowhere = open("/dev/null", O_WRONLY | O_CLOEXEC);
    for (int i = 0; i < 2; ++i) {
      std::fflush(i ? stderr : stdout);
      kept_[i] = dup(i + 1);
      dup2(nowhere, i + 1);
    }
    close(nowhere);
  }
  ~Silence() {
    if (loud_) return;
    for (int i = 0; i < 2; ++i) {
      std::fflush(i ? stderr : stdout);
      dup2(kept_[i], i + 1);
      close(kept_[i]);
    }
  }

 private:
  const bool loud_ = std::getenv("VELO_FUZZ_LOUD") != nullptr;
  int kept_[2];
};

void readToTheEnd(const std::string& path, size_t octets) {
  Agent::CaptureReader reader(path);
  uint64_t frames = 0, sum = 0;
  while (reader.next()) {
    Fuzz::require(++frames <= octets && reader.number() == frames, "more frames than the file has room for");
    Fuzz::require(reader.stamp().nanoseconds >= 0 && reader.stamp().nanoseconds < 1000000000,
                  "a fraction of more than a second");
    Fuzz::require(reader.frame().size() <= octets, "a frame that is larger than its file");
    for (const uint8_t octet : reader.frame()) sum += octet;
  }
  Fuzz::require(sum <= 255 * octets * octets, "octets out of nowhere");
  Fuzz::require(!reader.next(), "a frame behind the end");
}

}  // namespace

void Fuzz::run(Dice& dice) {
  const TestSupport::TempDir dir(Fuzz::memoryPath());
  const bool replayed = dice.once(4);
  const Bytes bytes = dice.once(2) ? pcapngFile(dice) : pcapFile(dice);
  const std::string path = dir / "in.pcap";
  TestSupport::writeFile(path, bytes);
  readToTheEnd(path, bytes.size());
  if (!replayed) return;

  TestSupport::writeFile(dir / "t.acl",
                         "ip access-list A\n10 deny udp any any eq 53\n20 permit ip any any\ninterface eth1\n"
                         "ip access-group A in\n");
  Agent::ReplayOptions options;
  options.configs = {dir / "t.acl"};
  options.ports = {{"eth1", path}, {"eth2", path}};
  options.patches = {{"eth1", "eth2"}};
  options.outs = {{"eth2", dir / "out.pcap"}};
  options.verdicts = dir / "verdicts";
  options.plugin = std::string(VELO_BIN_DIR) + "/VeloAcl.so";
  options.json = dice.once(2);
  {
    const Silence silence;
    Agent::replay(options);
  }
  if (!std::filesystem::exists(dir / "out.pcap")) return;
  readToTheEnd(dir / "out.pcap", TestSupport::readFile(dir / "out.pcap").size());
}
