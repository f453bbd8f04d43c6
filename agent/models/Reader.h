#pragma once

#include <agent/config/Reader.h>
#include <agent/models/Yang.h>

#include <cstddef>
#include <cstdint>
#include <vector>

/// The models in which others write access lists, in and out.
namespace Models {

/// Like Config::read(), and takes documents of the models beside texts, told apart by what they begin with:
/// RFC 8519 as JSON and XML, OpenConfig as JSON, and SONiC's tables. What a document says is carried over
/// exactly or is a mistake with the place and the path; what has no effect on traffic is a warning.
/// docs/models.md has what becomes of each leaf.
///
/// A document has whole lists: one of a list that an earlier text has replaces it. With folders of YANG
/// modules documents are validated by them besides; there are none for SONiC's tables, and a warning says so.
Config::Result read(const std::vector<Config::Source>& sources, Config::Model start = {},
                    size_t mostMistakes = SIZE_MAX, const YangDirs& yangDirs = {});

}  // namespace Models
