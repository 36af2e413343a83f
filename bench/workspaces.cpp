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

/// Times of the calls of one operation, in microseconds.
class Timing {
 public:
  template <class Act>
  void Add(Act act) {
    const auto start = std::chrono::steady_clock::now();
    act();
    const std::chrono::duration<double, std::micro> elapsed =
        std::chrono::steady_clock::now() - start;
    m_times.push_back(elapsed.count());
  }

  double Median() {
    std::ranges::sort(m_times);
    return m_times[m_times.size() / 2];
  }

 private:
  std::vector<double> m_times;
};

/// make FOLDER COUNT: a history of checkpoints.
void Make(const std::filesystem::path& folder, int count) {
  Kit::Workspace workspace = Open(folder);
  for (int i = 0; i < count; ++i) Checkpoint(workspace, i);
  std::printf("{\"folder_bytes\": %.0f}\n", static_cast<double>(BytesBelow(folder)));
}

/// times FOLDER COUNT: what the next operations cost after so many checkpoints.
///
/// What a store has to read depends on how long ago it last wrote an index, and its journal anew.
/// So the samples are taken over some hundred checkpoints, in which it does both.
void Times(const std::filesystem::path& folder, int count) {
  constexpr int kBetween = 10;
  Timing open;
  Timing save;
  Timing undo;
  Timing log;
  for (int sample = 0; sample < kSamples; ++sample) {
    open.Add([&] { Open(folder); });
    Kit::Workspace workspace = Open(folder);
    for (int i = 0; i < kBetween; ++i) save.Add([&] { Checkpoint(workspace, count++); });
    undo.Add([&] { workspace.Undo().value(); });
    log.Add([&] { workspace.Log({.limit = 20}).value(); });
  }
  std::printf("{\"open_us\": %.1f, \"save_us\": %.1f, \"undo_us\": %.1f, \"log_us\": %.1f}\n",
              open.Median(), save.Median(), undo.Median(), log.Median());
}

/// rule FOLDER NUMBER: what a rule costs in a history of 100,000 checkpoints: previews are numbers
/// from 0, the rules themselves from 5.
void Rule(const std::filesystem::path& folder, int number) {
  using Kit::Retention;
  const auto now = TimeOf(100'000);
  const Retention rules[] = {
      Retention::KeepNewest(50'000),    Retention::KeepSince(now - std::chrono::hours(14)),
      Retention::KeepUnder(50'000'000), Retention::ThinAutosaves(60, 600, now),
      Retention::TipsAndForks(),
  };
  const Retention& rule = rules[number % 5];
  Kit::Workspace workspace = Open(folder);
  const Kit::ForgetOptions options{.mostListed = 0};
  Timing timing;
  Kit::RetentionReport report;
  timing.Add([&] {
    report = (number < 5 ? workspace.PreviewForget(rule, options) : workspace.Forget(rule, options))
                 .value();
  });
  std::printf("{\"kept\": %llu, \"ms\": %.0f, \"memory_bytes\": %.0f}\n",
              static_cast<unsigned long long>(report.keptVersions), timing.Median() / 1000,
              PeakMemory());
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
    workspace.Forget(Kit::Retention::KeepUnder(most_bytes), {.mostListed = 0}).value();
    const std::chrono::duration<double, std::milli> elapsed =
        std::chrono::steady_clock::now() - start;
    forget_ms = std::max(forget_ms, elapsed.count());
    folder_bytes = std::max(folder_bytes, BytesBelow(folder));
  }
  const double memory_bytes = PeakMemory();
  const auto versions = workspace.Log({.limit = UINT64_MAX}).value().size();
  std::printf(
      "{\"folder_bytes\": %.0f, \"memory_bytes\": %.0f, \"versions\": %zu, \"forget_ms\": %.0f}\n",
      static_cast<double>(folder_bytes), memory_bytes, versions, forget_ms);
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
  } else if (what == "rule") {
    Rule(arguments[2], std::atoi(arguments[3]));
  } else if (what == "keep" && count > 4) {
    Keep(arguments[2], std::atoi(arguments[3]), std::strtoull(arguments[4], nullptr, 10));
  } else {
    std::fprintf(stderr, "usage: %s make|times|rule|keep FOLDER NUMBER [BYTES]\n", arguments[0]);
    return 2;
  }
  return 0;
}
