#pragma once

#include <kit/diff/tree_changes.h>
#include <kit/workspace/workspace.h>

#include <cstddef>
#include <string>
#include <unordered_map>
#include <vector>

namespace Tal {

/// The newest versions of a history in the order of a page: newest first, each before its parent.
/// Says what differs from one listed version to the next, with numbers for contents.
class VersionTable {
 public:
  /// A version as the page's script gets it.
  struct Row {
    TalVcs::Kit::Version version;
    int parent = -1;          ///< Its row, or -1.
    std::vector<int> merges;  ///< The rows of what it merged.
  };
  /// The content of a file, and one place where it is.
  struct Content {
    std::size_t row;
    std::string path;
  };

  /// The workspace must outlive the table.
  VersionTable(const TalVcs::Kit::Workspace& workspace,
               std::vector<TalVcs::Kit::Version> newestFirst);

  /// Keeps the first rows alone.
  void Limit(std::size_t count);

  const std::vector<Row>& Rows() const noexcept { return m_rows; }
  /// Returns the row of a version, or -1.
  int Find(const TalVcs::Id& id) const;

  /// Returns the rows in JSON, and numbers the contents that they name.
  std::string ToJson();
  const std::vector<Content>& Contents() const noexcept { return m_contents; }

 private:
  std::string FilesToJson(std::size_t row);
  std::size_t NumberOf(const TalVcs::Kit::TreeChange& change, std::size_t row);

  const TalVcs::Kit::Workspace& m_workspace;
  std::vector<Row> m_rows;
  std::unordered_map<TalVcs::Id, int> m_indexes;
  std::vector<Content> m_contents;
  std::unordered_map<TalVcs::Id, std::size_t> m_numbers;
};

}  // namespace Tal
