#include <kit/store/read_history.h>
#include <kit/text.h>

#include <optional>
#include <string>
#include <utility>

namespace TalVcs::Kit {

namespace {

/// Returns the parent that a packed commit names, or nothing if there is none.
std::optional<Id> ParentOf(const Buffer& packed) {
  const std::string text = BytesFromBuffer(packed);
  if (!text.starts_with("commit ")) return std::nullopt;
  const std::size_t tree = text.find("\0tree ", 0, 6);
  const std::size_t line = tree == std::string::npos ? tree : text.find('\n', tree);
  if (line == std::string::npos || text.compare(line, 8, "\nparent ") != 0) return std::nullopt;
  Id parent(ToWide(text.substr(line + 8, 64)));
  return IsObjectId(parent) ? std::optional(std::move(parent)) : std::nullopt;
}

}  // namespace

Status ReadHistoryByParents(IObjectStore& store, const Id& id, std::uint64_t most,
                            const ReadSink& sink) {
  std::optional<Id> next = id;
  for (std::uint64_t count = 0; next && count < most; ++count) {
    const Id current = *std::exchange(next, std::nullopt);
    Status status = store.Read({&current, 1}, [&](const Id& found, Result<Buffer> packed) {
      if (packed) next = ParentOf(*packed);
      sink(found, std::move(packed));
    });
    if (!status) return status;
  }
  return {};
}

}  // namespace TalVcs::Kit
