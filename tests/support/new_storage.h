#pragma once

#include <talvcs/storage/objects_storage.h>

#include <initializer_list>
#include <memory>

namespace TalVcs::Testing {

/// Returns a new storage with these branches, of which none has a head.
///
/// It is a `MemObjectsStorage`, or an `OnDemandStorage` over an empty store if the environment
/// variable TALVCS_TEST_STORAGE is "on_demand": what holds for one holds for the other.
std::unique_ptr<IObjectsStorage> NewStorage(
    std::initializer_list<TalStringViewT<WideChar>> branches = {TAL_WIDE("master")});

}  // namespace TalVcs::Testing
