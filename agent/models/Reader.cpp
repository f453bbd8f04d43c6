#include <agent/config/NotText.h>
#include <agent/config/Titles.h>
#include <agent/models/Documents.h>
#include <agent/models/Reader.h>
#include <fmt/format.h>

#include <algorithm>
#include <map>
#include <set>
#include <tuple>
#include <utility>

namespace Models {

namespace {

constexpr std::string_view byteOrderMark = "\xef\xbb\xbf";
constexpr size_t mostWarnings = 100;

/// A root that documents have, and what reads what is in it.
struct Root {
  std::string_view module;  ///< of the root and of what is below it
  bool bare;                ///< it may be left out
  std::string_view name;
  void (*read)(const Found&, Lines&);  ///< null: beside an access list it has no effect on it
};
constexpr Root roots[] = {
    {ietfModule, false, "acls", readIetf},
    {openConfigModule, true, "acl", readOpenConfig},
    {"ietf-interfaces", false, "interfaces", nullptr},
    {"openconfig-interfaces", false, "interfaces", nullptr},
};

const std::vector<XmlModule>& xmlModules() {
  static const std::vector<XmlModule> modules = {
      {"urn:ietf:params:xml:ns:yang:ietf-access-control-list", ietfModule},
      {"urn:ietf:params:xml:ns:yang:ietf-interfaces", "ietf-interfaces"},
      {"urn:ietf:params:xml:ns:netconf:base:1.0", "netconf"}};
  return modules;
}

constexpr const char* expectedRoots =
    "ietf-access-control-list:acls, openconfig-acl:acl, or ACL_TABLE and ACL_RULE";

const Root* rootOf(const Node& node) {
  const auto known = std::find_if(std::begin(roots), std::end(roots), [&](const Root& root) {
    const bool bare = root.bare && node.module.empty() && !node.xml;
    return root.name == node.name && (node.module == root.module || bare);
  });
  return known == std::end(roots) ? nullptr : known;
}

/// One document on its way to a text.
class Document {
 public:
  Document(const Config::Source& source, const YangDirs& yangDirs)
      : report_(source.name), yangDirs_(yangDirs) {}

  void read(std::string_view text, bool isXml);
  const Lines& lines() const { return lines_; }
  const Report& report() const { return report_; }

 private:
  void readRoots(const Node& document, bool isXml);
  void readTables(const Node& document);
  void validateRoots(const Node& document);

