#include <kit/open/clean_up.h>
#include <kit/open/verify.h>
#include <kit/store/directory_object_store.h>
#include <kit/workspace/workspace.h>
#include <malloc.h>
#include <stores/sqlite/sqlite_store.h>
#include <sys/resource.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

// What a workspace costs in a long history: pages of shapes, of which each checkpoint changes one,
// and a file that only the first one has written. Each run is a process of its own and prints its
// figures as a line of JSON; workspaces.py makes tables of them.
//
//     talvcs_bench_workspaces make|times|rule STORE FOLDER NUMBER
//     talvcs_bench_workspaces keep STORE FOLDER COUNT BYTES
//     talvcs_bench_workspaces task STORE FOLDER NAME
//
// STORE: folder, sqlite, or one of these with "-durable", which waits for the medium

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

/// The kind of a store and where it is.
struct Place {
  std::string kind;
  std::filesystem::path folder;
};

std::shared_ptr<Kit::IObjectStore> OpenStore(const Place& place) {
  const bool is_durable = place.kind.ends_with("-durable");
  if (place.kind.starts_with("sqlite")) {
    std::filesystem::create_directories(place.folder);
    return std::make_shared<Kit::SqliteStore>(
        Kit::SqliteStore::Open(place.folder / "document.tal", {.durable = is_durable}).value());
  }
  const Kit::DirectoryObjectStoreOptions options{.durable = is_durable};
  auto store = Kit::DirectoryObjectStore::Open(place.folder, options);
  if (!store) store = Kit::DirectoryObjectStore::Create(place.folder, options);
  return std::make_shared<Kit::DirectoryObjectStore>(std::move(store).value());
}

Kit::Workspace Open(const Place& place) {
  return Kit::Workspace::Open(OpenStore(place), {.author = "Ada"}).value();
}

