#pragma once

#include <Acl/Filter.h>

namespace Acl {

/// A filter with labels that its setters refuse, for tests of who asks check() before such a filter decides.
struct UncheckedMpls {
  static MplsFilter of(const MplsFilter::Labels& labels) {
    MplsFilter filter;
    filter.labels_ = labels;
    return filter;
  }
};

}  // namespace Acl
