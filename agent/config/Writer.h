#pragma once

#include <agent/config/Model.h>

#include <string>
#include <vector>

namespace Config {

/// Says what of a model is written, and by which names. This class says: all of it, by its own names.
class Choice {
 public:
  virtual ~Choice() = default;
  virtual bool hasGroup(const std::string&) const { return true; }
  virtual bool hasList(const Model::ListKey&) const { return true; }
  virtual bool hasPortChannel(const std::string&) const { return true; }
  virtual bool hasNotes(const std::string& /*interface*/) const { return true; }
  virtual bool hasBinding(const BindingKey&) const { return true; }
  virtual bool hasMirrorSession(const std::string&) const { return true; }
  /// The name that an object-group gets in the text.
  virtual std::string groupName(const std::string& name) const { return name; }
};

/// Writes a model as configuration text: read() makes an equal model of it, remarks and spelling included.
/// Comments and the order of statements are not part of a model, so they may differ from a text that it was
/// read from.
///
/// The text is made in pieces. Between two of them the model may change, or be replaced; what is behind the
/// last statement is then written as it is.
class Writer {
 public:
  /// Appends a piece of about `octets` octets; false when that was the last one.
  bool next(const Model& model, const Choice& choice, std::string& text, size_t octets);

 private:
  enum class Part { groups, lists, portChannels, interfaces, mirrorSessions, end };

  bool list(const Model& model, const Choice& choice, std::string& text, size_t end);
  bool interface(const Model& model, const Choice& choice, std::string& text);
  template <class Map, class Write>
  bool named(const Map& map, const Write& write);

  Part part_ = Part::groups;
  std::string name_;     ///< the last one of this part that was written; empty: none
  Model::ListKey list_;  ///< the same of the lists; the name is empty at first
  bool inList_ = false;  ///< not all of its rules are written
  uint32_t number_ = 0;  ///< of the last of them that is
};

/// The whole text of a model.
std::string textOf(const Model& model);

}  // namespace Config
