#include <kit/store/directory_object_store.h>
#include <kit/workspace/workspace.h>
#include <sys/resource.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

// What a workspace costs in a long history: pages of shapes, of which each checkpoint changes one.
// Each run is a process of its own and prints its figures as a line of JSON; workspaces.py makes
// tables of them.

namespace TalVcs::Bench {
namespace {

constexpr int kPages = 10;
constexpr int kShapesOfPage = 20;
constexpr int kSamples = 41;

std::string PathOf(int number) {
  const int shape = number % (kPages * kShapesOfPage);
  return "pages/" + std::to_string(shape / kShapesOfPage) + "/shape-" + std::to_string(shape);
}

/// Returns the 170 bytes of a shape.
std::string ShapeOf(int number) {
  std::string text = R"({"kind": "house", "x": )" + std::to_string(number) + R"(, "text": ")";
  text.resize(168, 'x');
  return text + "\"}";
}

Kit::Workspace Open(const std::filesystem::path& folder) {
  const Kit::DirectoryObjectStoreOptions options{.durable = false};
  Kit::Result<Kit::DirectoryObjectStore> store = Kit::DirectoryObjectStore::Open(folder, options);
  if (!store) store = Kit::DirectoryObjectStore::Create(folder, options);
  return Kit::Workspace::Open(std::move(store), {.author = "Ada"}).value();
}

std::chrono::sys_seconds TimeOf(int number) {
  return std::chrono::sys_seconds(std::chrono::seconds(1'000'000'000 + number));
}

/// Makes a checkpoint. The first one has all shapes.
void Checkpoint(Kit::Workspace& workspace, int number) {
  if (number == 0) {
    for (int i = 1; i < kPages * kShapesOfPage; ++i) {
      workspace.Write(PathOf(i), ShapeOf(i)).value();
    }
  }
  workspace.Write(PathOf(number), ShapeOf(number)).value();
  workspace.Checkpoint("Move a shape", "", TimeOf(number)).value();
}

std::uint64_t BytesBelow(const std::filesystem::path& folder) {
  std::uint64_t bytes = 0;
  for (const auto& entry : std::filesystem::recursive_directory_iterator(folder)) {
    if (entry.is_regular_file()) bytes += entry.file_size();
  }
  return bytes;
}

double PeakMemory() {
  rusage usage;
  getrusage(RUSAGE_SELF, &usage);
  return static_cast<double>(usage.ru_maxrss) * 1024;
}

template <class Act>
double MedianMicroseconds(Act act) {
  std::vector<double> times;
  for (int i = 0; i < kSamples; ++i) {
    const auto start = std::chrono::steady_clock::now();
    act(i);
    const std::chrono::duration<double, std::micro> elapsed =
        std::chrono::steady_clock::now() - start;
    times.push_back(elapsed.count());
  }
  std::ranges::sort(times);
  return times[times.size() / 2];
}

/// make FOLDER COUNT: a history of checkpoints.
void Make(const std::filesystem::path& folder, int count) {
  Kit::Workspace workspace = Open(folder);
  for (int i = 0; i < count; ++i) Checkpoint(workspace, i);
  std::printf("{\"folder_bytes\": %.0f}\n", static_cast<double>(BytesBelow(folder)));
}

/// times FOLDER COUNT: what the next operations cost after so many checkpoints.
void Times(const std::filesystem::path& folder, int count) {
  const double open = MedianMicroseconds([&](int) { Open(folder); });
  Kit::Workspace workspace = Open(folder);
  const double save = MedianMicroseconds([&](int i) { Checkpoint(workspace, count + i); });
  const double undo = MedianMicroseconds([&](int) { workspace.Undo().value(); });
  const double log = MedianMicroseconds([&](int) { workspace.Log({.limit = 20}).value(); });
  std::printf("{\"open_us\": %.1f, \"save_us\": %.1f, \"undo_us\": %.1f, \"log_us\": %.1f}\n", open,
              save, undo, log);
}

/// keep FOLDER COUNT BYTES: so many checkpoints, of which a rule keeps the newest under so many
/// bytes. It is applied once in 2,500 checkpoints.
void Keep(const std::filesystem::path& folder, int count, std::uint64_t most_bytes) {
  constexpr int kBetween = 2500;
  Kit::Workspace workspace = Open(folder);
  std::uint64_t folder_bytes = 0;
  double forget_ms = 0;
  for (int i = 0; i < count; ++i) {
    Checkpoint(workspace, i);
    if ((i + 1) % kBetween != 0) continue;
    folder_bytes = std::max(folder_bytes, BytesBelow(folder));
    const auto start = std::chrono::steady_clock::now();
    workspace.Forget(Kit::Retention::KeepUnder(most_bytes)).value();
    const std::chrono::duration<double, std::milli> elapsed =
        std::chrono::steady_clock::now() - start;
    forget_ms = std::max(forget_ms, elapsed.count());
    folder_bytes = std::max(folder_bytes, BytesBelow(folder));
  }
  const auto versions = workspace.Log({.limit = UINT64_MAX}).value().size();
  std::printf(
      "{\"folder_bytes\": %.0f, \"memory_bytes\": %.0f, \"versions\": %zu, \"forget_ms\": %.0f}\n",
      static_cast<double>(folder_bytes), PeakMemory(), versions, forget_ms);
}

}  // namespace
}  // namespace TalVcs::Bench

int main(int count, char** arguments) {
  using namespace TalVcs::Bench;
  const std::string what = count > 3 ? arguments[1] : "";
  if (what == "make") {
    Make(arguments[2], std::atoi(arguments[3]));
  } else if (what == "times") {
    Times(arguments[2], std::atoi(arguments[3]));
  } else if (what == "keep" && count > 4) {
    Keep(arguments[2], std::atoi(arguments[3]), std::strtoull(arguments[4], nullptr, 10));
  } else {
    std::fprintf(stderr, "usage: %s make|times|keep FOLDER COUNT [BYTES]\n", arguments[0]);
    return 2;
  }
  return 0;
}
