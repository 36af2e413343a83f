#pragma once

#include <kit/export.h>
#include <kit/store/passing_store.h>

namespace TalVcs::Kit {

/// Compares each object that is read with its id.
///
/// Bytes whose SHA-256 isn't the id are passed on as an error `Damaged`, and end a `ReadHistory`.
/// `Missing`, `Sizes` and `List` don't look at bytes: a damaged object counts as there. Heads and
/// values have no id to compare.
///
/// Stores that check nothing by themselves, as those in memory and in a SQLite file, need it only
/// if the caller doesn't compare; `Kit::Open` and `Kit::Verify` do. Cost: one SHA-256 of the bytes.
class TALVCS_KIT_API ChecksumStore final : public PassingStore {
 public:
  using PassingStore::PassingStore;
  ~ChecksumStore() override;

 protected:
  Result<Buffer> Found(const Id& id, Result<Buffer> packed) override;
};

}  // namespace TalVcs::Kit
