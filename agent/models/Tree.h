#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace Models {

/// A place in a document; both from 1.
struct At {
  int line = 1;
  int column = 1;
};

/// A piece of a document, whichever notation it was written in. Members keep the order of the document;
/// several may have the same name: in XML that is how lists are written.
struct Node {
  enum class Kind { object, array, text, number, boolean, null };

  Kind kind = Kind::null;
  bool xml = false;    ///< then a leaf is a text, whatever its type, and nothing is an array
  At at;               ///< of the name, or of the value of an element of an array
  std::string module;  ///< the one of the name. JSON may leave it out: then it is that of the node around it
  std::string name;    ///< without the module; empty: an element of an array
  bool ownModule = false;  ///< the module is written in front of the name
  std::string value;       ///< of a leaf; a number as it is written
  /// What stands before the colon of a value: its module, if the value is the name of an identity. It stays
  /// part of `value`.
  std::string valueModule;
  std::vector<Node> members;

  bool isLeaf() const { return kind != Kind::object && kind != Kind::array; }
  /// The name as it is written, with a module that stands in front of it.
  std::string fullName() const { return ownModule ? module + ":" + name : name; }
  /// The first member of a name; null when there is none.
  const Node* find(std::string_view member) const;
  /// What a person is told that it is: "a number", or the text itself in quotation marks.
  std::string shown() const;
};

/// A document, or the place and the reason why it is none.
struct Tree {
  Node root;
  At wrongAt;
  std::string wrong;  ///< empty: none
};

/// Reads JSON (RFC 8259). A member that an object has twice is a mistake.
Tree jsonTree(std::string_view text);

/// Reads XML with namespaces; those of `modules` have their names, others are their own name. The root has
/// the outermost element as its one member. There are no attributes that mean anything, and no document
/// types.
struct XmlModule {
  std::string_view space;   ///< the URI
  std::string_view module;  ///< what nodes in there get as their module
};
Tree xmlTree(std::string_view text, const std::vector<XmlModule>& modules);

/// A text without control characters, cut short when it is very long.
std::string printable(std::string_view text);
/// The same in quotation marks, and shorter.
std::string printableQuote(std::string_view text);

/// Deeper documents are refused.
inline constexpr size_t deepest = 64;

}  // namespace Models
