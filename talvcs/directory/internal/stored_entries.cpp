#include <talvcs/directory/internal/stored_entries.h>

#include <talvcs/directory/internal/previous_entries.h>
#include <talvcs/format/internal/tree_format.h>

#include <cstddef>

// Most directories of a history are another state with one entry changed. Where the records go on
// with the very bytes of a chunk of that state, or of an entry, these serve again: they take no
// memory a second time, and what they have in memory needn't be read.

namespace TalVcs {

namespace {

TalStringViewT<char> AsView(std::string_view bytes) noexcept {
  return {bytes.data(), static_cast<int>(bytes.size())};
}

/// Takes over what the state and the records have next in common.
void TakeCommonEntries(TreeReader& reader, PreviousEntries& previous, TreeEntriesBuilder& builder) {
  previous.SkipThrough(reader.LastName());
  while (!previous.AtEnd()) {
    const TalStringViewT<char> rest = AsView(reader.Rest());
    if (EntryChunk* chunk = previous.ChunkThatBegins(rest)) {
      builder.Append(*chunk);
      reader.Skip(chunk->Records().size(), chunk->Name(chunk->Count() - 1));
      previous.SkipChunk();
    } else if (const auto slot = previous.EntryThatBegins(rest)) {
      builder.Append(*slot);
      reader.Skip(static_cast<std::size_t>(slot->record.length), slot->name);
      previous.SkipEntry();
    } else {
      return;
    }
  }
}

}  // namespace

std::optional<TreeEntries::Ptr> RestoreEntries(std::string_view records,
                                               const TreeEntries* previous, ObjectSource& source,
                                               ObjectSource::Place place) {
  TreeReader reader(records);
  PreviousEntries previous_entries(previous);
  TreeEntriesBuilder builder;
  const cow_ptr<Object> absent;
  TreeRecord record;
  for (;;) {
    TakeCommonEntries(reader, previous_entries, builder);
    if (!reader.Next(record)) break;
    builder.Append({record.name, record.kind, &absent, AsView(record.bytes)});
  }
  if (reader.HasFailed()) return std::nullopt;
  TreeEntries::Ptr list = builder.Finish(nullptr);
  if (list) list->SetSource(source, place);
  return list;
}

}  // namespace TalVcs
