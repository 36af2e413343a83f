#include "clean_up.h"
#include "command_line.h"
#include "command_table.h"

#include <kit/open/statistics.h>
#include <kit/open/verify.h>
#include <kit/text/json_writer.h>
#include <kit/text/sizes.h>

#include <charconv>
#include <iostream>
#include <optional>

namespace Tal {
namespace {

struct NoOptions {};

void PrintVerifyJson(const std::optional<Kit::VerifyReport>& report, const std::string& reason) {
  Kit::JsonWriter json(std::cout);
  json.BeginObject();
  json.Key("whole").Bool(report && report->IsWhole());
  json.Key("reason").Text(reason);
  const std::uint64_t reached = report ? report->objects : 0;
  const std::uint64_t unreferenced = report ? report->unreferencedObjects : 0;
  json.Key("objects").Number(static_cast<std::int64_t>(reached + unreferenced));
  json.Key("reached").Number(static_cast<std::int64_t>(reached));
  json.Key("damaged").BeginArray();
  if (report) {
    for (const Kit::Damage& damage : report->damages) json.Text(ToUtf8(damage.id));
  }
  json.EndArray();
  json.EndObject();
}

/// Prints what there is to know of a store that can't even be looked through, and throws it again.
template <class Problem>
[[noreturn]] void FailVerify(const Host& host, const Problem& problem) {
  if (host.json) PrintVerifyJson(std::nullopt, Printable(problem.what()));
  throw problem;
}

Kit::VerifyReport VerifyStore(const Host& host) {
  try {
    Session session(host, Access::Read);
    return Kit::Verify(session.Store(), {.progress = ShowProgress(host.terminal)}).value();
  } catch (const Failure& failure) {
    if (failure.Code() != ExitCode::Damaged) throw;
    FailVerify(host, failure);
  } catch (const Kit::ErrorException& error) {
    if (error.GetError().code == Kit::ErrorCode::Cancelled) throw;
    FailVerify(host, error);
  }
}

ExitCode RunVerify(const Host& host, const NoOptions&) {
  const Kit::VerifyReport report = VerifyStore(host);
  const std::string reason =
      report.damages.empty() ? "" : Printable(Kit::Describe(report.damages.front()));
  if (host.json) PrintVerifyJson(report, reason);
  for (const Kit::Damage& damage : report.damages)
    host.terminal.Complain("missing or damaged: " + Printable(Kit::Describe(damage)));
  if (!report.IsWhole())
    throw Failure(
        "the store is damaged: " + Plural(report.damageCount, "object") + " cannot be read",
        ExitCode::Damaged);
  if (!host.json) {
    std::cout << "whole: every id is correct; the branches reach "
              << Plural(report.objects, "object") << ", and "
              << Plural(report.unreferencedObjects, "object") << " more can be removed by tal gc\n";
  }
  return ExitCode::Done;
}

std::uint64_t LastFreed(Session& session) {
  const std::string text = session.Store().Value(kFreedValue).value().value_or(std::string());
  std::uint64_t bytes = 0;
  std::from_chars(text.data(), text.data() + text.size(), bytes);
  return bytes;
}

void PrintTotals(Kit::JsonWriter& json, const char* name, const Kit::ObjectTotals& totals) {
  json.Key(name).BeginObject();
  json.Key("count").Number(static_cast<std::int64_t>(totals.count));
  json.Key("bytes").Number(static_cast<std::int64_t>(totals.sizeBytes));
  json.EndObject();
}

ExitCode RunStat(const Host& host, const NoOptions&) {
  Session session(host, Access::Read);
  const Kit::StoreStatistics store =
      Kit::Statistics(session.Store(), {.progress = ShowProgress(host.terminal)}).value();
  if (store.unreadable > 0)
    throw Failure("the store is damaged: " + Plural(store.unreadable, "object") +
                      " cannot be read; tal verify lists them",
                  ExitCode::Damaged);
  const Kit::ContentUsage contents = session.Document().MeasureContents().value();
  const std::pair<const char*, Kit::ObjectTotals> kinds[] = {
      {"commits", store.commits}, {"trees", store.trees}, {"blobs", store.blobs}};
  Kit::ObjectTotals all = store.unreferenced;
  for (const auto& [name, totals] : kinds) {
    all.count += totals.count;
    all.sizeBytes += totals.sizeBytes;
  }
  const auto branches = session.Document().GetBranches();
  if (host.json) {
    Kit::JsonWriter json(std::cout);
    json.BeginObject();
    for (const auto& [name, totals] : kinds) PrintTotals(json, name, totals);
    const std::pair<const char*, std::uint64_t> figures[] = {
        {"branches", branches.size()},
        {"files_of_all_commits", contents.apart.files},
        {"bytes_of_all_commits", contents.apart.sizeBytes},
        {"store_objects", all.count},
        {"store_bytes", all.sizeBytes},
        {"unreached_bytes", store.unreferenced.sizeBytes},
        {"last_freed_bytes", LastFreed(session)}};
    for (const auto& [name, figure] : figures)
      json.Key(name).Number(static_cast<std::int64_t>(figure));
    json.EndObject();
    return ExitCode::Done;
  }
  for (const auto& [name, totals] : kinds)
    std::cout << name << '\t' << totals.count << '\t' << Kit::FormatSize(totals.sizeBytes) << '\n';
  std::cout << "branches\t" << branches.size() << '\n'
            << "sharing\t" << Plural(contents.apart.files, "file") << " in all commits, "
            << Kit::FormatSize(contents.apart.sizeBytes) << ", stored as "
            << Plural(contents.stored.files, "blob") << ", "
            << Kit::FormatSize(contents.stored.sizeBytes) << '\n'
            << "store\t" << Plural(all.count, "object") << ", " << Kit::FormatSize(all.sizeBytes)
            << ", unreachable: " << Kit::FormatSize(store.unreferenced.sizeBytes) << '\n'
            << "freed\t" << Kit::FormatSize(LastFreed(session)) << " by the last clean-up\n";
  return ExitCode::Done;
}

}  // namespace

void AddCheckCommands(Commands& commands) {
  const auto declare = [](Command& command, NoOptions&) { command.Json(); };
  commands.Add<NoOptions>("verify",
                          "Check that the store is complete and that every object has its id",
                          RunVerify, declare);
  commands.Add<NoOptions>("stat", "Count objects and bytes", RunStat, declare);
}

}  // namespace Tal
