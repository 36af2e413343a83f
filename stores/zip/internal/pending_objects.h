#pragma once

#include <kit/store/object_store.h>
#include <stores/zip/internal/archive.h>
#include <stores/zip/internal/document_file.h>
#include <stores/zip/internal/entry_names.h>

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace TalVcs::Kit::Zip {

/// Objects by their digits.
using ObjectMap = std::map<std::string, Buffer, std::less<>>;

/// Objects that were written and aren't in the document yet: in memory, and what was too much for
/// it in archives without names.
class PendingObjects {
 public:
  bool IsEmpty() const noexcept { return m_objects.empty() && m_archives.empty(); }
  bool Has(std::string_view digits) const noexcept;
  std::optional<std::uint64_t> SizeOf(std::string_view digits) const noexcept;
  /// Returns nothing for an object that isn't pending.
  std::optional<Result<Buffer>> Read(std::string_view digits) const;

  /// Adds an object that isn't pending. If memory then has more than the options of `file` allow,
  /// its objects go into an archive. After a failure they stay in memory.
  Status Add(const Digits& digits, const Buffer& packed, const DocumentFile& file);
  void Clear() noexcept;

  const ObjectMap& InMemory() const noexcept { return m_objects; }
  const std::vector<std::unique_ptr<Archive>>& Archives() const noexcept { return m_archives; }

 private:
  Status Spill(const DocumentFile& file);

  ObjectMap m_objects;
  std::uint64_t m_sizeBytes = 0;  // of the objects in memory
  std::vector<std::unique_ptr<Archive>> m_archives;
};

}  // namespace TalVcs::Kit::Zip
