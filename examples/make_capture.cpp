#include <fmt/format.h>
#include <pcap/pcap.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <map>
#include <memory>
#include <stdexcept>

#include "DemoFrames.h"

// Writes the captures of the demo, a file a port, and a table of their frames; always the same octets.

namespace {

using Files = std::map<std::string, std::string>;  ///< what is in each file, by name

/// Frames are a tenth of a second apart from 2024-01-01 10:00:00 UTC on, through all ports.
constexpr time_t firstFrame = 1704103200;
constexpr int framesPerSecond = 10;
constexpr int snapLength = 65535;

/// A capture that is written to memory.
class Capture {
 public:
  Capture() : pcap_(pcap_open_dead(DLT_EN10MB, snapLength)) {
    FILE* memory = open_memstream(&text_, &size_);
    if (!pcap_ || !memory) throw std::runtime_error("out of memory");
    dumper_ = pcap_dump_fopen(pcap_, memory);
    if (!dumper_) throw std::runtime_error(pcap_geterr(pcap_));
  }
  Capture(const Capture&) = delete;
  Capture& operator=(const Capture&) = delete;
  ~Capture() {
    if (dumper_) pcap_dump_close(dumper_);
    pcap_close(pcap_);
    std::free(text_);
  }

  size_t frames() const { return frames_; }
  void add(const Demo::Captured& frame, size_t tick) {
    pcap_pkthdr head{};
    head.ts.tv_sec = firstFrame + static_cast<time_t>(tick / framesPerSecond);
    head.ts.tv_usec = static_cast<suseconds_t>(tick % framesPerSecond * (1000000 / framesPerSecond));
    head.caplen = static_cast<bpf_u_int32>(frame.bytes.size());
    head.len = static_cast<bpf_u_int32>(frame.wireLength);
    pcap_dump(reinterpret_cast<u_char*>(dumper_), &head, frame.bytes.data());
    ++frames_;
  }
  /// Ends it and gives what a file of it would hold.
  std::string finish() {
    pcap_dump_close(dumper_);
    dumper_ = nullptr;
    return {text_, size_};
  }

 private:
  pcap_t* pcap_;
  pcap_dumper_t* dumper_ = nullptr;
  char* text_ = nullptr;
  size_t size_ = 0;
  size_t frames_ = 0;
};

Files makeFiles() {
  std::vector<Demo::DemoFrame> frames;
  for (auto part : {Demo::edgeFrames(), Demo::edgeFrames6(), Demo::insideFrames(), Demo::malformedFrames()}) {
    std::move(part.begin(), part.end(), std::back_inserter(frames));
  }

  std::map<std::string, Capture> captures;
  std::string table = "port\tframe\tdropped\treason\trules\tmirrored\tpurpose\n";
  for (size_t tick = 0; tick < frames.size(); ++tick) {
    const auto& [port, purpose, outcome, frame] = frames[tick];
    Capture& capture = captures[port];
    capture.add(frame, tick);
    table += fmt::format("{}\t{}\t{}\t{}\t{}\t{}\t{}\n", port, capture.frames(), outcome.dropped,
                         outcome.reason, outcome.rules, outcome.mirroredTo, purpose);
  }

  Files files{{"frames.tsv", table}};
  for (auto& [port, capture] : captures) files[port + ".pcap"] = capture.finish();
  return files;
}

void write(const std::string& path, const std::string& text) {
  std::ofstream file(path, std::ios::binary | std::ios::trunc);
  file << text << std::flush;
  if (!file) throw std::runtime_error(fmt::format("{}: {}", path, std::strerror(errno)));
}

/// Whether the file holds exactly this text; says what is wrong with one that does not.
bool holds(const std::string& path, const std::string& text) {
  std::ifstream file(path, std::ios::binary);
  if (!file) {
    fmt::print(stderr, "{}: {}\n", path, std::strerror(errno));
    return false;
  }
  const std::string found{std::istreambuf_iterator<char>(file), {}};
  if (found == text) return true;
  const auto [made, other] = std::mismatch(text.begin(), text.end(), found.begin(), found.end());
  fmt::print(stderr, "{}: differs from what is made here at octet {}; make it again\n", path,
             made - text.begin());
  return false;
}

}  // namespace

int main(int argc, char** argv) {
  const bool check = argc == 3 && std::string_view(argv[1]) == "--check";
  if (argc != 2 && !check) {
    fmt::print(stderr,
               "usage: make-demo-capture [--check] DIRECTORY\nWith --check the files are only compared.\n");
    return 2;
  }
  try {
    bool right = true;
    for (const auto& [name, text] : makeFiles()) {
      const std::string path = fmt::format("{}/{}", argv[argc - 1], name);
      if (check) {
        right = holds(path, text) && right;
      } else {
        write(path, text);
      }
    }
    return right ? 0 : 1;
  } catch (const std::exception& wrong) {
    fmt::print(stderr, "make-demo-capture: {}\n", wrong.what());
    return 1;
  }
}
