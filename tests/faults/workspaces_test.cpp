// A day with a workspace, of which one allocation or one call of the store fails. The operation
// that was interrupted has either happened or changed nothing, can be repeated, and the day ends as
// it would have ended anyway.

#include <gtest/gtest.h>
#include <kit/merge/content_merger.h>
#include <kit/open/verify.h>
#include <kit/store/fault_injection_store.h>
#include <kit/store/memory_object_store.h>
#include <kit/workspace/workspace.h>
#include <tests/support/failing_allocations.h>
#include <tests/support/scale.h>

#include <algorithm>
#include <cstdlib>
#include <functional>
#include <iostream>
#include <map>
#include <new>
#include <optional>
#include <random>
#include <stdexcept>
#include <string>
#include <vector>

namespace TalVcs::Testing {
namespace {

using Kit::Decision;
using Kit::ErrorCode;
using Kit::Workspace;

/// One document and two people who have it open.
struct Day {
  Day() : faulty(std::make_shared<Kit::FaultInjectionStore>(memory)) { ada.emplace(Open("Ada")); }

  Workspace Open(const std::string& author) {
    Kit::WorkspaceOptions options;
    options.author = author;
    options.clock = [this] { return now += std::chrono::seconds(60); };
    options.mergers.Add("*.txt", Kit::MakeTextMerger());
    return Workspace::Open(faulty, options).value();
  }

