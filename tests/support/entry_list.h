#pragma once

#include <map>
#include <string>

namespace TalVcs::Testing {

/// An entry of a directory as a plain model sees it.
struct ModelEntry {
  bool is_tree;
  std::string id;
};

/// Names in ASCII, whose order by code units is that of their bytes.
using ModelDirectory = std::map<std::string, ModelEntry>;

/// Writes the entry list of a directory in the plainest way.
inline std::string EncodeEntryList(const ModelDirectory& directory) {
  std::string bytes;
  for (const auto& [name, entry] : directory) {
    bytes += entry.is_tree ? "40000 tree " : "100644 blob ";
    bytes += name;
    bytes += '\0';
    bytes += entry.id;
  }
  return bytes;
}

}  // namespace TalVcs::Testing