  Report report_;
  const YangDirs& yangDirs_;
  Lines lines_;
};

void Document::read(std::string_view text, bool isXml) {
  const Tree tree = isXml ? xmlTree(text, xmlModules()) : jsonTree(text);
  if (!tree.wrong.empty())
    return report_.mistake(tree.wrongAt, tree.wrong, isXml ? "XML" : "JSON with each member once");
  const Node* document = &tree.root;
  // What protocols put around a configuration.
  if (isXml && document->members.size() == 1 && document->members[0].module == "netconf" &&
      (document->members[0].name == "config" || document->members[0].name == "data"))
    document = &document->members[0];
  readRoots(*document, isXml);
}

void Document::readRoots(const Node& document, bool isXml) {
  if (document.kind != Node::Kind::object) return report_.mistake(document.at, document.shown(), "an object");
  if (!isXml && std::any_of(document.members.begin(), document.members.end(),
                            [](const Node& node) { return isSonicTable(node.fullName()); }))
    return readTables(document);
  const auto& members = document.members;
  if (!members.empty() && std::none_of(members.begin(), members.end(), rootOf)) {
    const std::string more = members.size() > 1 ? fmt::format(" and {} more", members.size() - 1) : "";
    return report_.mistake(members.front().at,
                           fmt::format("{} document with {}{} at its root", isXml ? "an XML" : "a JSON",
                                       printableQuote(members.front().fullName()), more),
                           expectedRoots);
  }
  bool read = false;
  std::set<const Root*> known;
  for (const Node& node : members) {
    const Root* root = rootOf(node);
    const auto name = node.fullName();
    if (!root) {
      report_.mistake(node.at, fmt::format("{} at the root of a document", printableQuote(name)),
                      expectedRoots);
      read = true;
    } else if (!known.insert(root).second) {
      report_.mistake(node.at, fmt::format("{} a second time", printableQuote(name)), "each root once");
    } else if (!root->read) {
      report_.warn(node.at, "leaf-ignored",
                   fmt::format("/{} is not kept: it has no effect on traffic", name));
    } else {
      root->read({node, "/" + name, report_, root->module}, lines_);
      read = true;
    }
  }
  if (!read) report_.mistake(document.at, "a document without access lists", expectedRoots);
  if (!yangDirs_.empty()) validateRoots(document);
}

void Document::readTables(const Node& document) {
  if (!yangDirs_.empty())
    report_.warn(document.at, "not-validated", "no YANG module says what SONiC's tables have inside");
  for (const Node& node : document.members) {
    if (const Root* root = rootOf(node); root && root->read)
      report_.mistake(node.at, fmt::format("{} beside SONiC's tables", printableQuote(node.fullName())),
                      "a document of one model");
  }
  readSonic({document, "", report_, ""}, lines_);
}

void Document::validateRoots(const Node& document) {
  std::vector<YangRoot> known;
  for (const Node& node : document.members) {
    if (const Root* root = rootOf(node)) known.push_back({node, root->module});
  }
  validate(known, yangDirs_, report_);
}

/// Where lines of a text that a document came to are in the document.
class Origins {
 public:
  void add(const std::string& name, size_t index, const Document& document) {
    of_[name] = &document;
    ofText_[static_cast<uint32_t>(index)] = &document;
  }
  /// Puts the places of a document in the place of those in its text.
  template <class Thing>
  void correct(Thing& thing) const {
    const auto document = of_.find(thing.file);
    if (document == of_.end()) return;
    const At at = document->second->lines().placeOf(thing.line);
    thing.file = document->second->report().file();
    thing.line = at.line;
    thing.column = at.column;
  }
  void correct(Config::Notices& notices, size_t firstText) const {
    for (auto& warning : notices.warnings) correct(warning.place);
    correctSpots(notices.bindings, firstText);
    correctSpots(notices.lists, firstText);
    correctSpots(notices.portChannels, firstText);
    correctSpots(notices.mirrorSessions, firstText);
    correctSpots(notices.shutdowns, firstText);
    correctSpots(notices.rules, firstText);
  }

 private:
  template <class Spots>
  void correctSpots(Spots& spots, size_t firstText) const {
    for (auto& [key, spot] : spots) {
      if (spot.text < firstText) continue;
      const auto document = ofText_.find(static_cast<uint32_t>(spot.text - firstText));
      if (document == ofText_.end()) continue;
      const At at = document->second->lines().placeOf(spot.line);
      spot.line = at.line;
      spot.column = at.column;
    }
  }

