// rows  := "[" row ("," row)* "]"
// row   := {"parent": row or -1, "merges": [row...], "files": [[path, content]...]}
//
// "files" has the changes since the row "parent", with -1 as the content of a removed file. Without
// such a row it has all files.

#include "version_table.h"

#include "html_text.h"

#include <algorithm>

namespace Tal {

using TalVcs::Kit::Snapshot;
using TalVcs::Kit::TreeChange;
using TalVcs::Kit::TreeChangeKind;
using TalVcs::Kit::Version;

VersionTable::VersionTable(const TalVcs::Kit::Workspace& workspace,
                           std::vector<Version> newestFirst)
    : m_workspace(workspace) {
  for (Version& version : newestFirst) {
    m_indexes.emplace(version.id, static_cast<int>(m_rows.size()));
    m_rows.push_back({std::move(version), -1, {}});
  }
  for (Row& row : m_rows) {
    row.parent = Find(row.version.parent);
    for (const TalVcs::Id& id : row.version.merges) {
      if (Find(id) >= 0) row.merges.push_back(Find(id));
    }
  }
}

void VersionTable::Limit(std::size_t count) {
  if (count >= m_rows.size()) return;
  m_rows.resize(count);
  const auto is_gone = [&](int row) { return row >= static_cast<int>(count); };
  std::erase_if(m_indexes, [&](const auto& entry) { return is_gone(entry.second); });
  for (Row& row : m_rows) {
    if (is_gone(row.parent)) row.parent = -1;
    std::erase_if(row.merges, is_gone);
  }
}

int VersionTable::Find(const TalVcs::Id& id) const {
  const auto found = m_indexes.find(id);
  return found == m_indexes.end() ? -1 : found->second;
}

std::string VersionTable::ToJson() {
  m_contents.clear();
  m_numbers.clear();
  std::string json = "[";
  for (std::size_t i = 0; i < m_rows.size(); ++i) {
    if (i > 0) json += ",\n";
    json += "{\"parent\":" + std::to_string(m_rows[i].parent) + ",\"merges\":[";
    for (const int merged : m_rows[i].merges) {
      if (!json.ends_with('[')) json += ',';
      json += std::to_string(merged);
    }
    json += "],\"files\":[" + FilesToJson(i) + "]}";
  }
  return json + "]";
}

std::string VersionTable::FilesToJson(std::size_t row) {
  const auto files = m_workspace.At(m_rows[row].version.id);
  if (!files) return {};
  const int parent = m_rows[row].parent;
  TalVcs::Kit::Result<Snapshot> before = Snapshot();
  if (parent >= 0) before = m_workspace.At(m_rows[static_cast<std::size_t>(parent)].version.id);
  if (!before) return {};
  const auto changes = TalVcs::Kit::FindTreeChanges(before->GetTree(), files->GetTree(),
                                                    {.findMoves = false, .findLikeMoves = false});
  if (!changes) return {};
  std::string json;
  for (const TreeChange& change : *changes) {
    if (!json.empty()) json += ',';
    json += '[' + JsonText(change.path) + ',';
    json += change.kind == TreeChangeKind::Removed ? "-1" : std::to_string(NumberOf(change, row));
    json += ']';
  }
  return json;
}

std::size_t VersionTable::NumberOf(const TreeChange& change, std::size_t row) {
  const auto [at, is_new] = m_numbers.emplace(change.after, m_contents.size());
  if (is_new) m_contents.push_back({row, change.path});
  return at->second;
}

}  // namespace Tal
