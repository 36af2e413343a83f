#pragma once

#include <bench/workloads.h>
#include <talvcs/foundation/internal/sha256.h>

#include <array>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

/// What a workload can't do without, as bare code: the bytes of the library's format are put
/// together and hashed once, and nothing else is done with them unless asked for.
namespace TalVcs::Bench {

using Digest = TalUtils::Sha256::Digest;

/// What happens to an object beside the hashing.
enum class Keep {
  Nothing,  ///< it is forgotten
  Table,    ///< its packed form is copied to memory of its own, found by a table of ids
};

/// Returns the header of a packed object.
std::string PackedHeader(std::string_view type, std::size_t size);

/// Takes objects in their packed form.
class FloorStore {
 public:
  explicit FloorStore(Keep keep);

  /// Hashes an object of `type` with `data`, and keeps it if this store does.
  Digest Put(std::string_view type, std::string_view data);

  /// Drops the objects that were put after the first `count`, and their memory.
  void Shrink(std::size_t count);

  std::uint64_t GetObjectCount() const { return m_objects; }
  std::uint64_t GetHashedBytes() const { return m_bytes; }
  std::size_t GetKeptCount() const { return m_kept.size(); }
  std::string_view GetKept(std::size_t index) const;

 private:
  struct Packed {
    Digest id;
    std::size_t size;
    std::unique_ptr<char[]> bytes;
  };

  void Insert(std::size_t index);
  void Grow();
  std::size_t FirstSlot(const Digest& id) const;

  Keep m_keep;
  std::uint64_t m_objects = 0;
  std::uint64_t m_bytes = 0;
  std::vector<Packed> m_kept;
  std::vector<std::uint32_t> m_slots;  // index in m_kept plus 1; 0 if free
};

/// The text of a tree whose names all have the same length.
class FloorDirectory {
 public:
  explicit FloorDirectory(std::string_view modeAndType) : m_modeAndType(modeAndType) {}

  /// Puts an entry, replacing the one of that name.
  void Set(std::string_view name, const Digest& id);

  const std::string& GetText() const { return m_text; }

 private:
  std::string m_modeAndType;
  std::string m_text;
};

/// The directories of the workloads: a root, middle ones and leaves.
class FloorTree {
 public:
  FloorTree(FloorStore& store, std::uint32_t files);

  /// Puts a file, and stores the three directories above it.
  void AddFile(std::uint32_t index, std::string_view content);

  /// Puts files, and stores each directory above them once.
  void AddTogether(const std::vector<std::uint32_t>& indices,
                   const std::vector<std::string_view>& contents);

  /// Stores a commit of the root.
  void Record();

 private:
  void PutFile(std::uint32_t index, std::string_view content);
  void StoreLeaf(std::uint32_t leaf);
  void StoreTop(std::uint32_t top);

  FloorStore& m_store;
  FloorDirectory m_root;
  std::vector<FloorDirectory> m_tops;
  std::vector<FloorDirectory> m_leaves;
  std::uint32_t m_commits = 0;
};

/// Stores a text as long as that of a commit, of which no two are the same.
void PutCommit(FloorStore& store, std::uint32_t number);

}  // namespace TalVcs::Bench
