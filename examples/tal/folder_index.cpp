// index  := "TALINDEX" version:u32 count:u32 tree:32 entry{count} digest:32
// entry  := kind:u8 verdict:u8 path-size:u32 path id:32 stat
// stat   := kind:u8 size:u64 modified:i64 changed:i64 inode:u64
// digest := the SHA-256 of all that comes before it
//
// Numbers are little-endian. Entries are sorted by path.

#include "folder_index.h"

#include "changes.h"
#include "file_handle.h"
#include "store_files.h"

#include <talvcs/foundation/helpers.h>

#include <algorithm>
#include <cstring>
#include <fstream>

namespace fs = std::filesystem;

namespace Tal {
namespace {

constexpr const char* kIndexName = "tal-index";
constexpr const char* kLockName = "tal-lock";
constexpr std::string_view kMagic = "TALINDEX";
constexpr std::uint32_t kVersion = 1;
constexpr std::size_t kEntryBytes = 71;  // without the path

using RawId = FolderIndex::RawId;
using File = FolderIndex::File;

class Writer {
 public:
  explicit Writer(std::size_t expectedBytes) { m_bytes.reserve(expectedBytes); }

  void Number(std::uint64_t value, std::size_t size) {
    std::array<char, 8> bytes{};
    for (std::size_t i = 0; i < size; ++i) bytes[i] = static_cast<char>(value >> (8 * i));
    m_bytes.append(bytes.data(), size);
  }
  void Text(std::string_view text) { m_bytes += text; }
  void Id(const RawId& id) { m_bytes.append(id.begin(), id.end()); }
  std::string Take() { return std::move(m_bytes); }

 private:
  std::string m_bytes;
};

/// Takes fields off the front. After one that isn't there whole, everything is zero.
class Reader {
 public:
  explicit Reader(std::string_view bytes) : m_rest(bytes) {}

  std::string_view Text(std::size_t size) {
    if (size > m_rest.size()) {
      m_failed = true;
      return {};
    }
    const std::string_view text = m_rest.substr(0, size);
    m_rest.remove_prefix(size);
    return text;
  }
  std::uint64_t Number(std::size_t size) {
    std::uint64_t value = 0;
    const std::string_view bytes = Text(size);
    for (std::size_t i = bytes.size(); i-- > 0;)
      value = value << 8U | static_cast<unsigned char>(bytes[i]);
    return value;
  }
  RawId Id() {
    RawId id{};
    const std::string_view bytes = Text(id.size());
    std::memcpy(id.data(), bytes.data(), bytes.size());
    return id;
  }
  bool IsAtEnd() const noexcept { return !m_failed && m_rest.empty(); }
  bool HasFailed() const noexcept { return m_failed; }

