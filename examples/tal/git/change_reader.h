#pragma once

#include "imported_refs.h"
#include "stream_reader.h"
#include "tree_builder.h"

#include <cstdint>
#include <string>
#include <string_view>
#include <unordered_map>

namespace Tal {

/// Reads what a commit of a stream for git changes, and keeps the contents to which that refers.
class GitChangeReader {
 public:
  /// Both must outlive the reader.
  GitChangeReader(GitStreamReader& reader, ImportNotes& notes) : m_reader(reader), m_notes(notes) {}

  /// Keeps a content under its mark.
  void AddBlob(std::uint64_t mark, TalVcs::Blob blob) {
    m_blobs.insert_or_assign(mark, std::move(blob));
  }
  /// Returns true for a mark, with its colon, of a content.
  bool HasBlob(const std::string& name) const { return Find(name) != m_blobs.end(); }

  /// Reads one change and makes it. Returns false if the next line isn't a change. Throws `Failure`
  /// for a path that a folder of this program can't have.
  bool Read(TreeBuilder& files);

 private:
  using Blobs = std::unordered_map<std::uint64_t, TalVcs::Blob>;

  Blobs::const_iterator Find(const std::string& name) const;
  const TalVcs::Blob& BlobOf(const std::string& name) const;
  void ReadFile(std::string_view text, TreeBuilder& files);
  std::string Copy(std::string_view text, TreeBuilder& files) const;
  std::string PathFrom(std::string_view text) const;
  void RequirePath(const std::string& path) const;
  [[noreturn]] void FailOnPath(std::string_view path) const;

  GitStreamReader& m_reader;
  ImportNotes& m_notes;
  Blobs m_blobs;
};

}  // namespace Tal