  std::chrono::sys_seconds now = std::chrono::sys_seconds(std::chrono::seconds(1'000'000'000));
  std::shared_ptr<Kit::MemoryObjectStore> memory = std::make_shared<Kit::MemoryObjectStore>();
  std::shared_ptr<Kit::FaultInjectionStore> faulty;
  std::optional<Workspace> ada;
  std::optional<Workspace> bob;
};

/// An operation, which throws its error.
using Step = std::function<void(Day& day)>;

const std::vector<Step>& Steps() {
  static constexpr std::chrono::sys_seconds kTime(std::chrono::seconds(1'000'100'000));
  static const std::vector<Step> steps{
      [](Day& day) { day.ada->Write("a", "1").value(); },
      [](Day& day) { day.ada->Write("d/notes.txt", "one\ntwo\nthree\n").value(); },
      [](Day& day) { day.ada->Write("d/e/x", std::string(2000, 'x')).value(); },
      [](Day& day) { day.ada->Commit("base").value(); },
      [](Day& day) { day.ada->CreateBranch("topic").value(); },
      [](Day& day) { day.ada->CreateTag("1.0").value(); },
      [](Day& day) { day.ada->Write("a", "2").value(); },
      [](Day& day) { day.ada->Checkpoint("drag", "gesture 1", kTime).value(); },
      [](Day& day) { day.ada->Write("a", "3").value(); },
      [](Day& day) { day.ada->Checkpoint("drag", "gesture 1", kTime).value(); },
      [](Day& day) { day.ada->Undo().value(); },
      [](Day& day) { day.ada->Redo().value(); },
      [](Day& day) { day.ada->Write("d/notes.txt", "ONE\ntwo\nthree\n").value(); },
      [](Day& day) { day.ada->Commit("ours").value(); },
      [](Day& day) { day.ada->Switch("topic").value(); },
      [](Day& day) { day.ada->Write("d/notes.txt", "one\ntwo\nTHREE\n").value(); },
      [](Day& day) { day.ada->Write("a", "theirs").value(); },
      [](Day& day) { day.ada->Rename("d/e", "moved").value(); },
      [](Day& day) { day.ada->Commit("theirs").value(); },
      [](Day& day) { day.ada->Switch("master").value(); },
      [](Day& day) {
        const Kit::MergePreview preview = day.ada->PreviewMerge("topic").value();
        day.ada->Merge(preview, {{"a", Decision::Content("both")}}).value();
      },
      [](Day& day) {
        const Kit::MergePreview preview =
            day.ada->PreviewRevert(day.ada->Find("topic")->id).value();
        day.ada->Merge(preview, {{"a", Decision::Ours()}}).value();
      },
      [](Day& day) { day.bob.emplace(day.Open("Bob")); },
      [](Day& day) { day.bob->Write("bob.txt", "Bob's\n").value(); },
      [](Day& day) { day.bob->Commit("Bob's").value(); },
      [](Day& day) { day.ada->Write("ada.txt", "Ada's\n").value(); },
      [](Day& day) {
        if (day.ada->IsBehind().value()) day.ada->Reload().value();
      },
      [](Day& day) { day.ada->Commit("Ada's").value(); },
      [](Day& day) {
        day.ada
            ->Rebase("topic",
                     [](const Kit::MergePreview& preview) {
                       Kit::Decisions decisions;
                       for (const auto& conflict : preview.conflicts) {
                         decisions.emplace(conflict.path, Decision::Ours());
                       }
                       return Kit::Result<Kit::Decisions>(decisions);
                     })
            .value();
      },
      [](Day& day) { day.ada->Log({.path = "a", .limit = 5}).value(); },
      [](Day& day) { day.ada->GetChanges().value(); },
      [](Day& day) { day.ada->MeasureVersions().value(); },
      [](Day& day) { day.ada->MeasurePaths("d").value(); },
      [](Day& day) { day.ada->BlameFile("d/notes.txt").value(); },
      [](Day& day) { day.ada->RemoveTag("1.0").value(); },
      [](Day& day) { day.ada->Forget(Kit::Retention::KeepNewest(4)).value(); },
      [](Day& day) { day.ada.emplace(day.Open("Ada")); },
      [](Day& day) { day.ada->Undo().value(); },
  };
  return steps;
}

/// Returns the files, then the history of each branch, as the document has them.
std::string Describe(const Day& day) {
  const Workspace workspace = Workspace::Open(day.memory).value();
  std::string text;
  for (const std::string& path : workspace.ListFiles().value()) {
    text += path + ": " + std::string(workspace.Read(path).value().text()) + "; ";
  }
  for (const Kit::Head& branch : workspace.GetBranches()) {
    text += branch.name + ": ";
    for (const auto& version : workspace.Log({.branch = branch.name}).value()) {
      text += version.author + " " + version.summary + ", ";
    }
  }
  for (const Kit::Head& tag : workspace.GetTags()) text += "tag " + tag.name;
  return text;
}

/// Returns what an operation can change.
std::string StateOf(const Day& day) {
  std::string text = Describe(day) + " | " + day.ada->GetBranch();
  const auto head = day.ada->GetHead().value();
  if (head) text += head->summary;
  for (const std::string& path : day.ada->ListFiles().value()) text += path;
  if (day.bob) text += std::to_string(day.bob->ListFiles().value().size());
  return text;
}

std::string Undisturbed() {
  Day day;
  for (const Step& step : Steps()) step(day);
  return Describe(day);
}

/// Goes on after an operation that was interrupted: repeats it, unless it has happened. A workspace
/// that doesn't know of its own save takes it over like somebody else's.
void GoOn(Day& day, const Step& step, const std::string& before) {
  const bool has_happened = StateOf(day) != before;
  for (auto* workspace : {&day.ada, &day.bob}) {
    if (has_happened && *workspace && (*workspace)->IsBehind().value()) {
      (*workspace)->Reload().value();
    }
  }
  if (!has_happened) step(day);
}

/// Lives through as many days, in each of which memory is short once.
void LiveWithFailingAllocations(FailingAllocation::Kind kind, std::size_t days) {
  const std::string expected = Undisturbed();
  const std::size_t begin = AllocationsMade();
  Undisturbed();
  const std::size_t all = AllocationsMade() - begin;
  const char* wish = std::getenv("TALVCS_FAULTS_STRIDE");
  const std::size_t stride =
      wish != nullptr ? std::strtoull(wish, nullptr, 10) : all / Scaled(days);
  const std::size_t offset = std::random_device()() % stride;
  std::cout << "every " << stride << "th of " << all << " allocations, from " << offset << '\n';
  int failures = 0;
  for (std::size_t number = offset; number < all && !testing::Test::HasFailure();
       number += stride) {
    SCOPED_TRACE("allocation " + std::to_string(number));
    const std::ptrdiff_t live = LiveBlocks();
    {
      Day day;
      std::size_t left = number;
      bool has_fired = false;
      for (const Step& step : Steps()) {
        const std::string before = has_fired ? "" : StateOf(day);
        bool threw = false;
        {
          const std::size_t made = AllocationsMade();
          const FailingAllocation fault(has_fired ? SIZE_MAX : left, kind);
          try {
            step(day);
          } catch (const std::bad_alloc&) {
            threw = true;
          } catch (const std::length_error&) {
            threw = true;
          }
          left -= std::min(left, AllocationsMade() - made);
          has_fired = has_fired || fault.HasFired();
        }
        if (threw) ++failures;
        if (threw) GoOn(day, step, before);
      }
      EXPECT_EQ(Describe(day), expected);
      EXPECT_TRUE(Kit::Verify(*day.memory)->IsWhole());
    }
    EXPECT_EQ(LiveBlocks(), live) << "something leaks";
  }
  EXPECT_GT(failures, static_cast<int>(Scaled(days) * 2 / 3));
}

TEST(FailingAllocationsOfWorkspaces, InterruptedOperationHappensOrNot) {
  LiveWithFailingAllocations(FailingAllocation::Kind::One, 150);
}

// What takes an operation back must not need memory that isn't there.
TEST(FailingAllocationsOfWorkspaces, LastingShortageEndsNoProgram) {
  LiveWithFailingAllocations(FailingAllocation::Kind::Lasting, 100);
}

/// Lives through a day in which one call of the store fails. Returns whether there were so many.
bool LiveWithFailingCall(std::uint64_t number, bool afterwards, int& failures) {
  Day day;
  day.faulty->FailAfterwards(afterwards);
  day.faulty->FailWith(afterwards ? ErrorCode::Unknown : ErrorCode::Unavailable);
  bool has_failed = false;
  for (const Step& step : Steps()) {
    const std::string before = StateOf(day);
    day.faulty->Restart();
    day.faulty->FailFrom(has_failed ? 0 : number);
    bool threw = false;
    try {
      step(day);
    } catch (const Kit::ErrorException&) {
      threw = true;
    }
    number -= std::min<std::uint64_t>(number - 1, day.faulty->GetCalls().size());
    has_failed = has_failed || day.faulty->HasFailed();
    day.faulty->FailFrom(0);
    if (!threw) continue;
    ++failures;
    GoOn(day, step, before);
  }
  EXPECT_EQ(Describe(day), Undisturbed());
  EXPECT_TRUE(Kit::Verify(*day.memory)->IsWhole());
  return has_failed;
}

TEST(FailingStoreOfWorkspaces, InterruptedOperationHappensOrNot) {
  for (const bool afterwards : {false, true}) {
    int failures = 0;
    bool has_failed = true;
    for (std::uint64_t number = 1; has_failed && !testing::Test::HasFailure(); ++number) {
      SCOPED_TRACE((afterwards ? "answer to call " : "call ") + std::to_string(number));
      has_failed = LiveWithFailingCall(number, afterwards, failures);
    }
    EXPECT_GT(failures, 40);
  }
}

}  // namespace
}  // namespace TalVcs::Testing
