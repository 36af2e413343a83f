#include <talvcs/persistence/serializer.h>

#include <talvcs/foundation/helpers.h>
#include <talvcs/foundation/internal/exact_type.h>
#include <talvcs/foundation/internal/prefetch.h>
#include <talvcs/objects/internal/tree_access.h>
#include <talvcs/persistence/internal/packed_writer.h>
#include <talvcs/storage/on_demand_storage.h>

// object := packed                       the packed form of a commit, a blob or a tree
// ref    := id                           64 hexadecimal characters, no line end

namespace TalVcs {

namespace {

template <class T>
Buffer Share(const T& object) {
  return object.BuildPackedData();
}
const Buffer& Share(const Buffer& bytes) { return bytes; }

// A host's class would see the call before its turn.
void PrefetchContent(const Blob& blob) {
  if (TalUtils::IsExactly<Blob>(blob)) blob.GetData().Prefetch();
}
void PrefetchContent(const Tree& tree) {
  TalUtils::PrefetchRange(TreeAccess::Entries(tree), TalUtils::kPrefetchedHead);
}
void PrefetchContent(const Commit&) {}

/// Prefetches the entries of a table that the save reads next: first the objects, a few steps later
/// what they point to.
template <class Table>
class Lookahead {
 public:
  explicit Lookahead(const Table& table)
      : m_object(table.begin()), m_content(table.begin()), m_end(table.end()) {
    for (int step = 0; step < kStepsToObject && m_object != m_end; ++step) {
      FetchObject();
      if (step >= kStepsToObject - kStepsToContent) FetchContent();
    }
  }
  void Step() {
    if (m_object != m_end) FetchObject();
    if (m_content != m_end) FetchContent();
  }

 private:
  using Iterator = typename Table::const_iterator;
  static constexpr int kStepsToObject = 8;
  static constexpr int kStepsToContent = 4;

  void FetchObject() {
    TalUtils::Prefetch(m_object->second.get());
    TalUtils::Prefetch(m_object->first.View().text);
    ++m_object;
  }
  void FetchContent() {
    if (m_content->second) PrefetchContent(*m_content->second);
    ++m_content;
  }

  Iterator m_object;
  Iterator m_content;
  Iterator m_end;
};

}  // namespace

Serializer::Serializer(IBlobWriter* blobWriter, const TalStringT<WideChar>& rootPath)
    : writer(blobWriter), pathBuilder(rootPath) {}

Serializer::~Serializer() = default;

bool Serializer::Serialize(const IObjectsStorage* storage) {
  if (OnDemandStorage::From(storage) != nullptr) return false;
  CleanUpStorage();
  if (storage == nullptr) return true;
  bool complete = SerializeObjects(storage->GetCommits());
  complete = SerializeObjects(storage->GetBlobs()) && complete;
  complete = SerializeObjects(storage->GetTrees()) && complete;
  return SerializeRefs(storage->GetRefs()) && complete;
}

void Serializer::CleanUpStorage() {
  if (writer != nullptr) writer->RemoveStorage(pathBuilder.GetStoragePath());
}

template <class Table>
bool Serializer::SerializeObjects(const Table& objects) {
  bool complete = true;
  Lookahead<Table> lookahead(objects);
  for (const auto& [id, object] : objects) {
    lookahead.Step();
    if (!object) continue;
    complete = BuildStream(*object, pathBuilder.GetObjectW(id)) && complete;
  }
  return complete;
}

bool Serializer::SerializeRefs(const RefTable& refs) {
  bool complete = true;
  for (const auto& [name, commit] : refs) complete = SerializeRef(name, commit) && complete;
  return complete;
}

bool Serializer::SerializeRef(const TalStringT<WideChar>& name, const cow_ptr<Commit>& commit) {
  if (!commit) return true;
  Buffer text;
  Helpers::AppendToBuffer(text, commit->GetId().View());
  return BuildStream(text, pathBuilder.GetBranch(name));
}

// The packed forms are made for the stream and not kept in the objects.
template <class Content>
bool Serializer::BuildStream(const Content& content, const TalStringT<WideChar>& path) const {
  if (writer == nullptr) return false;
  Stream stream = writer->CreateBlobStream(path);
  IStream* const target = stream;
  if (target == nullptr || target->SharesBytes()) {
    stream.Write(Share(content));
  } else {
    PackedWriter packed(*target);
    packed.Write(content);
    packed.Flush();
  }
  stream.SeekToBegin();
  return writer->CommitBlobStream(path, stream);
}

}  // namespace TalVcs
