#include <gtest/gtest.h>
#include <kit/store/memory_object_store.h>
#include <kit/workspace/workspace.h>

#include <memory>
#include <string>
#include <thread>
#include <vector>

namespace TalVcs::Testing {
namespace {

// The recipe for saving on another thread: the workspace belongs to that thread, and gets bytes
// that nobody changes. The host goes on with its own copies of them.
TEST(WorkspaceThreads, WorkerSavesTheBytesThatTheHostHandsOver) {
  const auto store = std::make_shared<Kit::MemoryObjectStore>();
  std::vector<Kit::Bytes> shapes;
  for (int i = 0; i < 50; ++i) shapes.emplace_back("shape " + std::to_string(i));
  std::thread worker([store, shapes] {
    Kit::Workspace workspace = Kit::Workspace::Open(store).value();
    for (std::size_t i = 0; i < shapes.size(); ++i) {
      workspace.Write("shape", shapes[i]).value();
      workspace.Commit("Autosave " + std::to_string(i)).value();
    }
  });
  std::string seen;
  for (const Kit::Bytes& shape : shapes) {
    const Kit::Bytes copy = shape;
    seen += copy.text();
  }
  shapes.clear();
  worker.join();
  const Kit::Workspace workspace = Kit::Workspace::Open(store).value();
  EXPECT_EQ(workspace.Read("shape").value().text(), "shape 49");
  EXPECT_EQ(workspace.Log().value().size(), 50u);
  EXPECT_TRUE(seen.ends_with("shape 48shape 49"));
}

}  // namespace
}  // namespace TalVcs::Testing
