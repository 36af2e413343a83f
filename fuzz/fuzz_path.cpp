// Cuts and joins paths, and works on texts, against the standard library's strings.
//
// input := text 0xFF text 0xFF text      UTF-8; a root, a path, and a name

#include "checks.h"
#include "input.h"
#include "target.h"

#include <kit/text.h>
#include <talvcs/foundation/helpers.h>
#include <talvcs/foundation/string_conversion.h>
#include <talvcs/persistence/path_builder.h>
#include <tests/model/driver/comparison.h>
#include <tests/support/objects.h>

#include <limits>
#include <string>
#include <vector>

namespace {

using namespace TalVcs;  // NOLINT(google-build-using-namespace): everything here is about it
using Fuzz::Require;
using Model::Text;
using ModelTest::ExpectSame;
using ModelTest::FromLib;
using ModelTest::LibText;
using ModelTest::ToLib;

void Split(const Text& path) {
  const LibText wide = ToLib(path);
  const std::vector<TalStringViewT<WideChar>> components = Helpers::SplitVcsPath(wide);
  const Model::Components expected = Model::SplitPath(path);
  ExpectSame<std::uint64_t>("components", components.size(), expected.size());
  for (std::size_t i = 0; i < expected.size(); ++i) {
    ExpectSame("component", FromLib(components[i]), expected[i]);
  }

  // What is put at a path is found there, and under its components.
  if (expected.empty() || expected.size() > 100) return;
  const ModelTest::RepositoryTwin repository = Fuzz::NewRepository();
  Tree tree;
  Require(static_cast<bool>(tree.AddBlob(repository.lib.get(), wide, Testing::BlobOf("1"))),
          "a blob has a place at a path with components");
  Require(static_cast<bool>(tree.GetDeepBlob(wide)), "what was added is found by its path");
  Require(
      static_cast<bool>(tree.GetDeepBlob(array_view<const TalStringViewT<WideChar>>(components))),
      "what was added is found by its components");
  const std::vector<Text> listed = FromLib(tree.GetDeepBlobPaths());
  Require(listed.size() == 1 && Model::SplitPath(listed[0]) == expected, "it is listed so");
  Require(tree.RemoveObject(repository.lib.get(), wide) && tree.IsEmpty(), "and goes from there");
}

void Build(const Text& root, const Text& id, const Text& branch) {
  const PathBuilder paths(ToLib(root));
  const Text storage = Model::JoinPath(root, u".vcs");
  const Text objects = Model::JoinPath(storage, u"objects");
  const Text branches = Model::JoinPath(Model::JoinPath(storage, u"refs"), u"heads");
  ExpectSame("storage", FromLib(paths.GetStoragePath()), storage);
  ExpectSame("objects", FromLib(paths.GetObjectsPath()), objects);
  ExpectSame("branches", FromLib(paths.GetBranchesPath()), branches);
  ExpectSame("branch", FromLib(paths.GetBranch(ToLib(branch))), Model::JoinPath(branches, branch));
  const Text expected = Model::JoinPath(Model::JoinPath(objects, id.substr(0, 2)),
                                        id.substr(std::min<std::size_t>(2, id.size())));
  ExpectSame("object by text", FromLib(paths.GetObjectW(ToLib(id))), expected);
  ExpectSame("object by id", FromLib(paths.GetObjectW(Id(ToLib(id)))), expected);
}

void KeepNames(const Text& text) {
  const LibText wide = ToLib(text);
  const auto path = Kit::PathFromWide(wide);
  Require(path.has_value() == (text.find(u'\0') == Text::npos), "every text but one with a zero");
  if (!path) return;
  const auto back = Kit::WideFromPath(*path);
  Require(back && *back == wide, "a path returns the text that it came from");
}

// -1 means "not found" in the library and in no other place.
int Found(std::size_t index) { return index == Text::npos ? -1 : static_cast<int>(index); }

void Strings(const Text& text, const Text& other, int number) {
  const LibText lib = ToLib(text);
  const LibText libOther = ToLib(other);
  const auto from = static_cast<std::size_t>(std::max(number, 0));
  Require(lib.Find(libOther, number) == Found(text.find(other, from)), "Find");
  const auto clamped = [&](std::int64_t start, std::int64_t count) {
    const auto size = static_cast<std::int64_t>(text.size());
    start = std::clamp<std::int64_t>(start, 0, size);
    return text.substr(static_cast<std::size_t>(start),
                       static_cast<std::size_t>(std::max<std::int64_t>(count, 0)));
  };
  ExpectSame("Left", FromLib(lib.Left(number)), clamped(0, number));
  ExpectSame("Mid", FromLib(lib.Mid(number)), clamped(number, INT64_MAX));
  ExpectSame("Mid of a count", FromLib(lib.Mid(2, number)), clamped(2, number));
  const auto sign = [](int value) { return (value > 0) - (value < 0); };
  Require(sign(lib.Compare(libOther)) == sign(text.compare(other)), "Compare");
  Require((lib == libOther) == (text == other), "equality");
  Require(lib.StartsWith(libOther) == text.starts_with(other), "StartsWith");
  Require(lib.EndsWith(libOther) == text.ends_with(other), "EndsWith");
  ExpectSame("joined", FromLib(lib + libOther), text + other);

  using Limits = std::numeric_limits<std::int64_t>;
  using IntLimits = std::numeric_limits<int>;
  Require(TalUtils::String::Int64FromString(lib) ==
              Model::ReadNumber(text, Limits::min(), Limits::max()),
          "Int64FromString");
  Require(TalUtils::String::IntFromString(lib) ==
              Model::ReadNumber(text, IntLimits::min(), IntLimits::max()),
          "IntFromString");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Fuzz::Input input(data, size);
  const Text root = Model::DecodeUtf8(input.Part());
  const Text path = Model::DecodeUtf8(input.Part());
  const Text name = Model::DecodeUtf8(input.Part());
  Split(path);
  Build(root, path, name);
  KeepNames(root);
  KeepNames(path);
  // A number of any sign and size, from the first unit of the name.
  const int number = name.empty() ? -1 : static_cast<std::int16_t>(name[0]);
  Strings(root, name, number);
  Strings(path, root, number % 16);
  return 0;
}
