#pragma once

#include <kit/store/object_store.h>
#include <stores/zip/internal/document_file.h>
#include <stores/zip/internal/entry_names.h>
#include <stores/zip/internal/pending_objects.h>

#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace TalVcs::Kit::Zip {

/// What an open `ZipStore` is: the file, and the objects that were written and aren't in it yet.
/// The functions are those of the store.
class Document {
 public:
  explicit Document(std::unique_ptr<DocumentFile> file) : m_file(std::move(file)) {}
  Document(const Document&) = delete;
  Document& operator=(const Document&) = delete;
  ~Document() = default;

  Result<std::vector<Id>> Missing(std::span<const Id> ids);
  Status Read(std::span<const Id> ids, const ReadSink& sink);
  Result<std::vector<std::optional<std::uint64_t>>> Sizes(std::span<const Id> ids);
  Status Write(std::span<const StoredObject> objects);
  Result<std::vector<Head>> Heads();
  Status MoveHeads(std::span<const HeadMove> moves);
  Status List(const IdSink& sink);
  Result<RemovedObjects> RemoveUnmarked(const MarkObjects& mark);
  Result<std::optional<std::string>> Value(std::string_view name);
  Status SetValue(std::string_view name, std::optional<std::string_view> value);
  Status Replace(std::span<const StoredObject> objects);
  /// Puts the pending objects into the file.
  Status WritePending();

 private:
  /// An object that goes into the next archive: its bytes, or where an archive has it.
  struct Place {
    std::string_view digits;
    const Buffer* bytes = nullptr;
    const Archive* archive = nullptr;
    Archive::ObjectPlace entry;
  };

  bool Has(std::string_view digits) const noexcept;
  Result<Buffer> ReadOne(const Id& id);
  std::optional<std::uint64_t> SizeOf(const Digits& digits) const noexcept;
  void RelyOnObjects();
  Status CheckObjects();
  std::vector<Place> Places(const ObjectMap& replacements) const;
  static std::uint64_t SizeOf(const Place& place) noexcept;
  Status WriteArchive(const File& locked, const DocumentState& state,
                      const std::vector<Place>& places);
  Status Change(const std::function<Result<bool>(DocumentState& state)>& change);

  std::unique_ptr<DocumentFile> m_file;
  PendingObjects m_pending;
  // What this store object has found or written since heads moved.
  std::vector<Digits> m_reliedOn;
  // A move failed because of a removal: the next look or write begins a new save.
  bool m_isStale = false;
};

}  // namespace TalVcs::Kit::Zip
