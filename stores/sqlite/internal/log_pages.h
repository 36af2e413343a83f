#pragma once

#include <stores/sqlite/internal/side_file.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>

namespace TalVcs::Kit::Sqlite {

inline constexpr std::size_t kLogHeaderBytes = 32;
inline constexpr std::size_t kFrameHeaderBytes = 24;

/// The pages that whole transactions of a write-ahead log have.
struct LogPages {
  std::size_t pageBytes = 0;  // 0 for bytes that are no log
  std::uint32_t count = 0;    // of the pages of the file
  std::uint64_t transactions = 0;
  std::uint64_t frames = 0;  // of the whole transactions
  SideFile::Bytes header;    // has other salts after the log was begun anew
  /// The numbers of pages with the places of their newest bytes in the log. A crafted log can have
  /// the number 0, and numbers above `count`.
  std::map<std::uint32_t, std::uint64_t> places;
};

/// Fills the bytes from a position of a log on; returns false if there are fewer.
using ReadLog = std::function<bool(std::uint64_t position, SideFile::Bytes& bytes)>;

/// Returns what SQLite would take of a log. Cost: reads it once.
LogPages ReadLogPages(const ReadLog& read);

}  // namespace TalVcs::Kit::Sqlite
