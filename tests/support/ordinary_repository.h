#pragma once

#include <talvcs/repository/repository.h>
#include <talvcs/storage/mem_objects_storage.h>

#include <memory>

namespace TalVcs::Testing {

/// A repository with all objects in its tables, as a `Serializer` needs, whichever storage the
/// tests run with.
inline Repository NewOrdinaryRepository() {
  return Repository(std::make_unique<MemObjectsStorage>());
}

}  // namespace TalVcs::Testing
