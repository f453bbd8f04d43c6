#include <pcap/pcap.h>

#include "../support/SharedData.h"
#include "ShownParse.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <memory>
#include <string>

namespace {

namespace fs = std::filesystem;

TEST(ParseCaptures, EveryFrameOfEveryEthernetCaptureIsReadWithinItsBounds) {
  if (!fs::is_directory(TestSupport::captureFolder()))
    GTEST_SKIP() << "no captures at " << TestSupport::captureFolder();
  uint64_t files = 0, frames = 0, faults = 0;
  for (const fs::directory_entry& entry : fs::recursive_directory_iterator(TestSupport::captureFolder())) {
    if (!entry.is_regular_file()) continue;
    char error[PCAP_ERRBUF_SIZE];
    const std::unique_ptr<pcap_t, decltype(&pcap_close)> capture(
        pcap_open_offline(entry.path().c_str(), error), pcap_close);
    if (!capture || pcap_datalink(capture.get()) != DLT_EN10MB) continue;
    ++files;
    pcap_pkthdr* header;
    const u_char* data;
    while (pcap_next_ex(capture.get(), &header, &data) == 1) {
      ++frames;
      const std::string text = TestSupport::parse({data, data + header->caplen}, header->len);
      if (text.find('!') != std::string::npos) ++faults;
    }
  }
  EXPECT_GT(files, 0u);
  EXPECT_GT(frames, faults) << "most real frames are whole";
  EXPECT_GT(faults, 0u) << "some captures hold malformed frames on purpose";
  RecordProperty("frames", std::to_string(frames));
  RecordProperty("faults", std::to_string(faults));
}

}  // namespace
