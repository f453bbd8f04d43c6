#pragma once

#include <agent/config/Model.h>

#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace Config {

/// Remarks with a number, while texts are read: each goes with the first rule behind it.
class PlacedRemarks {
 public:
  void add(const ListKey& list, uint32_t number, std::string_view line) {
    remarks_[list][number].emplace_back(line);
  }
  /// Takes back a line of a remark, or all of them if it is empty.
  void del(const ListKey& list, uint32_t number, std::string_view line) {
    std::erase_if(remarks_[list][number], [line](const auto& each) { return line.empty() || each == line; });
  }
  void forgetRule(const ListKey& list, uint32_t sequence) { remarks_[list].erase(sequence); }
  void forgetList(const ListKey& list) { remarks_.erase(list); }
  /// Gives rules their remarks; none are left here.
  void settle(Model& model);

 private:
  std::map<ListKey, std::map<uint32_t, std::vector<std::string>>> remarks_;
};

}  // namespace Config
