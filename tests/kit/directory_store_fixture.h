#pragma once

#include <gtest/gtest.h>
#include <kit/directory_store.h>
#include <tests/kit/saved_states.h>
#include <tests/kit/temporary_folder.h>

#include <filesystem>
#include <string>

namespace TalVcs::Kit {

using namespace TalVcs::Testing;
using Testing::Describe;
namespace fs = std::filesystem;

inline DirectoryStoreOptions NotDurable() {
  DirectoryStoreOptions options;
  options.durable = false;
  return options;
}

/// A folder for a store, and two repositories of which one follows the other.
class DirectoryStoreTest : public testing::Test {
 protected:
  DirectoryStore Open() { return DirectoryStore(m_folder.Path(), NotDurable()); }

  void SaveAndCommit(DirectoryStore& store, Repository& repository) {
    ASSERT_TRUE(Save(repository, store)) << store.LastError();
    ASSERT_TRUE(store.Commit()) << store.LastError();
  }

  fs::path File(const std::string& name) const { return m_folder.Path() / ".vcs" / name; }
  fs::path ObjectFile(const IObject& object) const {
    const std::string id = IdOf(object);
    return File("objects") / id.substr(0, 2) / id.substr(2);
  }
  int ObjectFiles() const { return CountFiles(File("objects")); }

  TemporaryFolder m_folder;
  Repository m_old = OldState();
  Repository m_new = NewState();
};

}  // namespace TalVcs::Kit
