#include <agent/core/Document.h>
#include <agent/core/Output.h>
#include <agent/replay/VerdictWriter.h>

namespace Agent {

using Json = nlohmann::ordered_json;

VerdictWriter::VerdictWriter(std::string path) : path_(std::move(path)), file_(path_, std::ios::trunc) {
  if (!file_) wrong_ = failureOf(path_);
}

void VerdictWriter::write(const Port& port, uint64_t frame, const Verdict& verdict,
                          const VerdictRecorder& recorder) {
  Json line = {{"port", port.id.name().view()}, {"frame", frame}};
  const std::string counted = recorder.dropReason().str();
  addVerdict(line, verdict,
             counted.empty() && verdict.droppedBy ? uncountedReason(*verdict.droppedBy) : counted);
  line["hits"] = Json::array();
  for (const Hit& hit : recorder.hits()) line["hits"].push_back(hitWords(hit));
  line["mirrored"] = Json::array();
  for (const Kelp::String& session : recorder.mirrored()) line["mirrored"].push_back(session.view());
  file_ << lineOf(line) << '\n';
}

void VerdictWriter::flush() {
  file_.flush();
  if (!file_ && wrong_.empty()) wrong_ = path_ + ": could not be written to its end";
}

}  // namespace Agent
