#pragma once

#include <kit/store/memory_object_store.h>
#include <stores/encryption/encrypted_store.h>
#include <tests/support/bytes.h>

#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace TalVcs::Testing {

/// The least that a password may cost.
inline constexpr Kit::PasswordCost kCheap{8192, 1};

inline std::shared_ptr<Kit::EncryptedStore> CreateOver(std::shared_ptr<Kit::IObjectStore> store) {
  return std::make_shared<Kit::EncryptedStore>(
      Kit::EncryptedStore::Create(std::move(store), "password", kCheap).value());
}
inline std::shared_ptr<Kit::EncryptedStore> OpenOver(std::shared_ptr<Kit::IObjectStore> store) {
  return std::make_shared<Kit::EncryptedStore>(
      Kit::EncryptedStore::Open(std::move(store), "password").value());
}

/// Returns the bytes of an object, or the name of the error's code.
inline std::string ReadOne(Kit::IObjectStore& store, const Id& id) {
  std::string shown = "not passed";
  const Kit::Status status = store.Read({&id, 1}, [&](const Id&, Kit::Result<Buffer> packed) {
    shown = packed ? Bytes(*packed) : ToString(packed.error().code);
  });
  return status ? shown : std::string("failed: ") + ToString(status.error().code);
}

}  // namespace TalVcs::Testing
