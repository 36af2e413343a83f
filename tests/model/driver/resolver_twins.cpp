#include "resolver_twins.h"

namespace ModelTest {
namespace {

using LibPath = TalVcs::array_view<const TalVcs::TalStringViewT<TalVcs::WideChar>>;
using BlobResolver = Twin<TalVcs::ConflictResolver, Model::Resolver>;
using TreeResolver = Twin<TalVcs::TreeConflictResolver, Model::Resolver>;

std::string IdOf(const Model::Handle<Model::Tree>& tree) { return tree ? tree->GetId() : "none"; }

std::string IdOf(const TalVcs::cow_ptr<TalVcs::Tree>& tree) {
  return tree ? FromLib(tree->GetId()) : "none";
}

Model::Components FromLib(LibPath path) {
  Model::Components components;
  for (const auto& component : path) components.push_back(ModelTest::FromLib(component));
  return components;
}

template <class Trees>
std::string Question(const char* kind, const Model::Components& path, const Trees& trees) {
  return kind + Show(path) + IdOf(trees.left) + IdOf(trees.root) + IdOf(trees.right);
}

unsigned HashOf(const Model::Components& path, unsigned salt) {
  unsigned hash = 2166136261U ^ salt;
  for (const Model::Text& component : path) {
    for (const char16_t unit : component + u"/") hash = (hash ^ unit) * 16777619U;
  }
  return hash >> 8;
}

// Answers drawn by the hash of the path; one is no answer that the enumerations know.
unsigned BlobAnswerAt(const Model::Components& path, unsigned salt) {
  constexpr unsigned answers[] = {Model::BlobLeft,  Model::BlobRight, Model::BlobRoot,
                                  Model::BlobLeft,  Model::BlobRight, Model::BlobRoot,
                                  Model::BlobRight, Model::BlobLeft,  77};
  const unsigned hash = HashOf(path, salt);
  return salt % 4 == 0 && hash % 5 == 0 ? Model::BlobUndecided : answers[hash % 9];
}

unsigned TreeAnswerAt(const Model::Components& path, unsigned salt) {
  constexpr unsigned answers[] = {Model::TreeDescend, Model::TreeDescend, Model::TreeDescend,
                                  Model::TreeDescend, Model::TreeDescend, 99,
                                  Model::TreeLeft,    Model::TreeRight,   Model::TreeRoot};
  const unsigned hash = HashOf(path, salt);
  if (path.empty() && salt % 3 != 0) return Model::TreeDescend;
  return salt % 4 == 0 && hash % 5 == 0 ? Model::TreeUndecided : answers[hash % 9];
}

std::optional<std::uint64_t> TimeIn(const Model::Bytes& data) {
  if (data.empty() || data[0] < '0' || data[0] > '9') return std::nullopt;
  // The digit 9 is an instant with the highest bit set.
  return data[0] == '9' ? ~std::uint64_t{0} : static_cast<std::uint64_t>(data[0] - '0');
}

BlobResolver ByTime(Choices& choices) {
  std::vector<Model::Text> files;
  std::vector<LibText> libFiles;
  static const std::vector<Model::Text> names = {u"t", u"a", u"b/a", u"/A/", u""};
  while (!choices.OneIn(3)) {
    files.push_back(choices.Of(names));
    libFiles.push_back(ToLib(files.back()));
  }
  if (choices.OneIn(8)) {
    return {TalVcs::TimeBasedConflictResolver(libFiles, {}), Model::ByTime(files, nullptr)};
  }
  const auto libTime =
      [](const TalVcs::cow_ptr<TalVcs::Blob>& blob) -> std::optional<TalVcs::Time> {
    const auto time = TimeIn(ModelTest::FromLib(blob->GetData()));
    return time ? std::optional<TalVcs::Time>(TalVcs::Time{*time}) : std::nullopt;
  };
  const auto time = [](const Model::Handle<Model::Blob>& blob) { return TimeIn(blob->GetData()); };
  return {TalVcs::TimeBasedConflictResolver(libFiles, libTime), Model::ByTime(files, time)};
}

Model::Resolver Constant(unsigned answer) {
  return [answer](const Model::Components&, const Model::MergeTrees&) { return answer; };
}

BlobResolver MakeBlobResolver(Choices& choices, const Questions& questions, int depth) {
  switch (choices.Below(depth < 3 ? 10 : 6)) {
    case 0:
      return {};
    case 1:
      return {TalVcs::AlwaysChooseLeft(), Constant(Model::BlobLeft)};
    case 2:
      return {TalVcs::AlwaysChooseRight(), Constant(Model::BlobRight)};
    case 3:
      return {TalVcs::AlwaysChooseRoot(), Constant(Model::BlobRoot)};
    case 6:
    case 7: {
      const BlobResolver first = MakeBlobResolver(choices, questions, depth + 1);
      const BlobResolver second = MakeBlobResolver(choices, questions, depth + 1);
      return {TalVcs::ChainResolvers(first.lib, second.lib),
              Model::Chain(first.model, second.model, Model::BlobUndecided)};
    }
    case 8:
    case 9: {
      const BlobResolver otherwise = MakeBlobResolver(choices, questions, depth + 1);
      const BlobResolver byTime = ByTime(choices);
      return {TalVcs::ChainResolvers(byTime.lib, otherwise.lib),
              Model::Chain(byTime.model, otherwise.model, Model::BlobUndecided)};
    }
    default: {
      const unsigned salt = choices.Below(64);
      return {[=](LibPath path, const TalVcs::MergeTrees& trees) {
                questions.lib->push_back(Question("blob", FromLib(path), trees));
                return static_cast<TalVcs::ConflictChoice>(BlobAnswerAt(FromLib(path), salt));
              },
              [=](const Model::Components& path, const Model::MergeTrees& trees) {
                questions.model->push_back(Question("blob", path, trees));
                return BlobAnswerAt(path, salt);
              }};
    }
  }
}

TreeResolver MakeTreeResolver(Choices& choices, const Questions& questions, int depth) {
  switch (choices.Below(depth < 3 ? 16 : 12)) {
    case 0:
      return {};
    case 12:
    case 13: {
      const TreeResolver first = MakeTreeResolver(choices, questions, depth + 1);
      const TreeResolver second = MakeTreeResolver(choices, questions, depth + 1);
      return {TalVcs::ChainResolvers(first.lib, second.lib),
              Model::Chain(first.model, second.model, Model::TreeUndecided)};
    }
    default: {
      const unsigned salt = choices.Below(64);
      return {[=](LibPath path, const TalVcs::MergeTrees& trees) {
                questions.lib->push_back(Question("tree", FromLib(path), trees));
                return static_cast<TalVcs::TreeConflictChoice>(TreeAnswerAt(FromLib(path), salt));
              },
              [=](const Model::Components& path, const Model::MergeTrees& trees) {
                questions.model->push_back(Question("tree", path, trees));
                return TreeAnswerAt(path, salt);
              }};
    }
  }
}

}  // namespace

ResolversTwin MakeResolvers(Choices& choices, const Questions& questions) {
  BlobResolver blob = MakeBlobResolver(choices, questions, 0);
  TreeResolver tree = MakeTreeResolver(choices, questions, 0);
  return {TalVcs::Resolvers{std::move(blob.lib), std::move(tree.lib)},
          Model::Resolvers{std::move(blob.model), std::move(tree.model)}};
}

}  // namespace ModelTest
