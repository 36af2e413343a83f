#pragma once

#include <tests/kit/workspace/workspace_fixture.h>

#include <set>
#include <string>

/// A slow and obvious merge, for models of workspaces.
namespace TalVcs::Testing {

/// What a plain merge of three maps of files comes to.
struct ModelMerge {
  FileTexts files;                  // with our side of each conflict
  std::set<std::string> conflicts;  // paths
};

/// Returns the text at a path, or null.
inline const std::string* TextAt(const FileTexts& files, const std::string& path) {
  const auto found = files.find(path);
  return found == files.end() ? nullptr : &found->second;
}

inline bool AreEqual(const std::string* a, const std::string* b) {
  return a == nullptr || b == nullptr ? a == b : *a == *b;
}

/// Merges path by path.
inline ModelMerge MergeFiles(const FileTexts& base, const FileTexts& ours,
                             const FileTexts& theirs) {
  std::set<std::string> paths;
  for (const FileTexts* files : {&base, &ours, &theirs}) {
    for (const auto& [path, text] : *files) paths.insert(path);
  }
  ModelMerge merge;
  for (const std::string& path : paths) {
    const std::string* of_base = TextAt(base, path);
    const std::string* of_ours = TextAt(ours, path);
    const std::string* of_theirs = TextAt(theirs, path);
    const std::string* taken = of_ours;
    if (!AreEqual(of_ours, of_theirs) && !AreEqual(of_theirs, of_base)) {
      if (AreEqual(of_ours, of_base)) {
        taken = of_theirs;
      } else {
        merge.conflicts.insert(path);
      }
    }
    if (taken != nullptr) merge.files.emplace(path, *taken);
  }
  return merge;
}

}  // namespace TalVcs::Testing
