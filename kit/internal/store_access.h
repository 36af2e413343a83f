#pragma once

#include <kit/directory_store.h>
#include <kit/internal/file_system.h>
#include <kit/store/directory_object_store.h>

#include <filesystem>
#include <memory>

namespace TalVcs::Kit {

/// Makes stores that work through a file system of the caller, so that tests can let calls fail.
struct StoreAccess {
  static DirectoryStore Make(const std::filesystem::path& folder, DirectoryStoreOptions options,
                             std::shared_ptr<FileSystem> files);
  static Result<DirectoryObjectStore> Open(const std::filesystem::path& folder,
                                           DirectoryObjectStoreOptions options,
                                           std::shared_ptr<FileSystem> files);
  static Result<DirectoryObjectStore> Create(const std::filesystem::path& folder,
                                             DirectoryObjectStoreOptions options,
                                             std::shared_ptr<FileSystem> files);
};

}  // namespace TalVcs::Kit
