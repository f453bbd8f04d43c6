#include <agent/change/Configuration.h>
#include <agent/change/StartChanges.h>

#include <utility>

namespace Agent {

Configuration::Configuration(Core& core, Forwarder& forwarder, EventLoop& loop, ConfigFiles files,
                             Options options)
    : task_(0, "Configuration", [this] { beginNext(); }),
      current_{options.ports,
               options.tell,
               Commit(core, forwarder, loop.reserve(), files.takeSources(), std::move(options.applied),
                      options.partners),
               std::move(options.warnings),
               std::move(options.filtered),
               History(std::move(options.past), options.journal)},
      confirmation_(current_.history, loop.turnClock(),
                    [this](const SharedText& before) {
                      if (busy()) return false;
                      typed_.takeBack(before);
                      return true;
                    }),
      restart_(loop, {std::move(options.paths), options.dir, options.limits, options.leave,
                      std::move(options.ports)}),
      typed_(loop, current_, confirmation_, options.limits, rememberStart(current_, options.dir),
             [this](bool applied) {
               if (applied) files_.conflictsAreDue();
               beginNext();
             }),
      files_(
          loop, current_, confirmation_, {std::move(options.dir), options.limits, options.leave},
          files.contents(), [this] { return !busy(); }, [this] { task_->scheduleTask(); }),
      fleet_(
          loop, current_, confirmation_, {options.limits, options.leave}, [this] { task_->scheduleTask(); },
          [this] { files_.conflictsAreDue(); }) {}

bool Configuration::apply(Request request, Done done) {
  if (busy()) return false;
  typed_.begin(std::move(request), std::move(done));
  return true;
}

void Configuration::applyLater(Request request, Done done) {
  typed_.add(std::move(request), std::move(done));
  task_->scheduleTask();
}

/// Files and the fleet come first: what somebody asked for later is compared with them.
void Configuration::beginNext() {
  if (typed_.preparing() || files_.preparing() || fleet_.preparing() || current_.commit.underWay() ||
      confirmation_.isBeingKept())
    return;
  if (!files_.begin() && !fleet_.begin() && !typed_.begin()) files_.look();
}

void Configuration::confirm(const std::string& who, const Confirmation::Kept& done) {
  const auto told = [this, who, done](const std::optional<std::string>& wrong) {
    tellChange(current_.tell, {.who = who,
                               .source = commandLineName,
                               .summary = {},
                               .refused = wrong.value_or(""),
                               .done = "confirmed"});
    done(wrong);
  };
  if (!confirmation_.waits() || confirmation_.isBeingKept()) return told("no change waits to be confirmed");
  // What would have been an opening only in what was before is none now.
  files_.conflictsAreDue();
  fleet_.conflictIsDue();
  task_->scheduleTask();
  current_.history.filteredIs(current_.filtered);
  confirmation_.confirm(told);
}

void Configuration::savedIs(const std::string& who, const std::string& file, const std::string& wrong) {
  const std::string done = file.empty() ? "saved" : "saved in " + file;
  tellChange(current_.tell,
             {.who = who, .source = commandLineName, .summary = {}, .refused = wrong, .done = done});
}

void Configuration::lookAtFiles(std::function<void()> then) {
  restart_.look({history().unconfirmed(), history().filtered(), history().hasJournal(), history().fleet()},
                std::move(then));
}

}  // namespace Agent
