#include <talvcs/objects/internal/blob_loader.h>

#include <utility>

namespace TalVcs {

cow_ptr<Blob> BlobLoader::Load(const Id& id) {
  if (cow_ptr<Blob> stored = m_target.FindBlob(id)) return stored;
  const auto known = m_results.find(id);
  if (known != m_results.end()) return m_target.Store(known->second);
  StreamIO stream = m_getter(id);
  cow_ptr<Blob> blob = Blob::Deserialize(stream);
  if (blob) blob = m_target.Store(std::move(blob));
  if (!m_target.Returns(blob, id)) m_results.emplace(id, blob);
  return blob;
}

void BlobLoader::ReadOnly(const Id& id) {
  if (m_target.FindBlob(id) || m_results.contains(id)) return;
  StreamIO stream = m_getter(id);
  m_results.emplace(id, Blob::Deserialize(stream));
}

}  // namespace TalVcs
