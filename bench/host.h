#pragma once

#include <bench/workloads.h>
#include <benchmark/benchmark.h>
#include <talvcs/talvcs.h>

#include <memory>
#include <string>
#include <string_view>
#include <vector>

/// What a host does with the library in order to run the workloads.
namespace TalVcs::Bench {

using WideText = TalStringT<WideChar>;

WideText Widen(std::string_view ascii);
Blob MakeBlob(std::string_view bytes);
Repository MakeRepository();

/// Makes something shared the way the library wants it.
template <class T>
cow_ptr<T> Share(T value) {
  return cow_ptr<T>(dll_wrapped_shared(std::make_unique<T>(std::move(value))));
}

/// The contents and the paths of the first `count` files.
struct Files {
  explicit Files(std::uint32_t count);
  std::vector<std::string> contents;
  std::vector<WideText> paths;
  std::vector<WideText> names;
};

/// The changes of a history with the contents that they write.
struct Changes {
  explicit Changes(const HistoryPlan& changes);
  HistoryPlan plan;
  std::vector<std::vector<std::string>> contents;
  std::vector<std::vector<WideText>> paths;
};

/// How several files get into one commit.
enum class Way {
  PerFile,  ///< one by one, each making all directories on its path anew
  Batch,    ///< by one `BatchEdit`, each directory made once
};

/// Commits what `commit` holds, as number `number` on the current branch.
cow_ptr<Commit> Record(Repository& repository, Commit& commit, std::uint32_t number);

/// Commits all files, in the order that is given, to an empty repository.
cow_ptr<Commit> Import(Repository& repository, const Files& files,
                       const std::vector<std::uint32_t>& order, Way way);

/// Makes one commit for each element of the plan on top of the current branch, the first of which
/// has the number `number`.
cow_ptr<Commit> Replay(Repository& repository, const Changes& changes, Way way,
                       std::uint32_t number = 1);

/// Stores a chain of `count` commits on `parent`, all with its tree, numbered from `number` on, and
/// returns the last. Appends each to `made` unless that is null.
cow_ptr<Commit> Chain(Repository& repository, cow_ptr<Commit> parent, std::uint32_t count,
                      std::uint32_t number, std::vector<cow_ptr<Commit>>* made = nullptr);

/// Number of objects that the repository holds, and the sum of the bytes of their packed forms:
/// what has to be hashed if each is hashed once.
struct Volume {
  std::uint64_t objects = 0;
  std::uint64_t bytes = 0;
};
Volume Measure(const Repository& repository);

/// Where the heap of a repository goes, in bytes. What is left of the heap in use are the
/// directories (lists, names, records, handles), the texts of commits and what the host keeps.
struct HeapParts {
  double content = 0;  ///< the bytes of the blobs
  double ids = 0;      ///< the texts of the ids
  double tables = 0;   ///< the storage's tables: nodes and buckets
  double control = 0;  ///< objects, their counts, and the heads of texts and of contents
  double slack = 0;    ///< what malloc adds to the pieces above: its header, and rounding up

  HeapParts& operator-=(const HeapParts& other);
};
/// Computes the parts from the sizes of the pieces that each object is made of.
HeapParts SplitHeap(const Repository& repository);
/// Reports the parts that `objects` objects have, divided by their number.
void ReportHeapParts(benchmark::State& state, const HeapParts& parts, std::uint64_t objects);

}  // namespace TalVcs::Bench
