#pragma once

#include <agent/forward/Forwarder.h>
#include <agent/ports/Unpack.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

struct pcap;
struct pcap_dumper;

namespace Agent {

struct LinkType;

/// A time stamp of a capture. Nanoseconds are 0 to 999,999,999.
struct Stamp {
  static constexpr int64_t nanosecondsInSecond = 1000000000;
  int64_t seconds = 0;
  int32_t nanoseconds = 0;
  auto operator<=>(const Stamp&) const = default;
  double value() const { return static_cast<double>(seconds) + nanoseconds * 1e-9; }
};

/// Reads the frames of a capture file: pcap or pcapng, any byte order and resolution, also compressed with
/// gzip or zstd; of Ethernet, of Linux cooked sockets (both versions), or of raw IP.
class CaptureReader {
 public:
  /// Opens a file; check wrong() and refused() before use.
  explicit CaptureReader(std::string path);
  ~CaptureReader();
  CaptureReader(const CaptureReader&) = delete;
  CaptureReader& operator=(const CaptureReader&) = delete;

  const std::string& path() const { return path_; }
  /// Why the file cannot be read further, with path and place; empty while it can.
  const std::string& wrong() const { return wrong_; }
  /// True when the file is a capture of something else than such frames.
  bool refused() const { return refused_; }

  /// Goes to the next frame; false at the end, and when something is wrong. A frame with a time stamp before
  /// 1970 or after 9999 is damage.
  bool next();
  const Stamp& stamp() const { return stamp_; }
  /// The octets of the frame: from the Ethernet header on or, of other captures, those that would stand
  /// behind it.
  std::span<const uint8_t> frame() const { return frame_; }
  uint32_t wireLength() const { return wireLength_; }
  /// Of a frame without an Ethernet header the EtherType of what its octets are.
  std::optional<uint16_t> typeBefore() const { return typeBefore_; }
  /// Makes a packet of the frame.
  void assignTo(Nimnet::Pkt& pkt) const;
  /// The number of the current frame, from 1.
  uint64_t number() const { return number_; }
  /// How much of the file has been read, in octets; for progress.
  uint64_t position() const;
  uint64_t size() const { return size_; }

 private:
  void frameIs(std::span<const uint8_t> captured, uint32_t wireLength);

  const std::string path_;
  std::unique_ptr<UnpackedFile> file_;
  pcap* pcap_ = nullptr;
  const LinkType* link_ = nullptr;
  std::string wrong_;
  bool refused_ = false;
  Stamp stamp_;
  std::span<const uint8_t> frame_;
  std::optional<uint16_t> typeBefore_;
  uint32_t wireLength_ = 0;
  uint64_t number_ = 0;
  uint64_t size_ = 0;
};

/// The octets of a packet as a file of Ethernet frames has them: a packet without an Ethernet header gets one
/// with addresses of zeros, which is made in `made`. Valid as long as packet and `made` stay as they are.
std::span<const uint8_t> withEthernet(const Nimnet::Pkt& pkt, std::vector<uint8_t>& made);

/// Writes the frames that leave a port to a pcap file of Ethernet with nanosecond stamps. A frame gets the
/// time that `now` has when it is written; `now` outlives the writer.
class CaptureWriter final : public FrameSink {
 public:
  CaptureWriter(std::string path, const Stamp& now);
  ~CaptureWriter() override;
  CaptureWriter(const CaptureWriter&) = delete;
  CaptureWriter& operator=(const CaptureWriter&) = delete;

  /// What went wrong; empty if nothing did.
  const std::string& wrong() const { return wrong_; }
  void send(const Nimnet::Pkt& pkt) override;
  /// Writes out what is buffered. After this, wrong() is final.
  void flush();

 private:
  const std::string path_;
  const Stamp& now_;
  pcap* pcap_ = nullptr;
  pcap_dumper* file_ = nullptr;
  std::string wrong_;
  std::vector<uint8_t> made_;  // for withEthernet()
};

}  // namespace Agent
