// A sketchbook: pages of shapes, each shape a small JSON file. Two people draw in it, at the same
// time too. The folder of the sketchbook is the only argument.

#include <kit/merge/content_merger.h>
#include <kit/store/directory_object_store.h>
#include <kit/workspace/workspace.h>

#include <chrono>
#include <filesystem>
#include <iostream>
#include <string>
#include <utility>

using namespace TalVcs;

namespace {

// --- Shapes ---------------------------------------------------------------------------------

struct Shape {
  std::string kind;
  int x = 0;
  int y = 0;
  std::string color = "black";
};

std::string ToJson(const Shape& shape) {
  return "{\n  \"kind\": \"" + shape.kind + "\",\n  \"x\": " + std::to_string(shape.x) +
         ",\n  \"y\": " + std::to_string(shape.y) + ",\n  \"color\": \"" + shape.color + "\"\n}\n";
}

/// Returns a file in one line, for printing.
std::string InLine(const Kit::Bytes& bytes) {
  std::string line;
  for (const char c : bytes.text()) {
    if (c != '\n' && !(c == ' ' && line.ends_with(' '))) line += c;
  }
  return line;
}

void PrintPage(const Kit::Workspace& sketch, const std::string& page) {
  for (const Kit::FolderEntry& shape : sketch.List(page).value()) {
    std::cout << "  " << shape.name << ": " << InLine(sketch.Read(page + "/" + shape.name).value())
              << '\n';
  }
}

// --- Opening --------------------------------------------------------------------------------

Kit::Workspace OpenSketchbook(const std::filesystem::path& folder, const std::string& person) {
  Kit::Result<Kit::DirectoryObjectStore> store = Kit::DirectoryObjectStore::Open(folder);
  if (!store && store.error().code == Kit::ErrorCode::NotFound) {
    store = Kit::DirectoryObjectStore::Create(folder);
  }
  Kit::WorkspaceOptions options{.author = person};
  options.mergers.Add("pages/**", Kit::MakeJsonMerger());
  return Kit::Workspace::Open(std::move(store), options).value();
}

// --- Autosave -------------------------------------------------------------------------------

/// Moves a shape with the mouse. Each step is saved, and all of them are one version.
void Drag(Kit::Workspace& sketch, const std::string& path, Shape shape, int toX) {
  const std::string gesture = "drag " + path + " to " + std::to_string(toX);
  std::chrono::sys_seconds now(std::chrono::seconds(1700000000));
  while (shape.x < toX) {
    shape.x += 10;
    sketch.Write(path, ToJson(shape)).value();
    sketch.Checkpoint("Move the " + shape.kind, gesture, now += std::chrono::seconds(1)).value();
  }
}

// --- Undo -----------------------------------------------------------------------------------

void PrintMenu(const Kit::Workspace& sketch) {
  const auto undo = sketch.FindUndo().value();
  const auto redo = sketch.FindRedo().value();
  std::cout << "  Undo: " << (undo ? undo->summary : "-")
            << ", redo: " << (redo ? redo->summary : "-") << '\n';
}

// --- Conflicts ------------------------------------------------------------------------------

std::string TextOf(const Kit::ConflictSide& side) {
  return side.content ? InLine(*side.content) : "nothing";
}

/// Shows each shape that both sides have changed, and keeps ours where they disagree.
Kit::Decisions Decide(const Kit::MergePreview& preview) {
  Kit::Decisions decisions;
  for (const Kit::Conflict& conflict : preview.conflicts) {
    std::cout << "  both changed " << conflict.path << '\n'
              << "    before: " << TextOf(conflict.base) << '\n'
              << "    ours:   " << TextOf(conflict.ours) << '\n'
              << "    theirs: " << TextOf(conflict.theirs) << '\n';
    for (const Kit::ContentConflict& place : conflict.places) {
      std::cout << "    they disagree about " << place.place << '\n';
    }
    // The merger has brought everything else together.
    decisions.emplace(conflict.path, conflict.merged ? Kit::Decision::Content(*conflict.merged)
                                                     : Kit::Decision::Ours());
  }
  return decisions;
}

// --- Two people -----------------------------------------------------------------------------

/// Saves. If somebody else has saved meanwhile, both edits come together first.
void Save(Kit::Workspace& sketch, const std::string& message) {
  auto saved = sketch.Commit(message);
  while (!saved && saved.error().code == Kit::ErrorCode::HeadMoved) {
    const Kit::MergePreview preview = sketch.PreviewReload().value();
    // If the branch has moved again since the preview, look again.
    if (sketch.Reload(Decide(preview)).ok()) saved = sketch.Commit(message);
  }
  (void)saved.value();
}

// --- History --------------------------------------------------------------------------------

void PrintHistory(const Kit::Workspace& sketch, const std::string& path) {
  for (const Kit::Version& version : sketch.Log({.path = path, .limit = 20}).value()) {
    const Kit::Snapshot then = sketch.At(version.id).value();
    std::cout << "  " << version.author << ", " << version.summary << ": "
              << (then.Contains(path).value() ? InLine(then.Read(path).value()) : "nothing")
              << '\n';
  }
}

// --- A day with the sketchbook ----------------------------------------------------------------

void Draw(const std::filesystem::path& folder) {
  std::cout << "Draw and drag\n";
  Kit::Workspace sketch = OpenSketchbook(folder, "Ada");
  sketch.Write("pages/1/house", ToJson({"house", 10, 10})).value();
  sketch.Write("pages/1/tree", ToJson({"tree", 50, 10})).value();
  Save(sketch, "Draw a house and a tree");
  Drag(sketch, "pages/1/house", {"house", 10, 10}, 40);
  std::cout << "  " << sketch.Log().value().size() << " versions\n";
  sketch.Undo().value();
}

void GoOn(const std::filesystem::path& folder) {
  std::cout << "Another session\n";
  Kit::Workspace sketch = OpenSketchbook(folder, "Ada");
  PrintMenu(sketch);
  sketch.Redo().value();
  PrintMenu(sketch);
  PrintPage(sketch, "pages/1");
}

void DrawTogether(const std::filesystem::path& folder) {
  std::cout << "Two people\n";
  Kit::Workspace ada = OpenSketchbook(folder, "Ada");
  Kit::Workspace bob = OpenSketchbook(folder, "Bob");
  ada.Write("pages/1/house", ToJson({"house", 40, 20})).value();
  bob.Write("pages/1/house", ToJson({"house", 40, 10, "red"})).value();
  Save(ada, "Lift the house");
  Save(bob, "Paint the house");
  PrintPage(bob, "pages/1");
  ada.Reload().value();
  ada.Undo().value();  // Ada's own edit, under Bob's
  PrintPage(ada, "pages/1");
}

void MergeByShape(const std::filesystem::path& folder) {
  std::cout << "Merge\n";
  Kit::Workspace sketch = OpenSketchbook(folder, "Ada");
  sketch.CreateBranch("winter").value();
  sketch.Write("pages/1/tree", ToJson({"tree", 60, 10, "green"})).value();
  Save(sketch, "Paint the tree");
  sketch.Switch("winter").value();
  sketch.Write("pages/1/tree", ToJson({"tree", 50, 30, "white"})).value();
  Save(sketch, "Snow on the tree");
  sketch.Switch("master").value();
  const Kit::MergePreview preview = sketch.PreviewMerge("winter").value();  // nothing has changed
  sketch.Merge(preview, Decide(preview)).value();
  PrintPage(sketch, "pages/1");
}

void LookBack(const std::filesystem::path& folder) {
  std::cout << "History of the tree\n";
  PrintHistory(OpenSketchbook(folder, "Ada"), "pages/1/tree");
}

}  // namespace

int main(int count, char** arguments) {
  const std::filesystem::path folder = count > 1 ? arguments[1] : "sketchbook";
  try {
    Draw(folder);
    GoOn(folder);
    DrawTogether(folder);
    MergeByShape(folder);
    LookBack(folder);
  } catch (const Kit::ErrorException& exception) {
    std::cerr << exception.what() << '\n';
    return 1;
  }
  return 0;
}
