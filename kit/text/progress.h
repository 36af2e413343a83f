#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string_view>

namespace TalVcs::Kit {

/// How far a long operation has come.
struct ProgressStep {
  /// What is being done, such as "read"; valid during the call.
  std::string_view phase;
  /// Items done in this phase.
  std::uint64_t done = 0;
  /// Items of this phase, if known.
  std::optional<std::uint64_t> total;
  /// Bytes read or written in this phase.
  std::uint64_t sizeBytes = 0;
};

/// Called on the caller's thread, at the beginning and end of each phase, and in between at most
/// about fifty times a second. Returning false cancels the operation, which then fails with
/// `ErrorCode::Cancelled` and leaves everything as it was. Empty: no progress, never cancelled.
using Progress = std::function<bool(const ProgressStep&)>;

}  // namespace TalVcs::Kit
