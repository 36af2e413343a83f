#pragma once

#include <kit/store/object_store.h>

#include <filesystem>
#include <memory>

namespace Tal {

/// A store in a folder whose journal is missing or damaged: all objects that are there, no branch.
///
/// The store itself is only read. A journal of its own, in a folder that is removed at the end,
/// names every pack.
class BareStore {
 public:
  /// Works in `scratch`, which must not exist. Throws `Failure` if the folder `top` has neither
  /// packs nor files of objects, or `scratch` can't be written.
  BareStore(const std::filesystem::path& top, std::filesystem::path scratch);
  BareStore(const BareStore&) = delete;
  BareStore& operator=(const BareStore&) = delete;
  ~BareStore();

  const std::shared_ptr<TalVcs::Kit::IObjectStore>& Get() const noexcept { return m_store; }

 private:
  std::filesystem::path m_scratch;
  std::shared_ptr<TalVcs::Kit::IObjectStore> m_store;
};

}  // namespace Tal
