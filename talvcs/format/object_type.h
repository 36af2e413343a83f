#pragma once

namespace TalVcs {

/// The types of objects, in the order of their layers.
enum class ObjectType { Blob, Tree, Commit };

}  // namespace TalVcs
