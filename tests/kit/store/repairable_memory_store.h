#pragma once

#include <kit/store/fault_injection_store.h>
#include <kit/store/passing_store.h>

#include <span>

namespace TalVcs::Testing {

/// A store over one with faults, which replaces objects by faults of its own.
class RepairableMemoryStore final : public Kit::PassingStore {
 public:
  explicit RepairableMemoryStore(Kit::FaultInjectionStore& store)
      : PassingStore(static_cast<Kit::IObjectStore&>(store)), m_store(store) {}

  Kit::Status Replace(std::span<const Kit::StoredObject> objects) override {
    for (const Kit::StoredObject& object : objects) {
      m_store.ReplaceObject(object.id, object.packed);
    }
    return {};
  }

 private:
  Kit::FaultInjectionStore& m_store;
};

}  // namespace TalVcs::Testing
