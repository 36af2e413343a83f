#pragma once

#include <kit/internal/file_system.h>
#include <kit/internal/store_state.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <system_error>

namespace TalVcs::Kit {

/// What every pack begins with.
inline constexpr std::string_view kPackTitle = "TalVcs pack 1\n";

/// The sizes in bytes of the parts of a record before and after the encoded form.
inline constexpr std::size_t kPackHeadSize = 36;
inline constexpr std::size_t kPackCheckSize = 4;
/// The most bytes of an encoded form in a record.
inline constexpr std::size_t kMostPackedBytes = (std::size_t{1} << 24) - 1;

/// The head of a record: the object, and the size of its encoded form.
struct PackHead {
  ObjectKey key{};
  std::size_t encodedBytes = 0;

  std::size_t RecordBytes() const noexcept { return kPackHeadSize + encodedBytes + kPackCheckSize; }
};

/// Appends the record of an object whose encoded form has `kMostPackedBytes` at most.
void AppendPackRecord(std::string& bytes, const ObjectKey& key, std::string_view encoded);

/// Reads the head at the start of `bytes`; nothing if they begin no record.
std::optional<PackHead> ReadPackHead(std::string_view bytes);

/// Returns whether `record`, all of whose bytes are there, has the check that it must have.
bool IsWholePackRecord(std::string_view record);

/// A record that a scan has found. The views are valid until the next one is searched.
struct ScannedRecord {
  ObjectKey key{};
  std::uint64_t position = 0;
  std::string_view bytes;
  /// False for a record whose check is wrong, although another one or the end follows it.
  bool isWhole = false;

  std::string_view Encoded() const {
    return bytes.substr(kPackHeadSize, bytes.size() - kPackHeadSize - kPackCheckSize);
  }
};

/// Reads the records of a pack in their order, in a few large reads.
///
/// Up to `kept` the pack consists of whole records, unless it is damaged: there the scan looks for
/// the next record. Beyond, an incomplete record is the rest of a write that never ended, and ends
/// the scan.
class PackScanner {
 public:
  /// Scans `file`, which outlives the scanner, from the record at `from` to `end`.
  PackScanner(OpenedFile& file, std::uint64_t from, std::uint64_t end, std::uint64_t kept)
      : m_file(file), m_position(from), m_end(end), m_kept(std::min(kept, end)) {}

  /// Returns the next record, nothing at the end or after an error.
  std::optional<ScannedRecord> Next();

  /// Why reading failed, if it did.
  const std::error_code& Error() const noexcept { return m_error; }
  /// Where the next record would begin.
  std::uint64_t Position() const noexcept { return m_position; }
  /// True if bytes below `kept` were skipped that are no record.
  bool HasSkipped() const noexcept { return m_skipped; }

 private:
  std::string_view Window(std::uint64_t position, std::size_t size);
  bool BeginsRecord(std::uint64_t position);
  bool SkipDamage();

  OpenedFile& m_file;
  std::uint64_t m_position;
  std::uint64_t m_end;
  std::uint64_t m_kept;
  bool m_skipped = false;
  std::error_code m_error;
  std::string m_window;
  std::uint64_t m_windowFrom = 0;
  std::uint64_t m_summedBytes = 0;
};

}  // namespace TalVcs::Kit
