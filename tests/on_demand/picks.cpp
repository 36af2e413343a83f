#include <tests/on_demand/lockstep.h>
#include <tests/support/contents.h>

#include <algorithm>
#include <array>

namespace TalVcs::Testing {

std::string Lockstep::PickBranch() {
  static const std::array<const char*, 5> names = {"master", "master", "one", "two", "three"};
  return m_random.Of(names);
}

// Directories "a" to "c" in up to three levels, and one that is deep. Where names collide, a
// directory's name can be a file's.
std::string Lockstep::PickPath() {
  static const std::array<const char*, 3> directories = {"a", "b", "c"};
  static const std::array<const char*, 7> files = {"f0", "f1", "f2", "f3", "f4", "f5", "f6"};
  std::string path;
  if (m_random.OneIn(25)) path = "d/d/d/d/d/d/d/d/d/";
  const std::size_t levels = m_random.Below(4);
  for (std::size_t level = 0; level < levels; ++level) {
    path += std::string(m_random.Of(directories)) + '/';
  }
  if (m_namesCollide && m_random.OneIn(4)) return path + m_random.Of(directories);
  if (m_random.OneIn(12)) return path + "f" + std::to_string(m_random.Below(100));
  return path + m_random.Of(files);
}

std::string Lockstep::PickText() {
  static const std::array<const char*, 8> texts = {
      "text", "",  "two\nlines", "three\n\nparent lines\n", "a <b> c", "tree x\nparent y",
      " ",    "\n"};
  return m_random.Of(texts);
}

std::string Lockstep::PickContent() {
  return m_random.OneIn(12) ? std::string() : "content " + std::to_string(m_random.Below(12));
}

Version Lockstep::PickVersion(std::size_t repository) {
  Version version{repository, PickBranch(), 0};
  while (m_random.OneIn(2) && version.stepsUp < 12) ++version.stepsUp;
  return version;
}

// The tables have no order of their own, so that the least of some ids is taken.
Id Lockstep::PickStoredId(std::size_t repository, bool tree) {
  const IObjectsStorage& storage = *m_ordinary.repositories[repository]->GetStorage();
  std::vector<std::string> ids;
  if (tree) {
    for (const auto& [id, object] : storage.GetTrees()) ids.push_back(Ascii(id));
  } else {
    for (const auto& [id, object] : storage.GetBlobs()) ids.push_back(Ascii(id));
  }
  if (ids.empty()) return Id(Wide("no id"));
  std::sort(ids.begin(), ids.end());
  return Id(Wide(m_random.Of(ids)));
}

}  // namespace TalVcs::Testing
