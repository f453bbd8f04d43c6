// A configuration directory whose files come, go, change and cannot be read, while the agent runs: when all
// is quiet what is in force is what the files say, and of a bad file what it last said rightly.

#include "../tests/agent/CaptureBytes.h"
#include "../tests/config/ModelText.h"
#include "../tests/config/RandomText.h"
#include "../tests/control/RunningAgent.h"
#include "Target.h"

#include <filesystem>
#include <optional>

namespace {

using Fuzz::Dice;
using TestSupport::RunningAgent;
namespace fs = std::filesystem;

constexpr const char* names[] = {"a", "b.acl", "c", ".hidden", "backup~"};

/// Lists and bindings only: whether port-channels of two files go together is another matter.
std::string someText(Dice& dice) {
  std::string text;
  for (auto lists = dice.below(3); lists > 0; --lists) {
    text += Config::randomForm("ip access-list {name}\n{ip rule}\n{ip rule}\n", dice);
    if (dice.once(2))
      text += Config::randomForm("interface {port}\n{kind} access-group {name} {direction}\n", dice);
  }
  return text;
}

/// A content that a file may have in force; nothing: it is no source.
using Content = std::optional<Config::Model>;

/// The lists of a source as they are in force, as text without what the entities do not have.
std::string textInForce(RunningAgent& agent, const std::string& name) {
  std::string text;
  const auto source = agent.core().source("input/" + name);
  const auto lists = source ? source->config(Acl::AclType::ip) : nullptr;
  if (!lists) return text;
  std::map<std::string, Kelp::Ptr<const Acl::AclConfig>> byName;
  for (auto list = lists->acl().begin(); list; list.next()) byName[list.key().str()] = list.value().ptr();
  for (const auto& [list, config] : byName) {
    text += "ip access-list " + list + "\n";
    for (const auto* rule : config->currCfg()->ipRuleById().ordered())
      text += fmt::format(" {} {}\n", rule->value.sequence(), rule->value.text().view());
  }
  return text;
}

std::string textOf(const Content& content) {
  if (!content) return {};
  Config::Model lists;
  lists.lists = content->lists;
  return Config::textOf(lists);
}

class Directory {
 public:
  explicit Directory(Dice& dice) : dice_(dice) {
    std::map<std::string, std::string> files;
    agent_.start("ip access-list OWN\n permit ip any any\n", &files);
  }

  void change() {
    const std::string name = dice_.of(names);
    const std::string path = pathOf(name);
    std::error_code ignored;
    switch (dice_.below(10)) {
      case 0:
      case 1:
      case 2:
        put(path, someText(dice_));
        break;
      case 3:  // in place
        if (fs::is_directory(path, ignored) || fs::is_symlink(path, ignored)) break;
        TestSupport::writeFile(path, someText(dice_));
        break;
      case 4:
        put(path, Config::randomText(dice_, true) + "wrong\n");
        break;
      case 5:
        clear(path);
        break;
      case 6:
        fs::rename(path, pathOf(dice_.of(names)), ignored);
        break;
      case 7:  // no file
        clear(path);
        fs::create_directory(path, ignored);
        break;
      case 8:  // leads nowhere
        clear(path);
        fs::create_symlink("nowhere", path, ignored);
        break;
      default:
        moved_ = !moved_;
        fs::rename(moved_ ? agent_.dirPath() : aside(), moved_ ? aside() : agent_.dirPath());
        break;
    }
    note();
  }

  /// Tells nothing of the directory, but lets the agent go on in the middle of it.
  void some() {
    if (dice_.once(2)) agent_.advance(0.05);
  }

  void settle() {
    for (const double seconds : {0.15, 1.1, 0.15}) {
      agent_.advance(seconds);
      for (int i = 0; i < 10000 && changing(); ++i) agent_.advance(0.002);
      Fuzz::require(!changing(), "it never comes to an end");
    }
    if (moved_) return;
    for (auto& [name, contents] : possible_) {
      const std::string found = textInForce(agent_, name);
      const auto first = last_[name] ? contents.end() - 1 : contents.begin();
      const auto holds = std::find_if(first, contents.end(),
                                      [&](const Content& content) { return textOf(content) == found; });
      Fuzz::require(holds != contents.end(), [&, &name = name, &contents = contents] {
        return fmt::format("of {} is in force\n{}expected\n{}", name, found, textOf(contents.back()));
      });
      contents = {Content(*holds)};
    }
  }

 private:
  std::string pathOf(const std::string& name) const {
    return (moved_ ? aside() : agent_.dirPath()) + "/" + name;
  }
  std::string aside() const { return agent_.dirPath() + ".aside"; }
  /// As editors do: written aside, then renamed.
  static void put(const std::string& path, const std::string& text) {
    const std::string written = fs::path(path).parent_path() / ".aside";
    clear(path);
    TestSupport::writeFile(written, text);
    fs::rename(written, path);
  }
  static void clear(const std::string& path) {
    std::error_code ignored;
    fs::remove_all(path, ignored);
  }

  bool changing() { return agent_.show("status")["configuration"]["changing"].get<bool>(); }

  /// What each file may have in force from now on: what it says; of a bad one, what it may have had before.
  void note() {
    if (moved_) return;
    for (const std::string name : names) {
      auto& contents = possible_[name];
      if (contents.empty()) contents.push_back(std::nullopt);
      std::error_code missing;
      const bool counts = !name.starts_with('.') && !name.ends_with('~');
      const bool there = counts && fs::exists(fs::symlink_status(pathOf(name), missing)) &&
                         !fs::is_directory(pathOf(name), missing);
      if (!there) {
        contents.push_back(std::nullopt);
        last_[name] = true;
        continue;
      }
      std::error_code error;
      const auto read = fs::is_regular_file(pathOf(name), error)
                            ? Config::read({{name, TestSupport::readFile(pathOf(name))}})
                            : Config::Result();
      last_[name] = read.model.has_value();
      if (read.model) contents.push_back(*read.model);
    }
  }

  Dice& dice_;
  RunningAgent agent_;
  bool moved_ = false;
  std::map<std::string, std::vector<Content>> possible_;  // the latest one last
  std::map<std::string, bool> last_;                      // whether only that one is
};

}  // namespace

void Fuzz::run(Dice& dice) {
  Directory directory(dice);
  for (int changes = 0; changes < 24 && dice.more(); ++changes) {
    directory.change();
    directory.some();
    if (dice.once(3)) directory.settle();
  }
  directory.settle();
}
