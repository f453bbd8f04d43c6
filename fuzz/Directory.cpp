// A configuration directory whose files come, go, change and cannot be read, while the agent runs: when all
// is quiet what is in force is what the files say, and of a bad file what it last said rightly. The directory
// itself goes, or something else is in its place, for a moment or longer: then all stays as it was.

#include "../tests/agent/config/RandomText.h"
#include "../tests/agent/support/CaptureBytes.h"
#include "../tests/agent/support/RunningAgent.h"
#include "Target.h"

#include <agent/config/Writer.h>
#include <sys/stat.h>
#include <filesystem>
#include <optional>

namespace {

using Fuzz::Dice;
using TestSupport::RunningAgent;
namespace fs = std::filesystem;

constexpr const char* names[] = {"a", "b.acl", "c", ".hidden", "backup~"};
/// How large a file may be.
constexpr size_t mostOctets = 8192;

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
      text += fmt::format("   {} {}\n", rule->value.sequence(), rule->value.text().view());
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
    agent_.textLimitsAre({mostOctets});
    agent_.start("ip access-list OWN\n permit ip any any\n", &files);
  }

  void change() {
    const std::string name = dice_.of(names);
    const std::string path = pathOf(name);
    std::error_code ignored;
    switch (dice_.below(14)) {
      case 0:
      case 1:
      case 2:
        put(path, someText(dice_));
        break;
      case 3:  // in place
        if (const auto there = fs::symlink_status(path, ignored);
            fs::exists(there) && !fs::is_regular_file(there))
          break;
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
      case 9:  // whoever reads it waits for a writer, or without end
        clear(path);
        if (dice_.once(2)) {
          fs::create_symlink("/dev/zero", path, ignored);
        } else {
          Fuzz::require(mkfifo(path.c_str(), 0600) == 0, "a pipe cannot be made");
        }
        break;
      case 10:  // as large as a file may be, or too large
      {
        std::string text = someText(dice_);
        text.resize(std::max(text.size(), mostOctets + dice_.below(2)), '\n');
        put(path, text);
        break;
      }
      case 11:
        lookInVain();
        break;
      default:
        move();
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
      Fuzz::require(rests(), endless);
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

  /// The directory goes, and may leave something in its place; or comes back.
  void move() {
    moved_ = !moved_;
    if (!moved_) {
      clear(agent_.dirPath());
      fs::rename(aside(), agent_.dirPath());
      return;
    }
    fs::rename(agent_.dirPath(), aside());
    constexpr const char* places[] = {"nothing", "file", "itself"};
    const std::string_view place = dice_.of(places);
    if (place == "file") TestSupport::writeFile(agent_.dirPath(), someText(dice_));
    if (place == "itself") fs::create_symlink("config", agent_.dirPath());
  }

  /// A look that finds nothing out, and then all is as before.
  void lookInVain() {
    if (moved_) return;
    move();
    agent_.advance(1.1);
    Fuzz::require(rests(), endless);
    move();
  }

  static constexpr std::string_view endless = "it never comes to an end";
  /// Goes on until no look and no change is under way.
  bool rests() {
    const auto& configuration = agent_.plane().configuration();
    const auto resting = [&] { return !configuration.busy() && !configuration.directory().looking(); };
    // Threads take their time, and changes that yield some of the clock's.
    for (int i = 0; i < 10000 && !resting(); ++i) {
      agent_.pass(0.002);
      agent_.loop().turn(1);
    }
    return resting();
  }

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
      const auto read = fs::is_regular_file(pathOf(name), error) && fs::file_size(pathOf(name)) <= mostOctets
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
