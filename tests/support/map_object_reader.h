#pragma once

#include <talvcs/storage/object_reader.h>
#include <tests/support/bytes.h>

#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

namespace TalVcs::Testing {

/// What a reader of the tests throws.
class StoreFailure : public std::runtime_error {
 public:
  StoreFailure() : std::runtime_error("the store failed") {}
};

/// The objects that the packed form of a tree or a commit names, each with true for a tree.
inline std::vector<std::pair<Id, bool>> ObjectsNamedBy(const Buffer& packed) {
  constexpr std::size_t kIdLength = 64;
  const std::string bytes = Bytes(packed);
  const std::size_t start = bytes.find('\0') + 1;
  std::vector<std::pair<Id, bool>> named;
  const auto add = [&](std::size_t at, bool tree) {
    named.emplace_back(Id(Wide(bytes.substr(at, kIdLength))), tree);
  };
  if (bytes.starts_with("commit ")) {
    constexpr std::size_t kTree = 5;
    constexpr std::size_t kParent = 7;
    const std::size_t line = bytes.find('\n', start);
    if (line == start + kTree + kIdLength) add(start + kTree, true);
    if (bytes.compare(line + 1, kParent, "parent ") == 0) add(line + 1 + kParent, false);
  } else if (bytes.starts_with("tree ")) {
    for (std::size_t at = start; at < bytes.size();) {
      const std::size_t zero = bytes.find('\0', at);
      add(zero + 1, bytes.compare(at, 6, "40000 ") == 0);
      at = zero + 1 + kIdLength;
    }
  }
  return named;
}

/// A store of packed objects in a map, which counts its reads and can fail one of them.
class MapObjectReader : public IObjectReader {
 public:
  void Read(std::span<const Id> wanted, ReadAhead ahead, std::uint64_t history,
            Sink sink) override {
    ++calls;
    if (failAfter != 0 && --failAfter == 0) {
      if (!failsWith) throw StoreFailure();
      for (const Id& id : wanted) sink(id, nullptr, *failsWith);
      return;
    }
    lastAhead = ahead;
    lastHistory = history;
    for (const Id& id : wanted) {
      asked.push_back(id);
      const auto found = objects.find(id);
      if (found == objects.end()) {
        sink(id, nullptr, ObjectProblem::Missing);
      } else {
        sink(id, &found->second, ObjectProblem::Missing);
      }
    }
    if (!passesAhead) return;
    if (ahead == ReadAhead::Subtrees) PassSubtrees(wanted, sink);
    if (ahead == ReadAhead::History) PassHistory(wanted.front(), history, sink);
  }

  void Put(const Id& id, const Buffer& packed) { objects[id] = packed; }

  std::unordered_map<Id, Buffer> objects;
  std::vector<Id> asked;
  std::uint64_t calls = 0;
  ReadAhead lastAhead = ReadAhead::None;
  std::uint64_t lastHistory = 0;
  /// The n-th call from now on fails; 0 for none. It throws, unless a reason is set.
  std::uint64_t failAfter = 0;
  std::optional<ObjectProblem> failsWith;
  /// Passes on what `ReadAhead` allows.
  bool passesAhead = false;

 private:
  bool Pass(const Id& id, const Sink& sink) {
    const auto found = objects.find(id);
    if (found == objects.end()) return false;
    sink(id, &found->second, ObjectProblem::Missing);
    return true;
  }

  void PassSubtrees(std::span<const Id> wanted, const Sink& sink) {
    for (const Id& id : wanted) {
      const auto found = objects.find(id);
      if (found == objects.end()) continue;
      for (const auto& [named, tree] : ObjectsNamedBy(found->second)) {
        if (tree) Pass(named, sink);
      }
    }
  }

  // The wanted commit was passed already. A commit names its parent last.
  void PassHistory(Id at, std::uint64_t history, const Sink& sink) {
    for (std::uint64_t count = 1; count < history; ++count) {
      const auto found = objects.find(at);
      if (found == objects.end()) return;
      const auto named = ObjectsNamedBy(found->second);
      if (named.empty() || named.back().second) return;
      at = named.back().first;
      if (!Pass(at, sink)) return;
    }
  }
};

}  // namespace TalVcs::Testing
