#include <Kelp/Assert.h>
#include <Kiv/TaskScheduler.h>
#include <agent/change/History.h>
#include <agent/core/Version.h>
#include <agent/metrics/Table.h>

#include <algorithm>

namespace Agent {

namespace {

using enum Metric::Kind;

void byDirection(const Counts& counts, uint64_t ZeroLine::Counted::*what, const Put& put) {
  for (const auto direction : {Acl::AclDirection::in, Acl::AclDirection::out}) {
    if (const auto& counted = counts[direction == Acl::AclDirection::in ? 0 : 1])
      put(static_cast<double>((*counted).*what), {Acl::stringValue(direction)});
  }
}

/// Of a port that has a device.
void ofDevice(const PortSight& sight, uint64_t PortState::*what, const Put& put) {
  if (sight.live) put(static_cast<double>(sight.live->*what));
}

void tellLost(const PortSight& sight, const Put& put) {
  if (!sight.live) return;
  const PortState& state = *sight.live;
  for (const auto& [cause, count] : {std::pair("kernel_drops", state.kernelDrops),
                                     {"received_too_large", state.rxTooLarge},
                                     {"damaged", state.rxErrors},
                                     {"too_large_to_send", state.tooLarge},
                                     {"send_failed", state.sendFailed},
                                     {"nowhere_to_go", state.nowhere}})
    put(static_cast<double>(count), {cause});
}

double lastChange(const AgentSight& sight) {
  const auto& history = sight.watched.world.history;
  return history && !history().changes().empty() ? history().changes().back()->time : 0;
}

size_t countOf(const std::function<nlohmann::ordered_json()>& list) { return list ? list().size() : 0; }

size_t tasks() {
  size_t count = 0;
  Kiv::TaskSchedulerRoot::findOrCreateScheduler()->forEachTask([&](const Kiv::TimerTask&) { ++count; });
  return count;
}

double number(const nlohmann::ordered_json& object, const char* member) {
  const auto at = object.find(member);
  return at != object.end() && at->is_number() ? at->get<double>() : 0;
}

/// 1 or 0 for what the report says of a restart; nothing when there is no report.
void ofRestart(const AgentSight& sight, const Put& put,
               bool (*holds)(const nlohmann::ordered_json& restart)) {
  if (!sight.configuration.is_null()) put(holds(sight.configuration.at("restart")) ? 1 : 0);
}

void tellWrites(const AgentSight& sight, const Put& put) {
  if (!sight.watched.writes) return;
  const StateWriter::Writes writes = sight.watched.writes();
  put(static_cast<double>(writes.done), {"done"});
  put(static_cast<double>(writes.failed), {"failed"});
}

constexpr Metric metricRows[] = {
    // Rules and lists.
    {"velo_rule_packets_total", counter, "list,kind,rule,direction", "Packets that a rule has decided about.",
     [](const RuleSight& rule, const Put& put) {
       byDirection(rule.counts, &ZeroLine::Counted::packets, put);
     }},
    {"velo_rule_bytes_total", counter, "list,kind,rule,direction",
     "Octets of the packets that a rule has decided about.",
     [](const RuleSight& rule, const Put& put) { byDirection(rule.counts, &ZeroLine::Counted::bytes, put); }},
    {"velo_rules_left_out", gauge, "", "Rules behind the first 10000, which have no metrics of their own.",
     [](const AgentSight& agent, const Put& put) { put(static_cast<double>(agent.rulesLeftOut)); }},
    {"velo_implicit_drop_packets_total", counter, "list,kind,direction",
     "Packets that no rule of a list has matched; they were dropped.",
     [](const ListSight& list, const Put& put) {
       byDirection(list.implicitDrop, &ZeroLine::Counted::packets, put);
     }},
    {"velo_implicit_drop_bytes_total", counter, "list,kind,direction",
     "Octets of the packets that no rule of a list has matched.",
     [](const ListSight& list, const Put& put) {
       byDirection(list.implicitDrop, &ZeroLine::Counted::bytes, put);
     }},
    {"velo_list_source_info", gauge, "list,kind,source",
     "The source of configuration that a list comes from; 1.",
     [](const ListSight& list, const Put& put) {
       if (!list.head.sources.empty()) put(1, {list.head.sources.front()});
     }},
    {"velo_list_bindings", gauge, "list,kind", "Places at which packets meet a list.",
     [](const ListSight& list, const Put& put) { put(static_cast<double>(list.head.bindings.size())); }},
    {"velo_list_rules", gauge, "list,kind", "Rules of a list.",
     [](const ListSight& list, const Put& put) { put(static_cast<double>(list.rules)); }},
    {"velo_list_lookup_ready", gauge, "list,kind",
     "1: packets are judged by the compiled form of the list; 0: rule by rule.",
     [](const ListSight& list, const Put& put) { put(list.compiled ? 1 : 0); }},
    {"velo_list_lookup_bytes", gauge, "list,kind", "Memory of the compiled form of a list.",
     [](const ListSight& list, const Put& put) { put(static_cast<double>(list.lookupBytes)); }},
    {"velo_list_lookup_compile_seconds", gauge, "list,kind",
     "How long it took to compile a list the last time.",
     [](const ListSight& list, const Put& put) { put(list.compileSeconds); }},

    // Drops and ports.
    {"velo_drops_total", counter, "category,facility,reason",
     "Packets that were dropped or lost, by what and why.",
     [](const DropSight& drop, const Put& put) { put(static_cast<double>(drop.count)); }},
    {"velo_port_info", gauge, "port,device", "The device that a port is on; 1.",
     [](const PortSight& port, const Put& put) {
       if (port.live) put(1, {port.live->device});
     }},
    {"velo_port_up", gauge, "port", "1: the device of the port is there, and its link is up.",
     [](const PortSight& port, const Put& put) {
       if (port.live) put(port.live->up ? 1 : 0);
     }},
    {"velo_port_received_frames_total", counter, "port", "Frames that a port has received from its device.",
     [](const PortSight& port, const Put& put) { ofDevice(port, &PortState::rxFrames, put); }},
    {"velo_port_received_bytes_total", counter, "port", "Octets of these, tags included.",
     [](const PortSight& port, const Put& put) { ofDevice(port, &PortState::rxBytes, put); }},
    {"velo_port_sent_frames_total", counter, "port", "Frames that a port has sent to its device.",
     [](const PortSight& port, const Put& put) { ofDevice(port, &PortState::txFrames, put); }},
    {"velo_port_sent_bytes_total", counter, "port", "Octets of these, tags included.",
     [](const PortSight& port, const Put& put) { ofDevice(port, &PortState::txBytes, put); }},
    {"velo_port_lost_frames_total", counter, "port,cause",
     "Frames that were lost between a port and its device.", tellLost},
    {"velo_port_dropped_frames_total", counter, "port,direction",
     "Frames that were dropped on their way in or out at a port.",
     [](const PortSight& port, const Put& put) {
       if (!port.port) return;
       put(static_cast<double>(port.port->droppedIn), {Acl::stringValue(Acl::AclDirection::in)});
       put(static_cast<double>(port.port->droppedOut), {Acl::stringValue(Acl::AclDirection::out)});
     }},
    {"velo_port_mirrored_copies_total", counter, "port", "Mirrored copies that left by a port.",
     [](const PortSight& port, const Put& put) {
       if (port.port) put(static_cast<double>(port.port->mirrored));
     }},

    // The configuration.
    {"velo_configuration_changes_total", counter, "result", "Changes that were applied or refused.",
     [](const AgentSight& agent, const Put& put) {
       put(static_cast<double>(agent.watched.changes.applied), {"applied"});
       put(static_cast<double>(agent.watched.changes.refused), {"refused"});
     }},
    {"velo_configuration_last_change_timestamp_seconds", gauge, "",
     "When the configuration changed last, in seconds since the epoch.",
     [](const AgentSight& agent, const Put& put) { put(lastChange(agent)); }},
    {"velo_configuration_last_failure_timestamp_seconds", gauge, "",
     "When a change was refused last, in seconds since the epoch; 0: none was since the start.",
     [](const AgentSight& agent, const Put& put) { put(agent.watched.changes.lastRefused); }},
    {"velo_configuration_openings", gauge, "",
     "Places where everything passes though a list was meant to filter.",
     [](const AgentSight& agent, const Put& put) {
       put(static_cast<double>(countOf(agent.watched.world.openings)));
     }},
    {"velo_configuration_saved", gauge, "", "1: a restart would bring the same configuration.",
     [](const AgentSight& agent, const Put& put) {
       ofRestart(agent, put, [](const auto& restart) { return restart.at("same").template get<bool>(); });
     }},
    {"velo_configuration_restart_refused", gauge, "", "1: a restart would be refused, as its files are now.",
     [](const AgentSight& agent, const Put& put) {
       ofRestart(agent, put, [](const auto& restart) { return !restart.at("refused").is_null(); });
     }},
    {"velo_configuration_source_lists", gauge, "source", "Lists of a source of configuration.",
     [](const SourceSight& source, const Put& put) { put(number(source.source, "lists")); }},
    {"velo_configuration_source_rules", gauge, "source", "Rules of a source of configuration.",
     [](const SourceSight& source, const Put& put) { put(number(source.source, "rules")); }},
    {"velo_configuration_source_bindings", gauge, "source", "Bindings of a source of configuration.",
     [](const SourceSight& source, const Put& put) { put(number(source.source, "bindings")); }},
    {"velo_configuration_source_applied_timestamp_seconds", gauge, "source",
     "When a source came into force as it is, in seconds since the epoch; 0: with the start.",
     [](const SourceSight& source, const Put& put) { put(number(source.source, "applied")); }},

    // The agent itself.
    {"velo_state_writes_total", counter, "result", "Writes of the state file that were done or failed.",
     tellWrites},
    {"velo_state_last_write_timestamp_seconds", gauge, "",
     "When the state file was written last, in seconds since the epoch; 0: never.",
     [](const AgentSight& agent, const Put& put) {
       if (agent.watched.writes) put(agent.watched.writes().lastDone);
     }},
    {"velo_loop_turns_total", counter, "", "Turns of the event loop.",
     [](const AgentSight& agent, const Put& put) {
       put(static_cast<double>(agent.watched.loop.times().turns));
     }},
    {"velo_loop_busy_seconds_total", counter, "", "Time that the event loop did not sleep.",
     [](const AgentSight& agent, const Put& put) { put(agent.watched.loop.times().busy); }},
    {"velo_loop_packet_seconds_total", counter, "", "Time of the event loop that went into packets.",
     [](const AgentSight& agent, const Put& put) { put(agent.watched.loop.times().packets); }},
    {"velo_loop_longest_turn_seconds", gauge, "", "The longest turn of the event loop since the start.",
     [](const AgentSight& agent, const Put& put) { put(agent.watched.loop.times().longestTurn); }},
    {"velo_loop_tasks", gauge, "", "Tasks of the event loop.",
     [](const AgentSight&, const Put& put) { put(static_cast<double>(tasks())); }},
    {"velo_task_work_total", counter, "task", "Pieces of work that a task has done.",
     [](const TaskSight& task, const Put& put) { put(static_cast<double>(task.task.taskWorkCount())); }},
    {"velo_start_time_seconds", gauge, "", "When the agent started, in seconds since the epoch.",
     [](const AgentSight& agent, const Put& put) { put(agent.watched.world.started); }},
    {"velo_build_info", gauge, "version,compiler", "What the agent was built from and by; 1.",
     [](const AgentSight&, const Put& put) {
       put(1, {version(), __VERSION__});
     }},
};

}  // namespace

void Put::operator()(double value, std::initializer_list<std::string_view> further) const {
  KELP_ASSERT(labels_.size() + further.size() <= mostLabels, "a sample has room for all labels");
  Sample& sample = to_.emplace_back();
  const auto behind = std::copy(labels_.begin(), labels_.end(), sample.labels.begin());
  std::copy(further.begin(), further.end(), behind);
  sample.value = value;
}

std::span<const Metric> metrics() { return metricRows; }

}  // namespace Agent
