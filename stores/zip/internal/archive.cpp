#include <kit/text.h>
#include <stores/zip/internal/archive.h>
#include <stores/zip/internal/entry_names.h>
#include <stores/zip/internal/file_source.h>
#include <stores/zip/internal/zip_error.h>

#include <algorithm>
#include <array>
#include <limits>
#include <utility>

namespace TalVcs::Kit::Zip {
namespace {

// Deflate makes no more than 1032 bytes of one, so a larger entry lies about its size.
constexpr std::uint64_t kMostExpansion = 1032;
// What an entry takes in the file beside its name and bytes, at the least: its two headers.
constexpr std::uint64_t kHeaderBytes = 30 + 46;
// Memory grows with what an entry really contains, not with what its header claims.
constexpr std::uint64_t kPieceBytes = std::uint64_t{4} << 20;

struct CloseEntry {
  void operator()(zip_file_t* file) const noexcept { zip_fclose(file); }
};

}  // namespace

Error Archive::Damage(const std::string& reason) const {
  return MakeError(ErrorCode::Damaged, Task::Read, m_path, reason);
}

Result<std::unique_ptr<Archive>> Archive::Open(File file, const std::filesystem::path& path,
                                               std::uint64_t mostObjectBytes) {
  FileIdentity identity;
  if (const std::error_code error = file.Identify(identity)) {
    return SystemFailure(Task::Open, path, error);
  }
  auto reading = std::make_shared<ReadFile>(ReadFile{std::move(file)});
  zip_source_t* source = MakeReadSource(reading, identity.sizeBytes);
  zip_error_t error;
  zip_error_init(&error);
  ZipPointer zip(zip_open_from_source(source, ZIP_RDONLY, &error));
  if (!zip) {
    zip_source_free(source);
    Error failure = reading->failure ? SystemFailure(Task::Open, path, reading->failure)
                                     : LibraryFailure(Task::Open, path, &error);
    zip_error_fini(&error);
    return failure;
  }
  std::unique_ptr<Archive> archive(
      new Archive(std::move(zip), std::move(reading), path, mostObjectBytes));
  Status status = archive->ReadDirectory(identity.sizeBytes);
  if (status) status = archive->CheckReadme();
  if (!status) return std::move(status).error();
  return archive;
}

std::error_code Archive::TakeReadFailure() const noexcept {
  return std::exchange(m_file->failure, std::error_code());
}

Error Archive::Failure(zip_error_t* error) const {
  const std::error_code failure = TakeReadFailure();
  return failure ? SystemFailure(Task::Read, m_path, failure)
                 : LibraryFailure(Task::Read, m_path, error);
}

Status Archive::ReadDirectory(std::uint64_t sizeBytes) {
  std::uint64_t used = 0;
  const auto count = static_cast<std::uint64_t>(zip_get_num_entries(m_zip.get(), 0));
  for (std::uint64_t index = 0; index < count; ++index) {
    zip_stat_t entry;
    if (zip_stat_index(m_zip.get(), index, ZIP_FL_ENC_RAW, &entry) < 0) {
      return LibraryFailure(Task::Open, m_path, zip_get_error(m_zip.get()));
    }
    const std::string_view text = entry.name;
    // Entries that share bytes let a small file expand without bound.
    if (entry.comp_size > sizeBytes) return Damage("an entry is larger than the file");
    used += entry.comp_size + text.size() + kHeaderBytes;
    if (used > sizeBytes) return Damage("its entries overlap");
    EntryName name = ParseEntryName(text);
    if (name.kind == EntryKind::Object) m_objects.push_back({name.digits, index});
    if (name.kind == EntryKind::Branch) m_branches.push_back({std::move(name.name), index});
    if (name.kind == EntryKind::Value) m_values.push_back({std::move(name.name), index});
    if (name.kind != EntryKind::Readme) continue;
    if (m_readme) return Damage("two entries have the name README.txt");
    m_readme = index;
  }
  return SortObjects();
}

Status Archive::SortObjects() {
  const auto before = [](const ObjectPlace& a, const ObjectPlace& b) {
    return a.digits < b.digits;
  };
  if (!std::is_sorted(m_objects.begin(), m_objects.end(), before)) {
    std::sort(m_objects.begin(), m_objects.end(), before);
  }
  const auto twice = std::adjacent_find(
      m_objects.begin(), m_objects.end(),
      [](const ObjectPlace& a, const ObjectPlace& b) { return a.digits == b.digits; });
  if (twice == m_objects.end()) return {};
  // Programs don't agree which of two entries of one name counts.
  return Damage("two entries have the object " + std::string(twice->digits));
}

Status Archive::CheckReadme() {
  if (!m_readme) return Damage("it isn't a document");
  const Result<Buffer> read = ReadEntry(*m_readme);
  if (!read) return read.error();
  const std::string text = BytesFromBuffer(*read);
  const std::optional<Readme> readme = ParseReadme(text);
  if (!readme) return Damage("its README.txt isn't that of a document");
  if (readme->format != kFormat) {
    return MakeError(ErrorCode::Unsupported, Task::Open, m_path, "it was saved by a newer version");
  }
  m_digest = readme->digest;
  return {};
}

const Archive::ObjectPlace* Archive::Find(std::string_view digits) const noexcept {
  const auto found = std::lower_bound(
      m_objects.begin(), m_objects.end(), digits,
      [](const ObjectPlace& object, std::string_view wanted) { return object.digits < wanted; });
  return found == m_objects.end() || found->digits != digits ? nullptr : &*found;
}

std::uint64_t Archive::SizeOf(const ObjectPlace& object) const noexcept {
  zip_stat_t entry;
  return zip_stat_index(m_zip.get(), object.entry, ZIP_FL_ENC_RAW, &entry) < 0 ? 0 : entry.size;
}

Result<Buffer> Archive::Read(const ObjectPlace& object) const {
  Result<Buffer> bytes = ReadEntry(object.entry);
  if (bytes) return bytes;
  Error error = std::move(bytes).error();
  error.subject = ToUtf8(IdOf(object.digits).View());
  return error;
}

Status Archive::CheckEntry(const zip_stat_t& entry) const {
  if (entry.encryption_method != ZIP_EM_NONE) {
    return MakeError(ErrorCode::Unsupported, Task::Read, m_path, "an entry is encrypted");
  }
  if (entry.comp_method != ZIP_CM_STORE && entry.comp_method != ZIP_CM_DEFLATE) {
    return MakeError(ErrorCode::Unsupported, Task::Read, m_path,
                     "an entry is compressed by a method other than deflate");
  }
  const std::uint64_t most =
      entry.comp_method == ZIP_CM_STORE ? entry.comp_size : entry.comp_size * kMostExpansion;
  if (entry.size > most || (entry.comp_method == ZIP_CM_STORE && entry.size != most)) {
    return Damage("the size of an entry is wrong");
  }
  if (entry.size > m_mostObjectBytes) {
    return MakeError(ErrorCode::Unsupported, Task::Read, m_path,
                     "an entry is larger than the options allow");
  }
  return {};
}

Result<Buffer> Archive::ReadEntry(std::uint64_t index) const {
  zip_stat_t entry;
  if (zip_stat_index(m_zip.get(), index, ZIP_FL_ENC_RAW, &entry) < 0) {
    return Failure(zip_get_error(m_zip.get()));
  }
  Buffer bytes;
  Status status = CheckEntry(entry);
  if (status) status = ReadInto(index, entry.size, bytes);
  if (!status) return std::move(status).error();
  return bytes;
}

Status Archive::ReadInto(std::uint64_t index, std::uint64_t size, Buffer& bytes) const {
  const std::unique_ptr<zip_file_t, CloseEntry> file(zip_fopen_index(m_zip.get(), index, 0));
  if (!file) return Failure(zip_get_error(m_zip.get()));
  while (bytes.GetSize() < size) {
    const std::uint64_t wanted = std::min(size - bytes.GetSize(), kPieceBytes);
    std::byte* target = nullptr;
    const Buffer piece = Buffer::Allocate(wanted, target);
    for (std::uint64_t have = 0; have < wanted;) {
      const zip_int64_t count = zip_fread(file.get(), target + have, wanted - have);
      if (count < 0) return Failure(zip_file_get_error(file.get()));
      if (count == 0) return Damage("an entry is shorter than its size");
      have += static_cast<std::uint64_t>(count);
    }
    bytes.Append(piece);
  }
  // The checksum is compared at the end of the entry.
  char more = 0;
  const zip_int64_t count = zip_fread(file.get(), &more, 1);
  if (count < 0) return Failure(zip_file_get_error(file.get()));
  return count == 0 ? Status() : Status(Damage("an entry is longer than its size"));
}

/// Reads as many heads as it can. The error is that of the first that can't be read.
Status Archive::ReadHeads(DocumentState& state) const {
  Status status;
  for (const TextPlace& place : m_branches) {
    const Result<Buffer> read = ReadEntry(place.entry);
    std::string text = read ? BytesFromBuffer(*read) : std::string();
    if (text.ends_with('\n')) text.pop_back();
    const Id id = read ? Id(ToWide(text)) : Id();
    if (IsObjectId(id)) {
      if (!state.heads.emplace(place.name, id).second && status) {
        status = Damage("two entries have the branch \"" + place.name + '"');
      }
    } else if (status) {
      status = read ? Status(Damage("the head of the branch \"" + place.name + "\" is damaged"))
                    : Status(read.error());
    }
  }
  return status;
}

Result<DocumentState> Archive::ReadState() const {
  DocumentState state;
  Status status = ReadHeads(state);
  for (const TextPlace& place : m_values) {
    const Result<Buffer> read = ReadEntry(place.entry);
    if (read) {
      state.values.emplace(place.name, BytesFromBuffer(*read));
    } else if (status) {
      status = read.error();
    }
  }
  if (status && DigestOf(state) != m_digest) {
    status = Damage("its branches and values don't fit their digest");
  }
  if (status) return state;
  Error error = std::move(status).error();
  error.heads = ListHeads(state.heads);
  return error;
}

}  // namespace TalVcs::Kit::Zip
