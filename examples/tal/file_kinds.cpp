// kinds := line*                     ascending by path
// line  := ("x" | "l") SP path LF    "\" in a path is written "\\", a line feed "\n"

#include "file_kinds.h"

#include <kit/text/escape.h>

#include <set>

namespace Tal {
namespace {

TalVcs::Kit::Result<TalVcs::Kit::MergedContent> MergeKinds(
    const TalVcs::Kit::ContentToMerge& content) {
  const FileKinds root(content.root.value_or(std::string_view()));
  const FileKinds right(content.right);
  FileKinds merged(content.left);
  std::set<std::string> paths;
  for (const FileKinds* side : {&root, &right}) {
    for (const auto& [path, kind] : side->GetAll()) paths.insert(path);
  }
  for (const std::string& path : paths) {
    if (merged.Of(path) == root.Of(path)) merged.Set(path, right.Of(path));
  }
  return TalVcs::Kit::MergedContent{merged.ToText(), {}};
}

}  // namespace

const char* Name(FileKind kind) {
  switch (kind) {
    case FileKind::File:
      return "file";
    case FileKind::Executable:
      return "executable";
    case FileKind::Link:
      return "link";
  }
  return "";
}

FileKinds::FileKinds(std::string_view text) {
  while (!text.empty()) {
    const std::size_t end = text.find('\n');
    const std::string_view line = text.substr(0, end);
    text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
    if (line.size() < 3 || line[1] != ' ') continue;
    if (line[0] == 'x')
      m_kinds.emplace(TalVcs::Kit::UnescapeLine(line.substr(2)), FileKind::Executable);
    if (line[0] == 'l') m_kinds.emplace(TalVcs::Kit::UnescapeLine(line.substr(2)), FileKind::Link);
  }
}

std::string FileKinds::ToText() const {
  std::string text;
  for (const auto& [path, kind] : m_kinds)
    text += (kind == FileKind::Executable ? "x " : "l ") + TalVcs::Kit::EscapeLine(path) + "\n";
  return text;
}

FileKind FileKinds::Of(const std::string& path) const {
  const auto found = m_kinds.find(path);
  return found == m_kinds.end() ? FileKind::File : found->second;
}

void FileKinds::Set(const std::string& path, FileKind kind) {
  if (kind == FileKind::File) {
    m_kinds.erase(path);
  } else {
    m_kinds.insert_or_assign(path, kind);
  }
}

TalVcs::Kit::ContentMerger MakeMerger() {
  return [text = TalVcs::Kit::MakeTextMerger({.conflictText = TalVcs::Kit::ConflictText::Markers})](
             const TalVcs::Kit::ContentToMerge& content) {
    return content.path == FileKinds::kKindsName ? MergeKinds(content) : text(content);
  };
}

}  // namespace Tal
