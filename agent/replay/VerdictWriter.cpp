#include <agent/core/Document.h>
#include <agent/core/Output.h>
#include <agent/replay/VerdictWriter.h>

namespace Agent {

using Json = nlohmann::ordered_json;

VerdictWriter::VerdictWriter(std::string path) : path_(std::move(path)), file_(path_, std::ios::trunc) {
  if (!file_) wrong_ = failureOf(path_);
}

void VerdictWriter::write(uint64_t frame, const Fate& fate) {
  Json line = {{"port", fate.port.view()}, {"frame", frame}};
  addVerdict(line, fate);
  addHits(line, fate);
  file_ << lineOf(line) << '\n';
}

void VerdictWriter::flush() {
  file_.flush();
  if (!file_ && wrong_.empty()) wrong_ = path_ + ": could not be written to its end";
}

}  // namespace Agent
