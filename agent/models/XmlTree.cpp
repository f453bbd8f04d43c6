#include <agent/models/Tree.h>
#include <fmt/format.h>
#include <libxml/xmlreader.h>

#include <algorithm>
#include <limits>
#include <memory>

namespace Models {

namespace {

/// What libxml2 gives out; null is an empty text.
std::string_view viewOf(const xmlChar* text) {
  return text ? std::string_view(reinterpret_cast<const char*>(text)) : std::string_view();
}

struct FreeReader {
  void operator()(xmlTextReader* reader) const { xmlFreeTextReader(reader); }
};

/// Makes the tree of the elements, one after the other.
class XmlBuilder {
 public:
  XmlBuilder(std::string_view text, const std::vector<XmlModule>& modules) : text_(text), modules_(modules) {}
  Tree build();

 private:
  static void takeError(void* self, xmlErrorPtr error);
  /// Takes what the reader stands at; false when it is nothing that a document has.
  bool take();
  bool element();
  bool attributes();
  void endElement();
  bool fail(At at, std::string why);
  std::string moduleOf(std::string_view space) const;
  At place();
  /// The first tag of the name in a part of the text; its end when there is none.
  size_t findTag(std::string_view name, size_t begin, size_t end) const;

  const std::string_view text_;
  const std::vector<XmlModule>& modules_;
  std::unique_ptr<xmlTextReader, FreeReader> reader_;
  Tree tree_;
  std::vector<Node*> open_;
  size_t lineBegin_ = 0;
  int line_ = 1;
  size_t behind_ = 0;  ///< the beginning of the element that was found last
};

void XmlBuilder::takeError(void* self, xmlErrorPtr error) {
  Tree& tree = static_cast<XmlBuilder*>(self)->tree_;
  if (!tree.wrong.empty() || error->level < XML_ERR_ERROR) return;
  std::string_view why = error->message ? error->message : "";
  why = why.substr(0, why.find('\n'));
  tree.wrong = fmt::format("no XML ({})", printableQuote(why));
  tree.wrongAt = {std::max(error->line, 1), std::max(error->int2, 1)};
}

std::string XmlBuilder::moduleOf(std::string_view space) const {
  const auto known = std::find_if(modules_.begin(), modules_.end(),
                                  [&](const XmlModule& row) { return row.space == space; });
  return std::string(known == modules_.end() ? space : known->module);
}

size_t XmlBuilder::findTag(std::string_view name, size_t begin, size_t end) const {
  const auto tag = fmt::format("<{}", name);
  for (size_t at = text_.find(tag, begin); at < end; at = text_.find(tag, at + 1)) {
    const size_t next = at + tag.size();
    if (next == text_.size() || std::string_view(" \t\r\n/>").find(text_[next]) != std::string_view::npos)
      return at;
  }
  return end;
}

/// Of the element that the reader stands at, to be asked once: the reader knows only the line where its tag
/// ends. Elements come in the order of the text.
At XmlBuilder::place() {
  const long known = xmlGetLineNo(xmlTextReaderCurrentNode(reader_.get()));
  const int line = static_cast<int>(std::clamp(known, 1L, long{std::numeric_limits<int>::max()}));
  for (; line_ < line; ++line_) {
    const size_t end = text_.find('\n', lineBegin_);
    if (end == std::string_view::npos) break;
    lineBegin_ = end + 1;
  }
  const size_t end = std::min(text_.find('\n', lineBegin_), text_.size());
  const auto name = viewOf(xmlTextReaderConstName(reader_.get()));
  size_t found = findTag(name, std::max(behind_, lineBegin_), end);
  if (found == end) found = findTag(name, behind_, end);
  if (found == end) return {line, 1};
  behind_ = found + 1;
  const auto begin = text_.begin();
  const auto above = std::count(begin + static_cast<std::ptrdiff_t>(found),
                                begin + static_cast<std::ptrdiff_t>(std::max(found, lineBegin_)), '\n');
  const size_t column = found - (text_.rfind('\n', found) + 1);
  return {line - static_cast<int>(above), static_cast<int>(column) + 1};
}

bool XmlBuilder::fail(At at, std::string why) {
  if (tree_.wrong.empty()) {
    tree_.wrong = std::move(why);
    tree_.wrongAt = at;
  }
  return false;
}

bool XmlBuilder::attributes() {
  auto* const reader = reader_.get();
  while (xmlTextReaderMoveToNextAttribute(reader) == 1) {
    if (xmlTextReaderIsNamespaceDecl(reader) == 1) continue;
    const std::string name(viewOf(xmlTextReaderConstName(reader)));
    xmlTextReaderMoveToElement(reader);
    return fail(open_.back()->at, fmt::format("the attribute {}", printableQuote(name)));
  }
  xmlTextReaderMoveToElement(reader);
  return true;
}

bool XmlBuilder::element() {
  auto* const reader = reader_.get();
  const At at = place();
  if (open_.size() == deepest) return fail(at, fmt::format("a document that is more than {} deep", deepest));
  if (open_.back()->kind == Node::Kind::text) return fail(at, "a text and elements in one element");
  open_.back()->kind = Node::Kind::object;
  Node& node = open_.back()->members.emplace_back();
  node.xml = true;
  node.at = at;
  node.kind = Node::Kind::null;
  node.name = viewOf(xmlTextReaderConstLocalName(reader));
  node.module = moduleOf(viewOf(xmlTextReaderConstNamespaceUri(reader)));
  node.ownModule = !node.module.empty();
  open_.push_back(&node);
  if (!attributes()) return false;
  if (xmlTextReaderIsEmptyElement(reader) == 1) endElement();
  return true;
}

void XmlBuilder::endElement() {
  Node& node = *open_.back();
  // What has neither text nor elements is an empty container, or an empty text: its type says which.
  if (node.kind == Node::Kind::null) node.kind = Node::Kind::object;
  constexpr std::string_view blanks = " \t\r\n";
  node.value.erase(0, std::min(node.value.find_first_not_of(blanks), node.value.size()));
  node.value.erase(node.value.find_last_not_of(blanks) + 1);
  if (const size_t colon = node.value.find(':'); colon != std::string::npos) {
    const std::string prefix = node.value.substr(0, colon);
    xmlChar* const space =
        xmlTextReaderLookupNamespace(reader_.get(), reinterpret_cast<const xmlChar*>(prefix.c_str()));
    if (space) node.valueModule = moduleOf(viewOf(space));
    xmlFree(space);
  }
  open_.pop_back();
}

bool XmlBuilder::take() {
  auto* const reader = reader_.get();
  switch (xmlTextReaderNodeType(reader)) {
    case XML_READER_TYPE_ELEMENT:
      return element();
    case XML_READER_TYPE_END_ELEMENT:
      endElement();
      return true;
    case XML_READER_TYPE_TEXT:
    case XML_READER_TYPE_CDATA:
      if (open_.back()->kind == Node::Kind::object)
        return fail(open_.back()->at, "a text and elements in one element");
      open_.back()->kind = Node::Kind::text;
      open_.back()->value += viewOf(xmlTextReaderConstValue(reader));
      return true;
    case XML_READER_TYPE_DOCUMENT_TYPE:
    case XML_READER_TYPE_ENTITY:
    case XML_READER_TYPE_ENTITY_REFERENCE:
      return fail(open_.back()->at, "a document type or an entity");
    default:
      return true;  // blanks, comments, processing instructions
  }
}

Tree XmlBuilder::build() {
  if (text_.size() > static_cast<size_t>(std::numeric_limits<int>::max())) {
    tree_.wrong = "too much XML";
    return std::move(tree_);
  }
  reader_.reset(xmlReaderForMemory(text_.data(), static_cast<int>(text_.size()), nullptr, nullptr,
                                   XML_PARSE_NONET | XML_PARSE_BIG_LINES));
  if (!reader_) throw std::bad_alloc();
  xmlTextReaderSetStructuredErrorHandler(reader_.get(), takeError, this);
  tree_.root.xml = true;
  open_ = {&tree_.root};
  int more = 0;
  while ((more = xmlTextReaderRead(reader_.get())) == 1 && take()) {
  }
  if (more < 0 && tree_.wrong.empty()) tree_.wrong = "no XML";
  if (!tree_.wrong.empty()) tree_.root = {};
  return std::move(tree_);
}

}  // namespace

Tree xmlTree(std::string_view text, const std::vector<XmlModule>& modules) {
  return XmlBuilder(text, modules).build();
}

}  // namespace Models
