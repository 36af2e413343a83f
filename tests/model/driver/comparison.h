#pragma once

#include "twins.h"

#include <string_view>
#include <unordered_map>

namespace ModelTest {

/// Compares everything that can be reached in the library with the model: contents, ids, and which
/// handles share one instance. One comparison lasts as long as nothing changes.
///
/// Each operation raises a `Mismatch` where the two differ.
class Comparison {
 public:
  void Repositories(const RepositoryTwin& twin);
  void Commits(const TalVcs::cow_ptr<TalVcs::Commit>& lib,
               const Model::Handle<Model::Commit>& model);
  /// Compares without asking for the id, which a draft would keep.
  void Drafts(const TalVcs::Commit& lib, const Model::Commit& model);
  void Trees(const TalVcs::cow_ptr<TalVcs::Tree>& lib, const Model::Handle<Model::Tree>& model);
  void Blobs(const TalVcs::cow_ptr<TalVcs::Blob>& lib, const Model::Handle<Model::Blob>& model);

 private:
  bool IsNewPair(std::string_view what, const void* lib, const void* model);
  void TreeContents(const TalVcs::Tree& lib, const Model::Tree& model);

  std::unordered_map<const void*, const void*> m_modelOf;
  std::unordered_map<const void*, const void*> m_libOf;
};

/// Compares the listings of two trees and their differences, either of which may be null.
void CompareListings(const TreeTwin& a, const TreeTwin& b);

}  // namespace ModelTest
