#include <VeloAcl/VeloDpAclStatusSm/StatusTrace.h>
#include <VeloAcl/VeloDpAclStatusSm/VeloDpAclStatusSm.h>
#include <VeloAcl/VeloDpAclStatusSm/Walkers.h>

/// The end of the first pass, the second pass, and what happens when a scan or poll has ended.
namespace Velo::VeloAcl {

void VeloDpAclStatusSm::handleInitialScanDone() {
  if (stopped_ || initialScanDone_) return;
  for (const StreamScan* scan : streamScans) {
    if (((*scanState_).*scan->done)()) continue;
    traceStatus(9, "{}", scan->falseText);
    return;
  }
  bool walkersExist = true;
  forEachTop([&](const auto& walker) { walkersExist = walkersExist && walker; });
  if (!walkersExist) {
    traceStatus(9, "Initial scan yielding for child SM VeloDpAclStatusSm.");
    return;
  }
  if (findPending() != RunEnd::complete) return;
  traceStatus(9, "Initial scan done for child SMs. Now scanning with events triggered.");
  initialScanDone_ = true;
  runSecondPass();
  if (stopped_) return;
  startPolls();
  scanState_->handleIdle();
  inputsReady();
}

void VeloDpAclStatusSm::runSecondPass() {
  for (const StreamScan* scan : streamScans) (scanState_.get()->*scan->doneIs)(false);
  forEachTop([this](auto& walker) {
    if (!stopped_ && walker->active()) walker->doInputScan();
  });
}

/// Each collection of counters is copied after the second pass; in a machine without tasks at once, and only
/// then.
void VeloDpAclStatusSm::startPolls() {
  for (CounterPoll* poll : polls()) poll->ask();
  if (!synchronous_) return;
  for (CounterPoll* poll : polls()) poll->run();
}

void VeloDpAclStatusSm::inputsReady() {
  for (Output* output : outputs()) output->handleInputReady();
  for (CounterPoll* poll : polls()) poll->handleInputReady();
}

void VeloDpAclStatusSm::handleScanStateChange(const Zeb::Attribute& attribute) {
  bool pollEnded = false;
  for (const CounterPoll* poll : polls()) pollEnded = pollEnded || poll->endsWith(attribute);
  for (Output* output : outputs()) {
    if (stopped_) return;
    if (output->waitsForScan(attribute) || (pollEnded && output->afterPolls())) output->handleInputReady();
  }
}

}  // namespace Velo::VeloAcl