 private:
  std::string_view m_rest;
  bool m_failed = false;
};

RawId DigestOf(std::string_view bytes) {
  return FolderIndex::ToRaw(
      TalVcs::Id(TalVcs::Helpers::ComputeEncodedSHA256Hash(bytes.data(), bytes.size())));
}

bool ByPath(const File& file, const std::string& path) { return file.path < path; }

/// Returns the file at a path of sorted ones, or null.
template <class Files>
auto* FindIn(Files& files, const std::string& path) {
  const auto found = std::lower_bound(files.begin(), files.end(), path, ByPath);
  return found != files.end() && found->path == path ? &*found : nullptr;
}

}  // namespace

RawId FolderIndex::ToRaw(const TalVcs::Id& id) {
  RawId raw{};
  const auto digit = [](char c) {
    return static_cast<unsigned>(c >= 'a' ? c - 'a' + 10 : c - '0') & 15U;
  };
  const std::string text = ToUtf8(id.View());
  for (std::size_t i = 0; i < raw.size() && 2 * raw.size() == text.size(); ++i)
    raw[i] = static_cast<unsigned char>(digit(text[2 * i]) << 4U | digit(text[2 * i + 1]));
  return raw;
}

TalVcs::Id FolderIndex::FromRaw(const RawId& id) {
  constexpr std::string_view kDigits = "0123456789abcdef";
  std::string text;
  for (const unsigned char byte : id) text += {kDigits[byte >> 4U], kDigits[byte & 15U]};
  return TalVcs::Id(ToWide(text));
}

FolderIndex FolderIndex::Load(const fs::path& storePath) {
  FolderIndex index;
  const std::string bytes = ReadSmallFile(storePath / kIndexName);
  if (!index.Parse(bytes)) index = FolderIndex();
  return index;
}

bool FolderIndex::Parse(std::string_view bytes) {
  constexpr std::size_t kDigestBytes = sizeof(RawId);
  if (bytes.size() < kDigestBytes) return false;
  const std::string_view body = bytes.substr(0, bytes.size() - kDigestBytes);
  Reader reader(body);
  if (reader.Text(kMagic.size()) != kMagic || reader.Number(4) != kVersion) return false;
  if (DigestOf(body) != Reader(bytes.substr(body.size())).Id()) return false;
  const std::uint64_t count = reader.Number(4);
  m_tree = reader.Id();
  m_files.reserve(std::min<std::uint64_t>(count, body.size() / kEntryBytes));
  for (std::uint64_t i = 0; i < count && !reader.HasFailed(); ++i) {
    File& file = m_files.emplace_back();
    file.kind = static_cast<FileKind>(reader.Number(1) % 3);
    file.verdict = static_cast<Verdict>(reader.Number(1) % 3);
    file.path = reader.Text(reader.Number(4));
    file.id = reader.Id();
    file.stat.kind = static_cast<FileKind>(reader.Number(1) % 3);
    file.stat.sizeBytes = reader.Number(8);
    file.stat.modified = static_cast<std::int64_t>(reader.Number(8));
    file.stat.changed = static_cast<std::int64_t>(reader.Number(8));
    file.stat.inode = reader.Number(8);
  }
  return reader.IsAtEnd();
}

std::string FolderIndex::Serialise() const {
  std::size_t size = kMagic.size() + 2 * 4 + 2 * sizeof(RawId);
  for (const File& file : m_files) size += kEntryBytes + file.path.size();
  Writer writer(size);
  writer.Text(kMagic);
  writer.Number(kVersion, 4);
  writer.Number(m_files.size(), 4);
  writer.Id(m_tree);
  for (const File& file : m_files) {
    writer.Number(static_cast<std::uint64_t>(file.kind), 1);
    writer.Number(static_cast<std::uint64_t>(file.verdict), 1);
    writer.Number(file.path.size(), 4);
    writer.Text(file.path);
    writer.Id(file.id);
    writer.Number(static_cast<std::uint64_t>(file.stat.kind), 1);
    writer.Number(file.stat.sizeBytes, 8);
    writer.Number(static_cast<std::uint64_t>(file.stat.modified), 8);
    writer.Number(static_cast<std::uint64_t>(file.stat.changed), 8);
    writer.Number(file.stat.inode, 8);
  }
  return writer.Take();
}

void FolderIndex::Save(const fs::path& storePath) const {
  const fs::path target = storePath / kIndexName;
  // One name for all, so that killed commands leave no more than one file. Of two that write it at
  // once, the digest refuses what isn't whole.
  const fs::path parked = storePath / (std::string(kIndexName) + ".new");
  std::string bytes = Serialise();
  const RawId digest = DigestOf(bytes);
  bytes.append(digest.begin(), digest.end());
  std::ofstream file(parked, std::ios::binary);
  file.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
  file.close();
  std::error_code error;
  if (file) fs::rename(parked, target, error);
  if (!file || error) fs::remove(parked, error);
}

void FolderIndex::MoveEntry(File& file, const RawId& id, FileKind kind) const {
  const bool is_equal = file.id == id && file.kind == kind;
  // What was the former version's file can't be the new one's; of another file nothing is known.
  if (!is_equal)
    file.verdict = file.verdict == Verdict::Same ? Verdict::Different : Verdict::Unknown;
  file.id = id;
  file.kind = kind;
}

void FolderIndex::MoveTo(const FileTree& before, const FileTree& tree) {
  if (IsOf(tree)) return;
  const bool knows_before = IsOf(before);
  const std::vector<Change> changes =
      CompareTrees(knows_before ? before : FileTree(), tree, Moves::Ignore);
  std::vector<File> files;
  files.reserve(m_files.size() + changes.size());
  auto known = m_files.begin();
  const auto keep_up_to = [&](auto is_end) {
    for (; known != m_files.end() && !is_end(*known); ++known) {
      if (knows_before) files.push_back(std::move(*known));
    }
  };
  for (const Change& change : changes) {
    keep_up_to([&](const File& file) { return file.path >= change.path; });
    const bool is_known = known != m_files.end() && known->path == change.path;
    if (change.kind != Change::Kind::Removed) {
      File& file = files.emplace_back();
      const RawId id = ToRaw(change.after);
      if (is_known) {
        file = std::move(*known);
        MoveEntry(file, id, change.kindAfter);
      } else {
        file.path = change.path;
        file.id = id;
        file.kind = change.kindAfter;
      }
    }
    if (is_known) ++known;
  }
  keep_up_to([](const File&) { return false; });
  m_files = std::move(files);
  m_tree = ToRaw(tree.GetId());
}

const File* FolderIndex::Find(const std::string& path) const { return FindIn(m_files, path); }

File* FolderIndex::Find(const std::string& path) { return FindIn(m_files, path); }

std::optional<bool> FolderIndex::Holds(const std::string& path, const FileStat& stat,
                                       const TalVcs::Id& id) const {
  const File* known = Find(path);
  if (known == nullptr || known->verdict != Verdict::Same || known->stat != stat)
    return std::nullopt;
  return known->id == ToRaw(id);
}

bool FolderIndex::IsTracked(const std::string& path) const {
  const auto has = [&](const std::string& wanted, std::string_view prefix) {
    const auto found = std::lower_bound(m_files.begin(), m_files.end(), wanted, ByPath);
    return found != m_files.end() && found->path.starts_with(prefix) &&
           (found->path.size() == wanted.size() || wanted.ends_with('/'));
  };
  return has(path, path) || has(path + "/", path + "/");
}

void SetVerdict(File& file, FolderIndex::Verdict verdict, const FileStat& stat,
                std::int64_t looked) {
  const bool is_settled = stat.modified < looked && stat.changed < looked;
  file.verdict = is_settled ? verdict : FolderIndex::Verdict::Unknown;
  file.stat = stat;
}

std::int64_t FileSystemTime(const fs::path& storePath) {
  const FileHandle file(open((storePath / kLockName).c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0666));
  struct stat status {};
  if (!file.IsOpen() || futimens(file.Get(), nullptr) != 0 || fstat(file.Get(), &status) != 0)
    return 0;
  return StatOf(status).modified;
}

}  // namespace Tal
