#include <agent/ports/Captures.h>
#include <pcap/pcap.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <limits>

namespace Agent {

namespace {

constexpr int maxFrame = 262144;  // the largest snap length of libpcap
constexpr int64_t nanosecondsInSecond = 1000000000;

// The end of the year 9999. Up to there a Kelp::Duration is exact to less than a millisecond, and a date has
// four digits for the year.
constexpr Stamp pastLastStamp{253402300800, 0};
constexpr int64_t lastSecondOfPcap = std::numeric_limits<uint32_t>::max();

/// The seconds of a pcap file are unsigned 32-bit numbers, which the library may hand over as negative ones;
/// those of pcapng have 64 bits.
int64_t secondsOf(pcap* capture, int64_t seconds) {
  constexpr int versionOfPcap = 2;
  return pcap_major_version(capture) == versionOfPcap ? static_cast<uint32_t>(seconds) : seconds;
}

/// A time stamp. In broken captures the nanoseconds can be more than a second, or negative.
Stamp stampOf(int64_t seconds, int64_t nanoseconds) {
  int64_t carry = nanoseconds / nanosecondsInSecond;
  if (nanoseconds % nanosecondsInSecond < 0) --carry;
  return {seconds + carry, static_cast<int32_t>(nanoseconds - carry * nanosecondsInSecond)};
}

std::string linkTypeText(int type) {
  const char* name = pcap_datalink_val_to_name(type);
  const char* description = pcap_datalink_val_to_description(type);
  if (!name) return fmt::format("link type {}", type);
  return fmt::format("link type {} ({})", name, description ? description : "no description");
}

}  // namespace

CaptureReader::CaptureReader(std::string path) : path_(std::move(path)) {
  std::error_code error;
  if (std::filesystem::is_directory(path_, error)) {
    wrong_ = fmt::format("{}: is a directory, not a capture", path_);
    return;
  }
  const auto bytes = std::filesystem::file_size(path_, error);
  if (!error) size_ = bytes;
  char reason[PCAP_ERRBUF_SIZE] = "";
  pcap_ = pcap_open_offline_with_tstamp_precision(path_.c_str(), PCAP_TSTAMP_PRECISION_NANO, reason);
  if (!pcap_) {
    const std::string text = reason;
    wrong_ = text.starts_with(path_) ? text : fmt::format("{}: {}", path_, text);
    return;
  }
  if (const int type = pcap_datalink(pcap_); type != DLT_EN10MB) {
    refused_ = true;
    wrong_ = fmt::format("{}: {}, only Ethernet can be replayed", path_, linkTypeText(type));
  }
}

CaptureReader::~CaptureReader() {
  if (pcap_) pcap_close(pcap_);
}

bool CaptureReader::next() {
  if (!pcap_ || !wrong_.empty()) return false;
  pcap_pkthdr* header = nullptr;
  const u_char* data = nullptr;
  const int got = pcap_next_ex(pcap_, &header, &data);
  if (got == 1) {
    ++number_;
    stamp_ = stampOf(secondsOf(pcap_, header->ts.tv_sec), header->ts.tv_usec);
    if (stamp_ < Stamp() || stamp_ >= pastLastStamp) {
      wrong_ = fmt::format("{}: frame {}: its time stamp is not in the years 1970 to 9999", path_, number_);
      return false;
    }
    frame_ = {data, header->caplen};
    wireLength_ = header->len;
    return true;
  }
  if (got == PCAP_ERROR)
    wrong_ = fmt::format("{}: ends behind frame {}: {}", path_, number_, pcap_geterr(pcap_));
  return false;
}

uint64_t CaptureReader::position() const {
  if (!pcap_) return 0;
  const long at = std::ftell(pcap_file(pcap_));
  return at > 0 ? static_cast<uint64_t>(at) : 0;
}

CaptureWriter::CaptureWriter(std::string path, const Stamp& now) : path_(std::move(path)), now_(now) {
  pcap_ = pcap_open_dead_with_tstamp_precision(DLT_EN10MB, maxFrame, PCAP_TSTAMP_PRECISION_NANO);
  file_ = pcap_dump_open(pcap_, path_.c_str());
  if (!file_) wrong_ = fmt::format("{}: {}", path_, pcap_geterr(pcap_));
}

CaptureWriter::~CaptureWriter() {
  if (file_) pcap_dump_close(file_);
  if (pcap_) pcap_close(pcap_);
}

void CaptureWriter::send(const Nimnet::Pkt& pkt) {
  if (!file_ || !wrong_.empty()) return;
  if (now_.seconds > lastSecondOfPcap) {
    wrong_ = fmt::format("{}: ends before a frame of a time that a pcap file cannot hold: after 2106-02-07",
                         path_);
    return;
  }
  pcap_pkthdr header{};
  header.ts.tv_sec = static_cast<decltype(header.ts.tv_sec)>(now_.seconds);
  header.ts.tv_usec = now_.nanoseconds;
  header.caplen = pkt.size();
  header.len = pkt.wireLength();
  pcap_dump(reinterpret_cast<u_char*>(file_), &header, pkt.frame().data());
}

void CaptureWriter::flush() {
  if (!file_ || !wrong_.empty()) return;
  // A write that failed earlier is only seen in the error flag of the file.
  const bool lost = std::ferror(pcap_dump_file(file_)) != 0;
  if (pcap_dump_flush(file_) != 0 || lost) {
    wrong_ = fmt::format("{}: could not be written to its end{}", path_,
                         lost ? "" : fmt::format(": {}", std::strerror(errno)));
  }
}

}  // namespace Agent
