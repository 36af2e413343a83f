#pragma once

#include <kit/store/passing_store.h>
#include <stores/sqlite/sqlite_store.h>
#include <tests/stores/sqlite/raw_file.h>

#include <filesystem>
#include <memory>

namespace TalVcs::Testing {

/// A connection of a host, with a store attached to it.
class HostStore final : public Kit::PassingStore {
 public:
  HostStore(const std::filesystem::path& path, const Kit::SqliteOptions& options)
      : HostStore(std::make_shared<Connection>(path, options)) {}

 private:
  struct Connection {
    Connection(const std::filesystem::path& path, const Kit::SqliteOptions& options)
        : file(path), store(Attach(file, options)) {}

    RawFile file;
    Kit::SqliteStore store;
  };

  explicit HostStore(const std::shared_ptr<Connection>& connection)
      : PassingStore(std::shared_ptr<Kit::IObjectStore>(connection, &connection->store)) {}

  static Kit::SqliteStore Attach(RawFile& file, const Kit::SqliteOptions& options) {
    file.Execute("PRAGMA synchronous = OFF");
    return Kit::SqliteStore::Attach(file.Connection(), "history_", options).value();
  }
};

}  // namespace TalVcs::Testing
