#include <talvcs/directory/internal/stored_entries.h>

#include <talvcs/directory/internal/former_entries.h>
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
void TakeCommonEntries(TreeReader& reader, FormerEntries& former, TreeEntriesBuilder& builder) {
  former.SkipThrough(reader.LastName());
  while (!former.AtEnd()) {
    const TalStringViewT<char> rest = AsView(reader.Rest());
    if (EntryChunk* chunk = former.ChunkThatBegins(rest)) {
      builder.Append(*chunk);
      reader.Skip(chunk->Records().size(), chunk->Name(chunk->Count() - 1));
      former.SkipChunk();
    } else if (const auto slot = former.EntryThatBegins(rest)) {
      builder.Append(*slot);
      reader.Skip(static_cast<std::size_t>(slot->record.length), slot->name);
      former.SkipEntry();
    } else {
      return;
    }
  }
}

}  // namespace

std::optional<TreeEntries*> RestoreEntries(std::string_view records, const TreeEntries* former,
                                           ObjectSource& source, ObjectSource::Place place) {
  TreeReader reader(records);
  FormerEntries former_entries(former);
  TreeEntriesBuilder builder;
  const cow_ptr<Object> absent;
  TreeRecord record;
  for (;;) {
    TakeCommonEntries(reader, former_entries, builder);
    if (!reader.Next(record)) break;
    builder.Append({record.name, record.kind, &absent, AsView(record.bytes)});
  }
  if (reader.HasFailed()) return std::nullopt;
  TreeEntries* list = builder.Finish(nullptr);
  if (list != nullptr) list->SetSource(source, place);
  return list;
}

}  // namespace TalVcs
