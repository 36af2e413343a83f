#pragma once

#include <kit/export.h>
#include <kit/store/object_store.h>
#include <talvcs/foundation/names.h>
#include <talvcs/persistence/blob_io.h>
#include <talvcs/persistence/path_builder.h>

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace TalVcs::Kit {

/// Lets a store of streams, as `MemoryStore` and `DirectoryStore` are, be used as an object store.
///
/// Such a store can't remove single objects and has no values: `RemoveUnmarked`, `Value` and
/// `SetValue` fail with `Unsupported`. It has no compare-and-swap either: `MoveHeads` compares and
/// then writes, so nobody else may write meanwhile. Where a write of branches fails in the middle,
/// `MoveHeads` fails with `Unknown`. To remove a branch, all others are written anew.
///
/// `Missing` and `Sizes` read each object that they are called for. An object whose stream is empty
/// is missing.
class TALVCS_KIT_API BlobsAsObjectStore : public IObjectStore {
 public:
  /// Ends a change of a store with transactions, and returns whether it is in the store. Called
  /// after each change, also after one that failed: then it abandons.
  using EndChange = std::function<Status(bool succeeded)>;

  /// Works on a store whose reader and writer outlive this object, below `rootPath` in UTF-8. A
  /// store without transactions needs no `endChange`.
  BlobsAsObjectStore(IBlobReader& reader, IBlobWriter& writer, std::string_view rootPath = {},
                     EndChange endChange = {});
  BlobsAsObjectStore(const BlobsAsObjectStore&) = delete;
  BlobsAsObjectStore& operator=(const BlobsAsObjectStore&) = delete;
  ~BlobsAsObjectStore() override;

  Result<std::vector<Id>> Missing(std::span<const Id> ids) override;
  Status Read(std::span<const Id> ids, const ReadSink& sink) override;
  Status ReadHistory(const Id& id, std::uint64_t most, const ReadSink& sink) override;
  Result<std::vector<std::optional<std::uint64_t>>> Sizes(std::span<const Id> ids) override;
  Status Write(std::span<const StoredObject> objects) override;
  Result<std::vector<Head>> Heads() override;
  Status MoveHeads(std::span<const HeadMove> moves) override;
  Status List(const IdSink& sink) override;
  Result<RemovedObjects> RemoveUnmarked(const MarkObjects& mark) override;
  Result<std::optional<std::string>> Value(std::string_view name) override;
  Status SetValue(std::string_view name, std::optional<std::string_view> value) override;

 private:
  TALVCS_KIT_NO_EXPORT std::optional<Buffer> ReadStream(const TalStringT<WideChar>& path);
  TALVCS_KIT_NO_EXPORT Result<Buffer> ReadObject(const Id& id);
  TALVCS_KIT_NO_EXPORT bool WriteStream(const TalStringT<WideChar>& path, const Buffer& bytes);
  TALVCS_KIT_NO_EXPORT bool WriteHead(const std::string& name, const Id& id);
  TALVCS_KIT_NO_EXPORT Result<std::map<std::string, Id>> ReadHeads();
  TALVCS_KIT_NO_EXPORT Status End(bool succeeded);

  IBlobReader& m_reader;
  IBlobWriter& m_writer;
  PathBuilder m_paths;
  EndChange m_endChange;
};

}  // namespace TalVcs::Kit