  std::map<std::string, const Document*> of_;
  std::map<uint32_t, const Document*> ofText_;
};

std::string_view withoutMark(std::string_view text) {
  if (text.starts_with(byteOrderMark)) text.remove_prefix(byteOrderMark.size());
  return text;
}

/// The mistakes of documents and of texts, in the order of the sources and of what stands there.
std::vector<Config::Mistake> inOrder(const std::vector<Config::Source>& sources,
                                     std::vector<Config::Mistake> mistakes, size_t most) {
  const auto indexOf = [&](const Config::Mistake& mistake) {
    return std::find_if(sources.begin(), sources.end(),
                        [&](const auto& s) { return s.name == mistake.file; }) -
           sources.begin();
  };
  std::stable_sort(mistakes.begin(), mistakes.end(), [&](const auto& a, const auto& b) {
    return std::tuple(indexOf(a), a.line, a.column) < std::tuple(indexOf(b), b.line, b.column);
  });
  // Several lines of a text may come from one place.
  mistakes.erase(std::unique(mistakes.begin(), mistakes.end()), mistakes.end());
  if (mistakes.size() > most) mistakes.resize(most);
  return mistakes;
}

/// Adds what was odd about a document, up to the bound on the warnings of a model.
void addWarnings(const Agent::Warnings& warnings, Config::Notices& notices) {
  for (const auto& warning : warnings) {
    if (notices.warnings.size() < mostWarnings) {
      notices.warnings.push_back(warning);
    } else {
      ++notices.moreWarnings;
    }
  }
}

using ListPlaces = std::map<Config::ListKey, Agent::Place>;

/// The lists that a source has by itself.
ListPlaces listsOf(const Config::Source& source, const Document* document) {
  ListPlaces places;
  if (document) {
    for (const auto& [key, at] : document->lines().lists())
      places.emplace(key, Agent::Place{source.name, at.line, at.column});
  } else if (const auto alone = Config::read({source}, {}, 1); alone.model) {
    const auto& notices = alone.model->notices;
    for (const auto& [key, list] : alone.model->lists)
      places.emplace(key, notices.placeOf(notices.lists, key));
  }
  return places;
}

/// A document has whole lists: those that sources before it have are lost.
Agent::Warnings replacedLists(const std::vector<Config::Source>& sources,
                              const std::map<size_t, Document>& documents) {
  Agent::Warnings warnings;
  ListPlaces known;
  for (size_t i = 0; i <= documents.rbegin()->first; ++i) {
    const auto document = documents.find(i);
    const bool isDocument = document != documents.end();
    for (const auto& [key, place] : listsOf(sources[i], isDocument ? &document->second : nullptr)) {
      const auto before = known.find(key);
      if (isDocument && before != known.end()) {
        warnings.push_back({"list-replaced", place,
                            fmt::format("{} is in an earlier text, too: the first, {}:{}, is lost",
                                        Config::listTitle(key.first, key.second), before->second.file,
                                        before->second.line)});
      }
      known.insert_or_assign(key, place);
    }
  }
  return warnings;
}

/// The sources that are documents, by their index, read.
std::map<size_t, Document> documentsAmong(const std::vector<Config::Source>& sources,
                                          const YangDirs& yangDirs) {
  std::map<size_t, Document> documents;
  for (size_t i = 0; i < sources.size(); ++i) {
    const auto text = withoutMark(sources[i].text);
    const auto what = Config::notText(text);
    if (what != Config::jsonDocument && what != Config::xmlDocument) continue;
    documents.try_emplace(i, sources[i], yangDirs).first->second.read(text, what == Config::xmlDocument);
  }
  return documents;
}

}  // namespace

Config::Result read(const std::vector<Config::Source>& sources, Config::Model start, size_t mostMistakes,
                    const YangDirs& yangDirs) {
  const std::map<size_t, Document> documents = documentsAmong(sources, yangDirs);
  if (documents.empty()) return Config::read(sources, std::move(start), mostMistakes);

  // Names of files have no such character.
  const auto nameOf = [](size_t index) { return fmt::format("\n{}", index); };
  std::vector<Config::Source> texts = sources;
  Origins origins;
  for (const auto& [index, document] : documents) {
    // What a document with mistakes came to is no text that says more about it.
    texts[index] = {nameOf(index), document.report().mistakes().empty() ? document.lines().text() : ""};
    origins.add(texts[index].name, index, document);
  }
  const size_t firstText = start.notices.texts.size();
  Config::Result result = Config::read(texts, std::move(start), mostMistakes);
  for (auto& mistake : result.mistakes) origins.correct(mistake);
  for (const auto& [index, document] : documents) {
    const auto& more = document.report().mistakes();
    result.mistakes.insert(result.mistakes.end(), more.begin(), more.end());
  }
  result.mistakes = inOrder(sources, std::move(result.mistakes), mostMistakes);
  if (!result.mistakes.empty()) return {std::nullopt, std::move(result.mistakes)};

  auto& notices = result.model->notices;
  for (const auto& [index, document] : documents) notices.texts.at(firstText + index) = sources[index].name;
  origins.correct(notices, firstText);
  for (const auto& [index, document] : documents) addWarnings(document.report().warnings(), notices);
  if (sources.size() > 1) addWarnings(replacedLists(sources, documents), notices);
  return result;
}

}  // namespace Models
