#pragma once

#include <tests/model/plain/store.h>

#include <talvcs/talvcs.h>

#include <cstdint>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace ModelTest {

/// Something of the library beside its counterpart in the model.
template <class Library, class Plain>
struct Twin {
  Library lib;
  Plain model;

  explicit operator bool() const { return static_cast<bool>(lib); }
};

using CommitTwin = Twin<TalVcs::cow_ptr<TalVcs::Commit>, Model::Handle<Model::Commit>>;
using TreeTwin = Twin<TalVcs::cow_ptr<TalVcs::Tree>, Model::Handle<Model::Tree>>;
using BlobTwin = Twin<TalVcs::cow_ptr<TalVcs::Blob>, Model::Handle<Model::Blob>>;
using DraftTwin = Twin<std::unique_ptr<TalVcs::Commit>, std::unique_ptr<Model::Commit>>;
using CommitTreeTwin = Twin<TalVcs::CommitTree, Model::CommitTree>;
using RepositoryTwin =
    Twin<std::unique_ptr<TalVcs::Repository>, std::unique_ptr<Model::Repository>>;
using StoreTwin = Twin<Model::Store, Model::Store>;

/// Raised where the library and the model differ.
class Mismatch : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

using LibText = TalVcs::TalStringT<TalVcs::WideChar>;

LibText ToLib(const Model::Text& text);
TalVcs::Blob BlobOf(const Model::Bytes& data);
TalVcs::Id ToLibId(const Model::Id& id);
Model::Text FromLib(TalVcs::TalStringViewT<TalVcs::WideChar> text);
Model::Id FromLib(const TalVcs::Id& id);
Model::Bytes FromLib(const TalVcs::Buffer& buffer);
std::vector<Model::Text> FromLib(const std::vector<LibText>& texts);
Model::Stamp StampOf(const TalVcs::Commit& commit);

/// Printable forms for messages.
std::string Show(const Model::Text& text);
std::string Show(const std::string& bytes);
std::string Show(std::uint64_t number);
std::string Show(const std::vector<Model::Text>& texts);

/// Raises a `Mismatch` that names `what` unless both values are equal.
template <class T>
void ExpectSame(std::string_view what, const T& lib, const T& model) {
  if (lib == model) return;
  throw Mismatch(std::string(what) + ": library " + Show(lib) + ", model " + Show(model));
}

template <class T>
void ExpectSameBool(std::string_view what, const T& lib, bool model) {
  ExpectSame<std::uint64_t>(what, static_cast<bool>(lib) ? 1 : 0, model ? 1 : 0);
}

}  // namespace ModelTest
