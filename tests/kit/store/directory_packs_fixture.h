#pragma once

#include <gtest/gtest.h>
#include <kit/store/directory_object_store.h>
#include <tests/kit/temporary_folder.h>
#include <tests/support/bytes.h>
#include <tests/support/text.h>

#include <chrono>
#include <cstddef>
#include <filesystem>
#include <random>
#include <span>
#include <string>
#include <vector>

namespace TalVcs::Kit {

inline constexpr std::size_t kMegabyte = std::size_t{1} << 20;

inline const DirectoryObjectStoreOptions kQuick{.durable = false,
                                                .busyTimeout = std::chrono::milliseconds(0)};

inline StoredObject Packed(const std::string& text, const Id& previous = Id()) {
  const Buffer packed = Testing::BufferOf("blob " + text);
  return {Id(packed), packed, previous};
}

inline std::string NoiseOf(std::size_t size, unsigned seed) {
  std::mt19937 random(seed);
  std::string noise(size, '\0');
  for (char& byte : noise) byte = static_cast<char>(random());
  return noise;
}

/// Returns the packed form, or the name of the error.
inline std::string Read(IObjectStore& store, const Id& id) {
  std::string read;
  store
      .Read({&id, 1},
            [&](const Id&, Result<Buffer> packed) {
              read = packed ? Testing::Bytes(*packed) : ToString(packed.error().code);
            })
      .value();
  return read;
}

inline std::vector<Id> ListOf(IObjectStore& store) {
  std::vector<Id> listed;
  const auto take = [&listed](std::span<const Id> ids) {
    listed.insert(listed.end(), ids.begin(), ids.end());
    return true;
  };
  store.List(take).value();
  return listed;
}

/// A folder for a store, and steps that show what is in it.
class DirectoryPacks : public testing::Test {
 protected:
  DirectoryObjectStore Open() {
    return DirectoryObjectStore::Open(m_folder.Path(), kQuick).value();
  }
  DirectoryObjectStore Create() {
    return DirectoryObjectStore::Create(m_folder.Path(), kQuick).value();
  }
  std::filesystem::path File(const std::string& name) const {
    return m_folder.Path() / ".vcs" / name;
  }
  std::filesystem::path FileOf(const Id& id) const {
    const std::string digits = Testing::Ascii(id);
    return File("objects/" + digits.substr(0, 2) + "/" + digits.substr(2));
  }
  std::vector<std::string> Names(const std::string& ending) const {
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(File("packs"))) {
      const std::string name = entry.path().filename().string();
      if (name.ends_with(ending)) names.push_back(name);
    }
    return names;
  }

  /// Writes the objects and moves "master" to the last of them.
  static void Save(IObjectStore& store, const std::vector<StoredObject>& objects) {
    store.Write(objects).value();
    const std::vector<Head> heads = store.Heads().value();
    const Id before = heads.empty() ? Id() : heads.front().id;
    store.MoveHeads({{HeadMove{"master", before, objects.back().id}}}).value();
  }
  static Result<RemovedObjects> RemoveAllBut(IObjectStore& store, const std::vector<Id>& kept) {
    return store.RemoveUnmarked([&kept](std::span<const Head>) { return Result(kept); });
  }

  Testing::TemporaryFolder m_folder;
};

}  // namespace TalVcs::Kit