std::chrono::sys_seconds TimeOf(int number) {
  return std::chrono::sys_seconds(std::chrono::seconds(1'000'000'000 + number));
}

/// Makes a checkpoint. The first one has all shapes, and a file that no other one changes.
void Checkpoint(Kit::Workspace& workspace, int number) {
  if (number == 0) {
    workspace.Write("readme", "A drawing.\n").value();
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

double HeapInUse() {
  const struct mallinfo2 info = mallinfo2();
  return static_cast<double>(info.uordblks + info.hblkhd);
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

/// make PLACE COUNT: a history of checkpoints.
void Make(const Place& place, int count) {
  Kit::Workspace workspace = Open(place);
  for (int i = 0; i < count; ++i) Checkpoint(workspace, i);
  std::printf("{\"folder_bytes\": %.0f}\n", static_cast<double>(BytesBelow(place.folder)));
}

/// times PLACE COUNT: what the next operations cost after so many checkpoints.
///
/// What a store has to read depends on how long ago it last wrote an index, and its journal anew.
/// So the samples are taken over some hundred checkpoints, in which it does both.
void Times(const Place& place, int count) {
  constexpr int kBetween = 10;
  Timing open;
  Timing save;
  Timing undo;
  Timing log;
  for (int sample = 0; sample < kSamples; ++sample) {
    open.Add([&] { Open(place); });
    Kit::Workspace workspace = Open(place);
    for (int i = 0; i < kBetween; ++i) save.Add([&] { Checkpoint(workspace, count++); });
    undo.Add([&] { workspace.Undo().value(); });
    log.Add([&] { workspace.Log({.limit = 20}).value(); });
  }
  std::printf("{\"open_us\": %.1f, \"save_us\": %.1f, \"undo_us\": %.1f, \"log_us\": %.1f}\n",
              open.Median(), save.Median(), undo.Median(), log.Median());
}

/// rule PLACE NUMBER: what a rule costs in a history of 100,000 checkpoints: previews are numbers
/// from 0, the rules themselves from 5.
void Rule(const Place& place, int number) {
  using Kit::Retention;
  const auto now = TimeOf(100'000);
  const Retention rules[] = {
      Retention::KeepNewest(50'000),    Retention::KeepSince(now - std::chrono::hours(14)),
      Retention::KeepUnder(50'000'000), Retention::ThinAutosaves(60, 600, now),
      Retention::TipsAndForks(),
  };
  const Retention& rule = rules[number % 5];
  Kit::Workspace workspace = Open(place);
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

/// keep PLACE COUNT BYTES: so many checkpoints, of which a rule keeps the newest under so many
/// bytes. It is applied once in 2,500 checkpoints.
void Keep(const Place& place, int count, std::uint64_t most_bytes) {
  constexpr int kBetween = 2500;
  Kit::Workspace workspace = Open(place);
  std::uint64_t folder_bytes = 0;
  double forget_ms = 0;
  for (int i = 0; i < count; ++i) {
    Checkpoint(workspace, i);
    if ((i + 1) % kBetween != 0) continue;
    folder_bytes = std::max(folder_bytes, BytesBelow(place.folder));
    const auto start = std::chrono::steady_clock::now();
    workspace.Forget(Kit::Retention::KeepUnder(most_bytes), {.mostListed = 0}).value();
    const std::chrono::duration<double, std::milli> elapsed =
        std::chrono::steady_clock::now() - start;
    forget_ms = std::max(forget_ms, elapsed.count());
    folder_bytes = std::max(folder_bytes, BytesBelow(place.folder));
  }
  const double memory_bytes = PeakMemory();
  const auto versions = workspace.Log({.limit = UINT64_MAX}).value().size();
  std::printf(
      "{\"folder_bytes\": %.0f, \"memory_bytes\": %.0f, \"versions\": %zu, \"forget_ms\": %.0f}\n",
      static_cast<double>(folder_bytes), memory_bytes, versions, forget_ms);
}

/// Returns how many versions a log has.
std::uint64_t CountLog(const Kit::Workspace& workspace, const Kit::LogOptions& options) {
  return workspace.Log(options).value().size();
}

/// What a program does with a whole history. Each returns a number to check it by.
using Task = std::function<std::uint64_t(Kit::Workspace&, Kit::IObjectStore&)>;

const std::map<std::string_view, Task> kTasks = {
    {"log", [](auto& workspace, auto&) { return CountLog(workspace, {.limit = 20}); }},
    {"path", [](auto& w, auto&) { return CountLog(w, {.path = PathOf(7), .limit = 20}); }},
    {"oldest", [](auto& w, auto&) { return CountLog(w, {.path = "readme", .limit = 20}); }},
    {"author", [](auto& w, auto&) { return CountLog(w, {.author = "Bob", .limit = 20}); }},
    {"all", [](auto& w, auto&) { return CountLog(w, {.allBranches = true, .author = "Bob"}); }},
    {"blame", [](auto& w, auto&) { return w.BlameFile(PathOf(7)).value().lines.size(); }},
    {"blame-oldest", [](auto& w, auto&) { return w.BlameFile("readme").value().lines.size(); }},
    {"undo-none",
     [](auto& w, auto&) -> std::uint64_t { return w.FindUndo({.author = "Bob"}).value() ? 1 : 0; }},
    {"branches", [](auto& w, auto&) { return w.MeasureBranches().value().front().commits; }},
    {"versions", [](auto& w, auto&) { return w.MeasureVersions().value().size(); }},
    {"contents", [](auto& w, auto&) { return w.MeasureContents().value().stored.files; }},
    {"verify", [](auto&, auto& store) { return Kit::Verify(store).value().objects; }},
    {"clean-up", [](auto&, auto& store) { return Kit::CleanUp(store).value().count; }},
};

/// task PLACE NAME: what it costs, and the memory that is in use after a `Trim` at the end.
void RunTask(const Place& place, const std::string& name) {
  const std::shared_ptr<Kit::IObjectStore> store = OpenStore(place);
  Kit::Workspace workspace = Kit::Workspace::Open(store, {.author = "Ada"}).value();
  const Task& task = kTasks.at(name);
  const double heap = HeapInUse();
  const std::clock_t cpu = std::clock();
  Timing timing;
  std::uint64_t result = 0;
  timing.Add([&] { result = task(workspace, *store); });
  const double cpu_ms = 1000.0 * static_cast<double>(std::clock() - cpu) / CLOCKS_PER_SEC;
  const double memory_bytes = PeakMemory();
  const double held = HeapInUse() - heap;
  workspace.Trim();
  std::printf(
      "{\"result\": %llu, \"ms\": %.2f, \"cpu_ms\": %.2f, \"memory_bytes\": %.0f, "
      "\"held_bytes\": %.0f, \"left_bytes\": %.0f}\n",
      static_cast<unsigned long long>(result), timing.Median() / 1000, cpu_ms, memory_bytes, held,
      HeapInUse() - heap);
}

}  // namespace
}  // namespace TalVcs::Bench

int main(int count, char** arguments) {
  using namespace TalVcs::Bench;
  const std::string what = count > 4 ? arguments[1] : "";
  const Place place{count > 4 ? arguments[2] : "", count > 4 ? arguments[3] : ""};
  const std::string number = count > 4 ? arguments[4] : "";
  if (what == "make") {
    Make(place, std::atoi(number.c_str()));
  } else if (what == "times") {
    Times(place, std::atoi(number.c_str()));
  } else if (what == "rule") {
    Rule(place, std::atoi(number.c_str()));
  } else if (what == "task") {
    RunTask(place, number);
  } else if (what == "keep" && count > 5) {
    Keep(place, std::atoi(number.c_str()), std::strtoull(arguments[5], nullptr, 10));
  } else {
    std::fprintf(stderr, "usage: %s make|times|rule|task|keep STORE FOLDER NUMBER [BYTES]\n",
                 arguments[0]);
    return 2;
  }
  return 0;
}
