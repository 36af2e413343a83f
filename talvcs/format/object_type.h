#pragma once

#include <talvcs/foundation/string.h>

namespace TalVcs {

/// The types of objects, in the order of their layers.
enum class ObjectType { Blob, Tree, Commit };

/// The word of each type, with which its packed form begins.
inline constexpr TalPlatform::TalStringViewT<char> kBlobType{"blob", 4};
inline constexpr TalPlatform::TalStringViewT<char> kTreeType{"tree", 4};
inline constexpr TalPlatform::TalStringViewT<char> kCommitType{"commit", 6};

/// The mode words, with which the records of a tree begin.
inline constexpr TalPlatform::TalStringViewT<char> kBlobMode{"100644", 6};
inline constexpr TalPlatform::TalStringViewT<char> kTreeMode{"40000", 5};

}  // namespace TalVcs
