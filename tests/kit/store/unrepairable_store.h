#pragma once

#include <kit/store/memory_object_store.h>
#include <kit/store/passing_store.h>

#include <memory>
#include <span>
#include <utility>

namespace TalVcs::Testing {

/// A store that can't replace objects, over one in memory.
class UnrepairableStore final : public Kit::PassingStore {
 public:
  explicit UnrepairableStore(
      std::shared_ptr<Kit::IObjectStore> store = std::make_shared<Kit::MemoryObjectStore>())
      : PassingStore(std::move(store)) {}

  Kit::Status Replace(std::span<const Kit::StoredObject>) override {
    return Kit::Error{
        Kit::ErrorCode::Unsupported, "the store can't replace objects", {}, {}, {}, {}};
  }
};

}  // namespace TalVcs::Testing
