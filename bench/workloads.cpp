#include <bench/workloads.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <unordered_set>
#include <utility>

namespace TalVcs::Bench {
namespace {

constexpr std::uint64_t kSeedShuffle = 0x5348554646u;
constexpr std::uint64_t kSeedHistory = 0x484953544Fu;
constexpr std::uint64_t kSeedDiff = 0x44494646u;
constexpr std::uint64_t kSeedMerge = 0x4D45524745u;
constexpr std::uint64_t kSeedGarbage = 0x47415242u;

std::uint64_t ContentSeed(Family family, std::uint64_t index, std::uint64_t version) {
  return static_cast<std::uint64_t>(family) * 0xA0761D6478BD642Fu ^ index * 0xE7037ED1A0B428DBu ^
         version * 0x8EBC6AF09C88C6E3u;
}

std::string Numbered(const char* format, std::uint32_t number) {
  char text[32];
  const int length = std::snprintf(text, sizeof(text), format, number);
  return std::string(text, static_cast<std::size_t>(length));
}

/// Draws numbers below `limit` until `count` different ones are there, in drawing order.
std::vector<std::uint32_t> DrawDistinct(std::uint32_t limit, std::uint32_t count, Random& random) {
  std::vector<std::uint32_t> drawn;
  std::unordered_set<std::uint32_t> seen;
  while (drawn.size() < count) {
    const auto number = static_cast<std::uint32_t>(random.Below(limit));
    if (seen.insert(number).second) drawn.push_back(number);
  }
  return drawn;
}

HistoryPlan PlanChanges(std::uint32_t files, std::uint32_t commits, std::uint64_t seed,
                        Family family) {
  Random random(seed);
  HistoryPlan plan(commits);
  for (std::uint32_t commit = 0; commit < commits; ++commit) {
    for (const std::uint32_t index : DrawDistinct(files, kChangesPerCommit, random)) {
      plan[commit].push_back({index, family, commit + 1});
    }
  }
  return plan;
}

}  // namespace

std::uint64_t Random::Next() {
  std::uint64_t z = (m_state += 0x9E3779B97F4A7C15u);
  z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9u;
  z = (z ^ (z >> 27)) * 0x94D049BB133111EBu;
  return z ^ (z >> 31);
}

void Random::Fill(char* bytes, std::size_t size) {
  while (size > 0) {
    const std::uint64_t word = Next();
    char little[sizeof(word)];
    for (std::size_t i = 0; i < sizeof(word); ++i) {
      little[i] = static_cast<char>(static_cast<unsigned char>(word >> (8 * i)));
    }
    const std::size_t part = size < sizeof(word) ? size : sizeof(word);
    std::memcpy(bytes, little, part);
    bytes += part;
    size -= part;
  }
}

std::string Content(Family family, std::uint64_t index, std::uint64_t version) {
  Random random(ContentSeed(family, index, version));
  std::string content(512 + random.Below(1025), '\0');
  random.Fill(content.data(), content.size());
  return content;
}

std::string Content(const Change& change) {
  return Content(change.family, change.index, change.version);
}

std::vector<std::string> Contents(std::uint32_t count) {
  std::vector<std::string> contents;
  for (std::uint32_t i = 0; i < count; ++i) contents.push_back(Content(Family::Base, i, 0));
  return contents;
}

std::vector<std::vector<std::string>> Contents(const HistoryPlan& plan) {
  std::vector<std::vector<std::string>> contents;
  for (const std::vector<Change>& commit : plan) {
    contents.emplace_back();
    for (const Change& change : commit) contents.back().push_back(Content(change));
  }
  return contents;
}

std::string HashContent(std::size_t size) {
  Random random(ContentSeed(Family::Hash, size, 0));
  std::string content(size, '\0');
  random.Fill(content.data(), content.size());
  return content;
}

std::string LeafName(std::uint32_t index) { return Numbered("f%06u", index); }
std::string MiddleName(std::uint32_t directory) { return Numbered("b%03u", directory % 10); }
std::string TopName(std::uint32_t directory) { return Numbered("a%03u", directory / 10); }

std::string Path(std::uint32_t index) {
  const std::uint32_t directory = index / kFilesPerLeaf;
  return TopName(directory) + '/' + MiddleName(directory) + '/' + LeafName(index);
}

std::vector<std::uint32_t> InOrder(std::uint32_t count) {
  std::vector<std::uint32_t> numbers(count);
  for (std::uint32_t i = 0; i < count; ++i) numbers[i] = i;
  return numbers;
}

std::vector<std::uint32_t> Shuffled(std::uint32_t count) {
  std::vector<std::uint32_t> numbers = InOrder(count);
  Random random(kSeedShuffle);
  for (std::uint32_t i = count; i > 1; --i) std::swap(numbers[i - 1], numbers[random.Below(i)]);
  return numbers;
}

HistoryPlan PlanHistory(std::uint32_t files, std::uint32_t commits) {
  return PlanChanges(files, commits, kSeedHistory, Family::History);
}

HistoryPlan PlanDroppedBranch(std::uint32_t files, std::uint32_t commits) {
  return PlanChanges(files, commits, kSeedGarbage, Family::Garbage);
}

DiffPlan PlanDiff(std::uint32_t files) {
  Random random(kSeedDiff);
  const std::vector<std::uint32_t> drawn = DrawDistinct(files, 100, random);
  return {{drawn.begin(), drawn.begin() + 80},
          {drawn.begin() + 80, drawn.begin() + 90},
          {drawn.begin() + 90, drawn.end()}};
}

MergePlan PlanMerge(std::uint32_t files) {
  Random random(kSeedMerge);
  const std::vector<std::uint32_t> drawn = DrawDistinct(files, 190, random);
  return {{drawn.begin(), drawn.begin() + 90},
          {drawn.begin() + 90, drawn.begin() + 180},
          {drawn.begin() + 180, drawn.end()}};
}

std::string Message(std::uint32_t number) { return Numbered("commit %06u", number); }

void Fingerprint::Add(const void* bytes, std::size_t size) {
  const auto* const byte = static_cast<const unsigned char*>(bytes);
  for (std::size_t i = 0; i < size; ++i) m_value = (m_value ^ byte[i]) * 0x100000001B3u;
}

std::uint64_t FingerprintOf(const DiffPlan& plan) {
  std::vector<std::pair<std::string, char>> entries;
  for (const std::uint32_t i : plan.modified) entries.emplace_back(Path(i), 'M');
  for (const std::uint32_t i : plan.deleted) entries.emplace_back(Path(i), 'D');
  for (const std::uint32_t i : plan.added) entries.emplace_back(Path(i) + 'x', 'A');
  std::sort(entries.begin(), entries.end());
  Fingerprint fingerprint;
  for (const auto& [path, status] : entries) {
    fingerprint.Add(&status, 1);
    fingerprint.Add(path);
  }
  return fingerprint.Value();
}

}  // namespace TalVcs::Bench
