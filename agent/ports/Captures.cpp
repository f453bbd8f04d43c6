#include <agent/core/Output.h>
#include <agent/ports/Captures.h>
#include <pcap/pcap.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <limits>

namespace Agent {

namespace {

constexpr int maxFrame = 262144;  // the largest snap length of libpcap

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
  int64_t carry = nanoseconds / Stamp::nanosecondsInSecond;
  if (nanoseconds % Stamp::nanosecondsInSecond < 0) --carry;
  return {seconds + carry, static_cast<int32_t>(nanoseconds - carry * Stamp::nanosecondsInSecond)};
}

constexpr uint32_t cookedHeader = 16;
constexpr uint32_t cookedHeader2 = 20;
constexpr uint32_t cookedTypeAt = 14;   // in the first version; in the second it stands at the beginning
constexpr uint16_t cookedLlc = 0x0004;  // in place of a type: an LLC header follows (Linux: ETH_P_802_2)

/// The field of a cooked header that has the EtherType.
uint16_t cookedType(const uint8_t* field, uint32_t behind) {
  const uint16_t type = Nimnet::read16(field);
  // In an Ethernet frame the length would stand there.
  if (type == cookedLlc)
    return static_cast<uint16_t>(std::min<uint32_t>(behind, Nimnet::EtherType::maxLength));
  return type;
}

/// What a packet claims to be by its version. What is neither is told to be IPv4: it is malformed then.
uint16_t rawType(std::span<const uint8_t> packet, uint32_t) {
  constexpr uint8_t six = 6;
  return !packet.empty() && packet[0] >> 4 == six ? Nimnet::EtherType::ip6 : Nimnet::EtherType::ip;
}

}  // namespace

/// A kind of capture: what stands before what would follow an Ethernet header, and its type. A further kind
/// is a row of the table.
struct LinkType {
  int number;           ///< DLT_* of libpcap
  uint32_t headerSize;  ///< octets to leave out
  /// The EtherType of what is behind the header, of which `behind` octets were on the wire. Null: there is an
  /// Ethernet header.
  uint16_t (*typeOf)(std::span<const uint8_t> captured, uint32_t behind);
};

namespace {

constexpr LinkType linkTypes[] = {
    {DLT_EN10MB, 0, nullptr},
    {DLT_LINUX_SLL, cookedHeader,
     [](std::span<const uint8_t> captured, uint32_t behind) {
       return cookedType(&captured[cookedTypeAt], behind);
     }},
    {DLT_LINUX_SLL2, cookedHeader2,
     [](std::span<const uint8_t> captured, uint32_t behind) { return cookedType(captured.data(), behind); }},
    {DLT_RAW, 0, rawType},
    {DLT_IPV4, 0, [](std::span<const uint8_t>, uint32_t) { return Nimnet::EtherType::ip; }},
    {DLT_IPV6, 0, [](std::span<const uint8_t>, uint32_t) { return Nimnet::EtherType::ip6; }},
};

const LinkType* linkTypeOf(int number) {
  const auto* at = std::find_if(std::begin(linkTypes), std::end(linkTypes),
                                [number](const LinkType& each) { return each.number == number; });
  return at == std::end(linkTypes) ? nullptr : at;
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
  file_ = std::make_unique<UnpackedFile>(path_);
  char reason[PCAP_ERRBUF_SIZE] = "";
  if (file_->stream())
    pcap_ = pcap_fopen_offline_with_tstamp_precision(file_->stream(), PCAP_TSTAMP_PRECISION_NANO, reason);
  if (!pcap_) {
    if (file_->stream()) std::fclose(file_->stream());
    wrong_ = fmt::format("{}: {}", path_, file_->wrong().empty() ? reason : file_->wrong());
    return;
  }
  const int type = pcap_datalink(pcap_);
  link_ = linkTypeOf(type);
  if (!link_) {
    refused_ = true;
    wrong_ = fmt::format("{}: {}, only Ethernet, Linux cooked and raw IP can be replayed", path_,
                         linkTypeText(type));
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
    frameIs({data, header->caplen}, header->len);
    return true;
  }
  if (got == PCAP_ERROR) {
    wrong_ = fmt::format("{}: ends behind frame {}: {}", path_, number_,
                         file_->wrong().empty() ? pcap_geterr(pcap_) : file_->wrong());
  }
  return false;
}

void CaptureReader::frameIs(std::span<const uint8_t> captured, uint32_t wireLength) {
  const uint32_t header = link_->headerSize;
  typeBefore_.reset();
  if (captured.size() < header) {
    // Cut off before anything is told of it: to every parser a frame without a whole Ethernet header.
    frame_ = {};
    wireLength_ = 0;
    return;
  }
  frame_ = captured.subspan(header);
  wireLength_ = std::max(wireLength, static_cast<uint32_t>(captured.size())) - header;
  if (link_->typeOf) typeBefore_ = link_->typeOf(captured, wireLength_);
}

void CaptureReader::assignTo(Nimnet::Pkt& pkt) const {
  if (typeBefore_)
    pkt.assignBehindType(*typeBefore_, frame_, wireLength_, stamp_.value());
  else
    pkt.assign(frame_, wireLength_, stamp_.value());
}

uint64_t CaptureReader::position() const { return pcap_ ? file_->position() : 0; }

std::span<const uint8_t> withEthernet(const Nimnet::Pkt& pkt, std::vector<uint8_t>& made) {
  if (pkt.hasEthernet()) return pkt.frame();
  made.assign(Nimnet::EthHdr::size, 0);
  made[12] = static_cast<uint8_t>(pkt.typeBefore() >> 8);
  made[13] = static_cast<uint8_t>(pkt.typeBefore());
  made.insert(made.end(), pkt.frame().begin(), pkt.frame().end());
  return made;
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
  const auto octets = withEthernet(pkt, made_);
  header.caplen = static_cast<uint32_t>(octets.size());
  header.len = pkt.wireLength() + header.caplen - pkt.size();
  pcap_dump(reinterpret_cast<u_char*>(file_), &header, octets.data());
}

void CaptureWriter::flush() {
  if (!file_ || !wrong_.empty()) return;
  // A write that failed earlier is only seen in the error flag of the file.
  const bool lost = std::ferror(pcap_dump_file(file_)) != 0;
  if (pcap_dump_flush(file_) != 0 || lost) {
    const std::string what = path_ + ": could not be written to its end";
    wrong_ = lost ? what : failureOf(what);
  }
}

}  // namespace Agent
