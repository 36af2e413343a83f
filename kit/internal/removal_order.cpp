#include <kit/internal/removal_order.h>
#include <talvcs/persistence/packed_object.h>

#include <cstddef>
#include <map>
#include <utility>

// A topological order of the graph among the objects: the work list has those that no object names
// which is still to come.

namespace TalVcs::Kit {

namespace {

using Indices = std::map<ObjectKey, std::size_t>;

/// Returns the places of the listed objects that `packed` names.
std::vector<std::size_t> NamedBy(const Buffer& packed, const Indices& indices) {
  struct Found {
    const Indices& indices;
    std::vector<std::size_t> places;
  } found{indices, {}};
  const auto take = [](void* target, const PackedReference& reference) {
    auto& [known, places] = *static_cast<Found*>(target);
    const std::optional<ObjectKey> key = KeyFromId(reference.id);
    const auto place = key ? known.find(*key) : known.end();
    if (place != known.end()) places.push_back(place->second);
  };
  VisitReferences(packed, {&found, take});
  return std::move(found.places);
}

}  // namespace

void SortForRemoval(std::vector<ObjectKey>& keys, ObjectFiles& objects) {
  Indices indices;
  for (std::size_t index = 0; index < keys.size(); ++index) indices.emplace(keys[index], index);
  std::vector<std::vector<std::size_t>> named(keys.size());
  std::vector<std::size_t> naming(keys.size());
  for (std::size_t index = 0; index < keys.size(); ++index) {
    const Result<Buffer> packed = objects.Read(keys[index]);
    if (packed) named[index] = NamedBy(*packed, indices);
    for (const std::size_t below : named[index]) ++naming[below];
  }
  std::vector<std::size_t> free;
  for (std::size_t index = 0; index < keys.size(); ++index) {
    if (naming[index] == 0) free.push_back(index);
  }
  std::vector<ObjectKey> sorted;
  sorted.reserve(keys.size());
  while (!free.empty()) {
    const std::size_t index = free.back();
    free.pop_back();
    sorted.push_back(keys[index]);
    for (const std::size_t below : named[index]) {
      if (--naming[below] == 0) free.push_back(below);
    }
  }
  // Ids are digests, so only forged objects can name each other.
  for (std::size_t index = 0; index < keys.size(); ++index) {
    if (naming[index] != 0) sorted.push_back(keys[index]);
  }
  keys = std::move(sorted);
}

}  // namespace TalVcs::Kit
