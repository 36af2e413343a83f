#include <kit/text.h>
#include <stores/zip/internal/archive_writer.h>
#include <stores/zip/internal/deflate_source.h>
#include <stores/zip/internal/entry_names.h>
#include <stores/zip/internal/file_source.h>
#include <stores/zip/internal/zip_error.h>

#include <algorithm>
#include <new>
#include <utility>

namespace TalVcs::Kit::Zip {
namespace {

// The first of January 1980, the earliest day that the format has, at midnight.
constexpr zip_uint16_t kDay = (0 << 9) | (1 << 5) | 1;
constexpr zip_uint16_t kTime = 0;
// A plain file that its owner may change and everyone may read.
constexpr zip_uint32_t kAttributes = zip_uint32_t{0100644} << 16;

}  // namespace

ArchiveWriter::ArchiveWriter(File& file, std::filesystem::path path) : m_path(std::move(path)) {
  zip_source_t* target = MakeWriteTarget(file);
  m_zip.reset(zip_open_from_source(target, ZIP_CREATE | ZIP_TRUNCATE, nullptr));
  if (m_zip) return;
  zip_source_free(target);
  throw std::bad_alloc();
}

Error ArchiveWriter::Failure() const {
  for (const Archive* source : m_sources) {
    if (const std::error_code failure = source->TakeReadFailure()) {
      return SystemFailure(Task::Save, m_path, failure);
    }
  }
  return LibraryFailure(Task::Save, m_path, zip_get_error(m_zip.get()));
}

Status ArchiveWriter::AddSource(const std::string& name, zip_source_t* source, bool isStored) {
  if (name.size() > kMostNameBytes) {
    zip_source_free(source);
    return MakeError(ErrorCode::Unsupported, Task::Save, m_path, "a name is too long for it");
  }
  const zip_int64_t index = zip_file_add(m_zip.get(), name.c_str(), source, ZIP_FL_ENC_UTF_8);
  if (index < 0) {
    zip_source_free(source);
    return Failure();
  }
  const auto entry = static_cast<zip_uint64_t>(index);
  // A source that is deflated already is copied as it is.
  if ((isStored && zip_set_file_compression(m_zip.get(), entry, ZIP_CM_STORE, 0) < 0) ||
      zip_file_set_dostime(m_zip.get(), entry, kTime, kDay, 0) < 0 ||
      zip_file_set_external_attributes(m_zip.get(), entry, 0, ZIP_OPSYS_UNIX, kAttributes) < 0) {
    return Failure();
  }
  return {};
}

Status ArchiveWriter::Add(const std::string& name, const Buffer& bytes) {
  if (zip_source_t* source = MakeDeflateSource(bytes)) return AddSource(name, source, false);
  return AddSource(name, MakeStoredSource(bytes), true);
}

Status ArchiveWriter::Add(const std::string& name, std::string_view bytes) {
  Buffer buffer;
  buffer.Append(bytes.data(), bytes.size());
  return Add(name, buffer);
}

Status ArchiveWriter::AddCopy(const Archive& from, std::uint64_t entry) {
  zip_stat_t status;
  if (zip_stat_index(from.Handle(), entry, ZIP_FL_ENC_RAW, &status) < 0) {
    return LibraryFailure(Task::Save, m_path, zip_get_error(from.Handle()));
  }
  if (std::find(m_sources.begin(), m_sources.end(), &from) == m_sources.end()) {
    m_sources.push_back(&from);
  }
  // No exception may come between the making of the source and its use.
  const std::string name = status.name;
  zip_source_t* source = zip_source_zip(m_zip.get(), from.Handle(), entry, 0, 0, -1);
  if (source == nullptr) return Failure();
  return AddSource(name, source, status.comp_method == ZIP_CM_STORE);
}

Status ArchiveWriter::Finish() {
  if (zip_close(m_zip.get()) < 0) return Failure();
  m_zip.release();
  return {};
}

}  // namespace TalVcs::Kit::Zip
