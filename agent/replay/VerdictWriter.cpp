#include <agent/replay/VerdictWriter.h>
#include <nlohmann/json.hpp>

#include <cerrno>
#include <cstring>

namespace Agent {

using Json = nlohmann::ordered_json;

namespace {

Json jsonOf(const Hit& hit) {
  return {{"direction", Acl::stringValue(hit.direction)},
          {"interface", hit.intf.name().view()},
          {"type", Acl::stringValue(hit.type)},
          {"list", hit.list.view()},
          {"rule", hit.sequence ? Json(hit.sequence) : Json("implicit")},
          {"action", Acl::stringValue(hit.action)}};
}

}  // namespace

VerdictWriter::VerdictWriter(std::string path) : path_(std::move(path)), file_(path_, std::ios::trunc) {
  if (!file_) wrong_ = path_ + ": " + std::strerror(errno);
}

void VerdictWriter::write(const Port& port, uint64_t frame, const Verdict& verdict,
                          const VerdictRecorder& recorder) {
  Json line = {
      {"port", port.id.name().view()}, {"frame", frame}, {"verdict", verdict.passed() ? "pass" : "drop"}};
  if (!verdict.passed()) {
    line["direction"] = Acl::stringValue(verdict.direction);
    line["reason"] = recorder.dropReason().empty() ? "dropped by " + verdict.droppedBy->name().str()
                                                   : recorder.dropReason().str();
  }
  line["hits"] = Json::array();
  for (const Hit& hit : recorder.hits()) line["hits"].push_back(jsonOf(hit));
  line["mirrored"] = Json::array();
  for (const Kelp::String& session : recorder.mirrored()) line["mirrored"].push_back(session.view());
  file_ << line.dump(-1, ' ', false, Json::error_handler_t::replace) << '\n';
}

void VerdictWriter::flush() {
  file_.flush();
  if (!file_ && wrong_.empty()) wrong_ = path_ + ": could not be written to its end";
}

}  // namespace Agent
