#include <MemSlab/Slab.h>
#include <agent/explain/FrameArgument.h>
#include <agent/observe/SeenFrame.h>
#include <agent/show/PacketText.h>

namespace Agent {

using Json = nlohmann::ordered_json;

SeenFrameWriter::SeenFrameWriter() : pkt_(MemSlab::make<Nimnet::Pkt>()) {}

Json SeenFrameWriter::document(const SeenFrame& frame, bool octets) {
  Json document = {{"time", frame.time}, {"port", frame.fate.port.view()}};
  addVerdict(document, frame.fate);
  addHits(document, frame.fate);
  Json& egress = document["egress"] = Json::array();
  for (const Egress& one : frame.fate.egress) egress.push_back(egressWords(one));
  document["sentence"] = sentenceOf(frame.fate);
  pkt_->assign(frame.octets, frame.wireLength, frame.time);
  Velo::ParsedPacket parsed;
  parsed.reset(pkt_.get());
  parsed.maybeDoFullParse();
  document["packet"] =
      packetText(*pkt_, parsed, {frame.fault, frame.segments, decidedByAddresses(frame.fate)});
  document["wireLength"] = frame.wireLength;
  document["segments"] = frame.segments;
  document["passedOver"] = frame.passedOver;
  if (octets) document["octets"] = hexOf(frame.octets);
  return document;
}

}  // namespace Agent
