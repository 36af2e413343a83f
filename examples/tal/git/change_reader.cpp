// change := "M " mode SP (mark | "inline") SP path LF data?      data after "inline"
//         | "D " path LF | "C " path SP path LF | "R " path SP path LF | "deleteall" LF

#include "change_reader.h"

#include "../folder.h"
#include "path_quoting.h"

#include <algorithm>

namespace Tal {
namespace {

std::optional<FileKind> KindOf(std::string_view mode) {
  if (mode == "100644" || mode == "644") return FileKind::File;
  if (mode == "100755" || mode == "755") return FileKind::Executable;
  if (mode == "120000") return FileKind::Link;
  return std::nullopt;
}

}  // namespace

bool GitChangeReader::Read(TreeBuilder& files) {
  const std::string* line = m_reader.Peek();
  if (line == nullptr) return false;
  if (auto change = m_reader.Take("M ")) {
    ReadFile(*change, files);
  } else if (auto removed = m_reader.Take("D ")) {
    files.Remove(PathFrom(*removed));
  } else if (auto copied = m_reader.Take("C ")) {
    Copy(*copied, files);
  } else if (auto renamed = m_reader.Take("R ")) {
    files.Remove(Copy(*renamed, files));
  } else if (*line == "deleteall") {
    m_reader.Next();
    files.Clear();
  } else {
    return false;
  }
  return true;
}

/// Returns the path from which a file or folder was copied.
std::string GitChangeReader::Copy(std::string_view text, TreeBuilder& files) const {
  std::string from;
  if (!TakeGitPath(text, true, from) || !text.starts_with(' ')) FailOnPath(text);
  const std::string to = PathFrom(text.substr(1));
  RequirePath(from);
  // A file may move into the folder that takes its place, or take the place of its folder.
  const bool is_nested = to.starts_with(from + '/') || from.starts_with(to + '/');
  if (from == to || (is_nested && !files.HasFile(from))) {
    m_reader.Fail("\"" + Shown(from) + "\" cannot become \"" + Shown(to) + '"');
  }
  if (!files.Copy(from, to)) m_reader.Fail("there is no file \"" + Shown(from) + '"');
  return from;
}

void GitChangeReader::ReadFile(std::string_view text, TreeBuilder& files) {
  const std::string mode(text.substr(0, text.find(' ')));
  text.remove_prefix(std::min(mode.size() + 1, text.size()));
  const std::string source(text.substr(0, text.find(' ')));
  text.remove_prefix(std::min(source.size() + 1, text.size()));
  const std::string path = PathFrom(text);
  if (mode == "160000") {
    ++m_notes[{"link", "to another repository left out"}];
    return;
  }
  const std::optional<FileKind> kind = KindOf(mode);
  if (!kind) m_reader.Fail("\"" + Shown(mode) + "\" is no mode of a file");
  files.Put(path,
            source == "inline" ? TalVcs::Kit::BlobFromBytes(m_reader.TakeData()) : BlobOf(source),
            *kind);
}

GitChangeReader::Blobs::const_iterator GitChangeReader::Find(const std::string& name) const {
  const std::optional<std::uint64_t> mark =
      name.starts_with(':') ? ParseNumber(std::string_view(name).substr(1)) : std::nullopt;
  return mark ? m_blobs.find(*mark) : m_blobs.end();
}

const TalVcs::Blob& GitChangeReader::BlobOf(const std::string& name) const {
  const auto found = Find(name);
  if (found == m_blobs.end()) {
    m_reader.Fail("the stream has no file content \"" + Shown(name) +
                  "\"; export everything, with the contents");
  }
  return found->second;
}

std::string GitChangeReader::PathFrom(std::string_view text) const {
  std::string path;
  if (!TakeGitPath(text, false, path) || !text.empty()) FailOnPath(text);
  RequirePath(path);
  return path;
}

void GitChangeReader::RequirePath(const std::string& path) const {
  if (path.empty() || path.ends_with('/') || path.find('\0') != path.npos || !ToWideExactly(path)) {
    FailOnPath(path);
  }
  std::string_view rest = path;
  while (!rest.empty()) {
    const std::string_view name = rest.substr(0, rest.find('/'));
    rest.remove_prefix(std::min(name.size() + 1, rest.size()));
    if (name.empty() || name == "." || name == ".." || name == Folder::kStoreName) {
      FailOnPath(path);
    }
  }
  if (path == FileKinds::kKindsName || path.starts_with(std::string(FileKinds::kKindsName) + '/'))
    FailOnPath(path);
}

void GitChangeReader::FailOnPath(std::string_view path) const {
  m_reader.Fail("\"" + Shown(path) + "\" is no path for a folder of this program");
}

}  // namespace Tal
