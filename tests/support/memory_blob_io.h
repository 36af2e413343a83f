#pragma once

#include <talvcs/objects/id.h>
#include <talvcs/persistence/blob_io.h>

#include <cstddef>
#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace TalVcs::Testing {

/// A store in a map, reader and writer in one, that records every call and can spoil one of them.
///
/// Tests work on stores below the root "doc". Paths and names are UTF-8.
class MemoryBlobIo final : public IBlobWriter, public IBlobReader {
 public:
  enum class Fault { None, Missing, Shortened, Altered };

  std::map<std::string, std::string> streams;

  /// What was called, in order: "remove PATH", "create PATH", "commit PATH", "open PATH", "list
  /// PATH".
  std::vector<std::string> calls;
  bool records = true;

  /// Spoils the stream of the `n`-th `OpenBlob` from now on, or of the `n`-th `CommitBlobStream`,
  /// counted from 0. A commit with the fault `Missing` stores nothing and returns false.
  void SpoilOpen(std::size_t n, Fault fault);
  void SpoilCommit(std::size_t n, Fault fault);
  bool HasFired() const { return m_fired; }

  /// Whether a missing stream is an empty one instead of one that tests false.
  bool missingReadsAsEmpty = false;

  /// Puts the bytes of an object or a branch where a store below "doc" has them.
  void PutObject(std::string_view id, std::string_view bytes);
  void PutBranch(std::string_view name, std::string_view bytes);
  static std::string ObjectPath(std::string_view id);
  static std::string BranchPath(std::string_view name);

  /// Returns how often the stream of an object was opened.
  std::size_t CountOpens(std::string_view id) const;
  /// Returns the largest number of times that any one stream was opened.
  std::size_t MostOpensOfOneStream() const;

  Stream CreateBlobStream(const TalStringT<WideChar>& path) override;
  bool CommitBlobStream(const TalStringT<WideChar>& path, Stream stream) override;
  void RemoveStorage(const TalStringT<WideChar>& storagePath) override;
  StreamIO OpenBlob(const TalStringT<WideChar>& path) override;
  std::vector<TalStringT<WideChar>> ListBlobs(const TalStringT<WideChar>& directoryPath) override;

 private:
  void Record(const char* call, const std::string& path);

  struct Plan {
    std::size_t countdown = 0;
    Fault fault = Fault::None;
  };
  Fault NextFault(Plan& plan);

  Plan m_openPlan;
  Plan m_commitPlan;
  bool m_fired = false;
};

/// Returns a packed object: type word, blank, size, zero byte, data.
std::string Packed(std::string_view type, std::string_view data);

/// Returns one record of a packed tree.
std::string Record(std::string_view type, std::string_view name, std::string_view id);

/// Returns the text of a commit without a description; `parent` may be empty.
std::string CommitText(std::string_view tree, std::string_view parent = {},
                       std::string_view description = {});

/// Returns an id-like text of 64 characters that depends on `n`.
std::string FakeId(unsigned n);

}  // namespace TalVcs::Testing
