#include <Velo/MalformedStep.h>

#include <array>

namespace Velo {

namespace {

void countFault(VeloNamedCounters& counters, const Kelp::String& category, ParseFault fault) {
  static const Kelp::String facility("Velo::Malformed");
  static const std::array<Kelp::String, parseFaultCount> reasons = [] {
    std::array<Kelp::String, parseFaultCount> all;
    for (uint32_t i = 0; i < parseFaultCount; ++i) all[i] = reason(static_cast<ParseFault>(i));
    return all;
  }();
  counters.count(category, facility, reasons[static_cast<uint32_t>(fault)]);
}

bool dropIfMalformed(PacketContext& ctx) {
  ctx.parsedPacket().maybeDoFullParse();
  const ParseFault fault = ctx.parsedPacket().fault();
  if (fault == ParseFault::none) return true;
  static const Kelp::String drop("Drop");
  countFault(ctx.namedCounters(), drop, fault);
  return false;
}

}  // namespace

bool MalformedInputStep::process(const Kelp::Ptr<PacketContext>& ctx) {
  if (policy_ == MalformedPolicy::drop) return dropIfMalformed(*ctx);
  ctx->parsedPacket().maybeDoFullParse();
  const ParseFault fault = ctx->parsedPacket().fault();
  static const Kelp::String malformed("Malformed");
  if (fault != ParseFault::none) countFault(ctx->namedCounters(), malformed, fault);
  return true;
}

bool MalformedOutputStep::process(const Kelp::Ptr<OutputPipelineContext>& ctx) {
  return policy_ == MalformedPolicy::pass || dropIfMalformed(*ctx->packetContext());
}

}  // namespace Velo
