#pragma once

#include <tests/on_demand/random.h>
#include <tests/on_demand/side.h>
#include <tests/support/fixed_clock.h>
#include <tests/support/map_object_reader.h>

#include <cstdint>
#include <map>
#include <memory>
#include <stdexcept>
#include <string>

namespace TalVcs::Testing {

/// Thrown where the two sides differ.
class Difference : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// An ordinary repository and one on demand that go the same way, step by step.
///
/// Each step is drawn from the seed and done to both sides, whose results and heads must be equal.
/// The side on demand is saved, opened again and trimmed at random, and its store fails at random:
/// then no branch has moved, and the repeated call has the result of the other side.
class Lockstep {
 public:
  explicit Lockstep(std::uint64_t seed);

  /// Does one step. Throws a `Difference` if the sides differ.
  void Step();
  /// Compares everything that can be reached.
  void CompareAll();

  /// What the last step did.
  const std::string& GetOperation() const { return m_operation; }
  /// How often each operation was done, and how many reads failed.
  const std::map<std::string, std::uint64_t>& GetCounts() const { return m_counts; }

 private:
  struct Kind {
    unsigned weight;
    const char* name;
    void (Lockstep::*run)();
  };
  static const std::vector<Kind>& Kinds();

  void Both(const Operation& operation);
  std::string OnDemandResult(const Operation& operation);
  void CompareHeads();
  std::vector<std::map<std::string, std::string>> HeadsOnDemand() const;
  OnDemandStorage& Storage(std::size_t repository);
  std::uint64_t WriteUnsaved(std::size_t repository);
  void SaveAndReopen(std::size_t repository);

  std::string PickBranch();
  std::string PickPath();
  std::string PickText();
  std::string PickContent();
  Version PickVersion(std::size_t repository);
  std::size_t PickRepository() { return m_random.OneIn(4) ? 1 : 0; }
  Id PickStoredId(std::size_t repository, bool tree);
  std::vector<Operation> PickEdits(std::size_t repository, std::size_t draft);

  // One operation each.
  void MakeDraft();
  void EditDraft();
  void AddForeignTree();
  void ReplaceRoot();
  void CommitDraft();
  void CommitQuickly();
  void CreateBranch();
  void MoveBranch();
  void RemoveBranch();
  void Checkout();
  void Merge();
  void EnsureCommonRoot();
  void Simplify();
  void DeleteCommits();
  void Purge();
  void CopyRepository();
  void ListTree();
  void CompareTrees();
  void ReadPath();
  void ReadHistory();
  void FindCommonBase();
  void FindBranches();
  void FindById();
  void Hold();
  void DropHandles();
  void EditHeldTree();
  void MergeTrees();
  void Save();
  void Reopen();
  void Trim();

  Random m_random;
  FixedClock m_clock;
  // Names are files here and directories there. No blob hides a subtree when memory is trimmed.
  bool m_namesCollide;
  bool m_readsFail;
  Side m_ordinary;
  Side m_onDemand;
  std::shared_ptr<MapObjectReader> m_reader = std::make_shared<MapObjectReader>();
  std::string m_operation;
  std::map<std::string, std::uint64_t> m_counts;
};

}  // namespace TalVcs::Testing
