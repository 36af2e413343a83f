#pragma once

#include <talvcs/storage/object_reader.h>

#include <cstdint>
#include <stdexcept>
#include <unordered_map>
#include <vector>

namespace TalVcs::Testing {

/// A store of packed objects in a map, which counts its reads and can fail one of them.
class MapObjectReader : public IObjectReader {
 public:
  void Read(std::span<const Id> wanted, ReadAhead ahead, std::uint64_t history,
            Sink sink) override {
    ++calls;
    if (failAfter != 0 && --failAfter == 0) throw std::runtime_error("the store failed");
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
  }

  void Put(const Id& id, const Buffer& packed) { objects[id] = packed; }

  std::unordered_map<Id, Buffer> objects;
  std::vector<Id> asked;
  std::uint64_t calls = 0;
  ReadAhead lastAhead = ReadAhead::None;
  std::uint64_t lastHistory = 0;
  /// The n-th call from now on throws; 0 for none.
  std::uint64_t failAfter = 0;
};

}  // namespace TalVcs::Testing
