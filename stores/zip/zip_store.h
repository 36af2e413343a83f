#pragma once

#include <kit/store/object_store.h>
#include <kit/store/repairable_store.h>
#include <stores/zip/export.h>

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace TalVcs::Kit {
namespace Zip {
class Document;
}

/// How a `ZipStore` works.
struct ZipOptions {
  /// Whether a file that is missing or empty becomes a new document. Otherwise opening one fails.
  bool create = true;
  /// Whether the file is only read. It is never made then, and all changes fail with `Denied`.
  bool readOnly = false;
  /// Whether a change waits until it is on the medium, so that it outlives a loss of power. Without
  /// it, a change still outlives the end of the process.
  bool durable = true;
  /// How long a change waits for another program that saves before it fails with `Busy`.
  std::chrono::milliseconds busyTimeout{5000};
  /// How many bytes of written objects stay in memory until heads move. Beyond it they go into a
  /// file without a name in the folder of the document.
  std::uint64_t bufferSizeBytes = std::uint64_t{16} << 20;
  /// The most bytes of one object or value. An archive of a stranger may claim any size. A larger
  /// one is `Unsupported` when it is read, and when it is written.
  std::uint64_t mostObjectBytes = std::uint64_t{2} << 30;
};

/// A document with its history in one zip archive, which every unzip program lists and unpacks.
///
///     README.txt                what this is, for people
///     branches/master.txt       the id of the head of a branch
///     objects/ab/cdef....blob   the packed form of an object, deflated where that pays
///     values/current.txt        a value
///
/// Use it to pass on, send and archive whole documents: each save writes the archive anew. `Copy`
/// from another store into an empty one is "save as", `Open` or `Load` reads it. Equal content
/// makes equal bytes, whatever the order in which it came. docs/formats.md describes every entry.
/// An archive that was unpacked and packed by another program is a document all the same; its
/// entries that aren't of a document are ignored, and the next save drops them.
///
/// *Saving.* `Write` keeps the objects until `MoveHeads`, `SetValue`, `RemoveUnmarked`, `Replace`
/// or `Close` writes an archive beside the old one under the name of the file and ".new", waits for
/// the medium, and renames it. A process that ends at any point leaves the archive before or after
/// the change; a ".new" that it leaves is removed by the next change. Written objects are lost with
/// the process until then, so a copy that is killed begins again. Entries that stay are copied
/// without being decompressed or checked.
///
/// *Other programs.* Any number of store objects, in any number of processes, may have the file
/// open. A change locks the archive that it replaces (`flock`), so one writes at a time and none is
/// lost; the others wait up to `ZipOptions::busyTimeout`. Readers never wait: a store object reads
/// from the archive that it has opened, and takes the present one in `Heads`, `Value`, `List`,
/// `Missing` and every change, and when it finds an object missing. `MoveHeads` fails with `Busy`
/// if objects are gone that this store object has found or written since heads moved; removals of
/// other objects don't disturb it. A program that ignores the lock and replaces the file between
/// two operations is noticed; during one, its version is lost.
///
/// *Damage.* Reading never crashes on a damaged or hostile archive, and takes no more memory than
/// the bytes that are really there. Opening one fails with `Damaged` if its directory is wrong, if
/// entries overlap, or if two have one name. If branches or values don't fit their digest, `Heads`
/// fails with `Damaged` and `Error::heads` has what can be read. Objects have the checksum of the
/// archive, and their ids, which the caller compares.
///
/// *Read-only files.* A file that the process may not write opens all the same. What would write
/// the archive fails with `Denied` then, also where the folder would let the file be replaced:
/// `Write` keeps objects in memory as always, and `MoveHeads` or `Close` after it fails. With
/// `ZipOptions::readOnly`, `Write` fails with `Denied` too.
///
/// *Errors.* `Busy`: another program is saving. `Full`: no space. `Denied`: no right to do it.
/// `Damaged`: not a sound archive, or not a document. `Unsupported`: of a newer format, encrypted,
/// compressed by another method than deflate, larger than the options allow. `Unavailable`: the
/// system failed to read or write it. `Unknown`: the change is made, but the medium may not have
/// it yet.
///
/// Cost: opening reads the directory and one small entry. A change costs one copy of the archive;
/// only new objects are compressed. A read costs a search in the directory and one entry.
///
/// A moved-from or closed store fails with `Unavailable`. Threads: a store object belongs to one
/// thread at a time, and not to the child after a fork. POSIX only.
class TALVCS_ZIP_API ZipStore final : public IObjectStore, public IRepairableStore {
 public:
  /// Opens the file at `path`, or the file that a symbolic link there names. If the link leads
  /// to a missing file, the file is made there.
  ///
  /// Fails with `NotFound` if the file is missing and isn't to be made, or if its folder is.
  static Result<ZipStore> Open(const std::filesystem::path& path, ZipOptions options = {});

  ZipStore(ZipStore&& other) noexcept;
  ZipStore& operator=(ZipStore&& other) noexcept;
  /// Does what `Close` does, without a result.
  ~ZipStore() override;

  /// Puts objects that aren't in the file yet into it, and closes it. After a failure the store is
  /// open and has the objects. Closing twice succeeds.
  Status Close();

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
  Status Replace(std::span<const StoredObject> objects) override;

 private:
  explicit ZipStore(std::unique_ptr<Zip::Document> document) noexcept;

  std::unique_ptr<Zip::Document> m_document;
};

}  // namespace TalVcs::Kit
