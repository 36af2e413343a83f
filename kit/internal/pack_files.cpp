#include <kit/internal/little_endian.h>
#include <kit/internal/pack_files.h>
#include <kit/internal/pack_record.h>

#include <algorithm>
#include <charconv>
#include <cstddef>

namespace TalVcs::Kit {

namespace {

constexpr std::string_view kPackEnding = ".pack";
constexpr std::string_view kIndexEnding = ".index";
constexpr std::size_t kPackDigits = 8;
constexpr std::size_t kPlaceDigits = 16;
constexpr std::size_t kMostOpenFiles = 32;

std::string Digits(std::uint64_t number, std::size_t count) {
  constexpr std::string_view kDigits = "0123456789abcdef";
  std::string digits(count, '0');
  for (; count > 0 && number != 0; number >>= 4) digits[--count] = kDigits[number & 0xF];
  return digits;
}

/// Reads as many lower-case hexadecimal digits as `count` says, which are all of `digits`.
std::optional<std::uint64_t> NumberFromDigits(std::string_view digits, std::size_t count) {
  if (digits.size() != count) return std::nullopt;
  std::uint64_t number = 0;
  const auto [end, error] =
      std::from_chars(digits.data(), digits.data() + digits.size(), number, 16);
  const bool good = error == std::errc() && end == digits.data() + digits.size();
  return good && Digits(number, count) == digits ? std::optional(number) : std::nullopt;
}

std::optional<std::uint32_t> PackFromName(std::string_view name) {
  if (!name.ends_with(kPackEnding)) return std::nullopt;
  name.remove_suffix(kPackEnding.size());
  const std::optional<std::uint64_t> number = NumberFromDigits(name, kPackDigits);
  return number ? std::optional(static_cast<std::uint32_t>(*number)) : std::nullopt;
}

std::optional<PackFiles::IndexName> IndexFromName(std::string_view name) {
  if (!name.ends_with(kIndexEnding)) return std::nullopt;
  name.remove_suffix(kIndexEnding.size());
  if (name.size() != 2 * kPlaceDigits + 1 || name[kPlaceDigits] != '-') return std::nullopt;
  const auto from = NumberFromDigits(name.substr(0, kPlaceDigits), kPlaceDigits);
  const auto to = NumberFromDigits(name.substr(kPlaceDigits + 1), kPlaceDigits);
  if (!from || !to) return std::nullopt;
  return PackFiles::IndexName{PlaceFromNumber(*from), PlaceFromNumber(*to)};
}

Buffer BufferOf(std::string_view bytes) {
  Buffer buffer;
  buffer.Append(bytes.data(), bytes.size());
  return buffer;
}

}  // namespace

PackFiles::Path PackFiles::PathOf(std::uint32_t number) const {
  return m_path / (Digits(number, kPackDigits) + std::string(kPackEnding));
}

PackFiles::Path PackFiles::PathOf(const IndexName& name) const {
  return m_path / (Digits(NumberFromPlace(name.from), kPlaceDigits) + '-' +
                   Digits(NumberFromPlace(name.to), kPlaceDigits) + std::string(kIndexEnding));
}

Error PackFiles::Failure(std::string_view what, const Path& path, const std::error_code& error) {
  m_folder.Fail(what, path, error);
  return m_folder.LastFailure();
}

Error PackFiles::Damage(std::uint32_t number, std::string_view why) {
  m_folder.Fail("cannot read", PathOf(number), why);
  return m_folder.LastFailure();
}

Result<OpenedFile*> PackFiles::Open(std::uint32_t number) {
  const auto found = m_opened.find(number);
  if (found != m_opened.end()) return found->second.get();
  if (m_opened.size() >= kMostOpenFiles) m_opened.clear();
  std::unique_ptr<OpenedFile> file;
  const Path path = PathOf(number);
  const std::error_code error = m_folder.Files().OpenFile(path, file);
  if (error == std::errc::no_such_file_or_directory) return Damage(number, "the pack is missing");
  if (error) return Failure("cannot read", path, error);
  return (m_opened[number] = std::move(file)).get();
}

Result<std::uint64_t> PackFiles::SizeOf(std::uint32_t number) {
  const Result<OpenedFile*> file = Open(number);
  if (!file) return file.error();
  std::uint64_t size = 0;
  const std::error_code error = (*file)->GetSize(size);
  if (error) return Failure("cannot read", PathOf(number), error);
  return size;
}

Result<std::optional<std::uint32_t>> PackFiles::CheckBefore(const PackPlace& place) {
  const Result<OpenedFile*> file = Open(place.pack);
  if (!file) return file.error();
  char bytes[kPackCheckSize];
  std::size_t count = 0;
  const std::uint64_t from = place.offset - std::min<std::uint64_t>(place.offset, sizeof(bytes));
  const std::error_code error = (*file)->ReadAt(from, bytes, sizeof(bytes), count);
  if (error) return Failure("cannot read", PathOf(place.pack), error);
  if (count != sizeof(bytes)) return std::optional<std::uint32_t>();
  return std::optional(static_cast<std::uint32_t>(NumberOf({bytes, sizeof(bytes)})));
}

Status PackFiles::Create(std::uint32_t number, std::string_view bytes) {
  const Path path = PathOf(number);
  m_opened.erase(number);
  const Buffer content = BufferOf(bytes);
  std::error_code error = m_folder.Files().CreateFile(path, content);
  if (error == std::errc::no_such_file_or_directory) {
    if (!m_folder.MakeFolder(m_path)) return m_folder.LastFailure();
    error = m_folder.Files().CreateFile(path, content);
  }
  if (error == std::errc::file_exists) {
    // A process that ended before the journal got the number left it.
    m_folder.Files().RemoveFile(path);
    error = m_folder.Files().CreateFile(path, content);
  }
  if (!error) return {};
  Error failure = Failure("cannot write", path, error);
  m_folder.Files().RemoveFile(path);
  return failure;
}

Status PackFiles::Append(std::uint32_t number, std::uint64_t end, std::string_view bytes) {
  const Result<std::uint64_t> size = SizeOf(number);
  if (!size) return size.error();
  const Path path = PathOf(number);
  std::error_code error;
  if (*size > end) error = m_folder.Files().TruncateFile(path, end);
  if (error) return Failure("cannot write", path, error);
  error = m_folder.Files().AppendFile(path, BufferOf(bytes));
  if (!error) return {};
  Error failure = Failure("cannot write", path, error);
  CutOff(number, end);
  return failure;
}

void PackFiles::CutOff(std::uint32_t number, std::uint64_t end) {
  m_folder.Files().TruncateFile(PathOf(number), end);
}

Status PackFiles::Sync(std::uint32_t number) {
  if (!m_folder.IsDurable()) return {};
  const Path path = PathOf(number);
  const std::error_code error = m_folder.Files().SyncFile(path);
  return error ? Status(Failure("cannot sync", path, error)) : Status();
}

Status PackFiles::SyncNames() {
  if (!m_folder.IsDurable()) return {};
  const bool done = m_folder.SyncFolders({m_path, m_folder.StorePath()});
  return done ? Status() : Status(m_folder.LastFailure());
}

void PackFiles::Remove(std::uint32_t number) {
  m_opened.erase(number);
  m_folder.Files().RemoveFile(PathOf(number));
}

Result<std::vector<std::uint32_t>> PackFiles::List() {
  std::vector<std::string> names;
  const std::error_code error = m_folder.Files().ListFolder(m_path, names);
  if (error && error != std::errc::no_such_file_or_directory) {
    return Failure("cannot list", m_path, error);
  }
  std::vector<std::uint32_t> numbers;
  for (const std::string& name : names) {
    const std::optional<std::uint32_t> number = PackFromName(name);
    if (number) numbers.push_back(*number);
  }
  return numbers;
}

std::vector<PackFiles::IndexName> PackFiles::ListIndexes() {
  std::vector<std::string> names;
  std::vector<IndexName> indexes;
  if (m_folder.Files().ListFolder(m_path, names)) return indexes;
  for (const std::string& name : names) {
    const std::optional<IndexName> index = IndexFromName(name);
    if (index) indexes.push_back(*index);
  }
  return indexes;
}

std::unique_ptr<PackIndex> PackFiles::OpenIndex(const IndexName& name) {
  std::unique_ptr<OpenedFile> file;
  if (m_folder.Files().OpenFile(PathOf(name), file)) return nullptr;
  std::unique_ptr<PackIndex> index = PackIndex::Open(std::move(file));
  const bool fits = index && index->GetRange().from == name.from && index->GetRange().to == name.to;
  return fits ? std::move(index) : nullptr;
}

bool PackFiles::WriteIndex(const IndexName& name, std::string_view bytes) {
  const Path path = PathOf(name);
  m_folder.Files().RemoveFile(path);
  if (!m_folder.Files().CreateFile(path, BufferOf(bytes))) return true;
  m_folder.Files().RemoveFile(path);
  return false;
}

void PackFiles::RemoveIndex(const IndexName& name) { m_folder.Files().RemoveFile(PathOf(name)); }

}  // namespace TalVcs::Kit
