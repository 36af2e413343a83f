#include <stores/zip/internal/pending_objects.h>

#include <algorithm>
#include <utility>

namespace TalVcs::Kit::Zip {

namespace {

// Each is an open file.
constexpr std::size_t kMostArchives = 16;

}  // namespace

bool PendingObjects::Has(std::string_view digits) const noexcept {
  return SizeOf(digits).has_value();
}

std::optional<std::uint64_t> PendingObjects::SizeOf(std::string_view digits) const noexcept {
  const auto found = m_objects.find(digits);
  if (found != m_objects.end()) return found->second.GetSize();
  for (const std::unique_ptr<Archive>& archive : m_archives) {
    if (const Archive::ObjectPlace* place = archive->Find(digits)) return archive->SizeOf(*place);
  }
  return std::nullopt;
}

std::optional<Result<Buffer>> PendingObjects::Read(std::string_view digits) const {
  const auto found = m_objects.find(digits);
  if (found != m_objects.end()) return found->second;
  for (const std::unique_ptr<Archive>& archive : m_archives) {
    if (const Archive::ObjectPlace* place = archive->Find(digits)) return archive->Read(*place);
  }
  return std::nullopt;
}

Status PendingObjects::Add(const Digits& digits, const Buffer& packed, const DocumentFile& file) {
  m_objects.emplace(std::string(digits.data(), digits.size()), packed);
  m_sizeBytes += packed.GetSize();
  return m_sizeBytes > file.Options().bufferSizeBytes ? Spill(file) : Status();
}

/// Puts what is in memory into an archive; with too many archives, their objects too.
Status PendingObjects::Spill(const DocumentFile& file) {
  Result<File> target = file.MakeNameless();
  if (!target) return std::move(target).error();
  const bool joins = m_archives.size() == kMostArchives;
  {
    ArchiveWriter writer(*target, file.Name());
    Status status = writer.Add(std::string(kReadme), ReadmeOf(DocumentState()));
    for (const std::unique_ptr<Archive>& archive : m_archives) {
      for (const Archive::ObjectPlace& place : archive->Objects()) {
        if (joins && status) status = writer.AddCopy(*archive, place.entry);
      }
    }
    for (auto at = m_objects.begin(); status && at != m_objects.end(); ++at) {
      status = writer.Add(ObjectEntry(at->first, at->second), at->second);
    }
    if (status) status = writer.Finish();
    if (!status) return status;
  }
  Result<std::unique_ptr<Archive>> archive =
      Archive::Open(*std::move(target), file.Name(), file.Options().mostObjectBytes);
  if (!archive) return std::move(archive).error();
  if (joins) m_archives.clear();
  m_archives.push_back(*std::move(archive));
  m_objects.clear();
  m_sizeBytes = 0;
  return {};
}

void PendingObjects::Clear() noexcept {
  m_objects.clear();
  m_archives.clear();
  m_sizeBytes = 0;
}

}  // namespace TalVcs::Kit::Zip
