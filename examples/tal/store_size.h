#pragma once

#include "text.h"

#include <functional>
#include <string>

namespace Tal {

/// What the streams of the objects in a store come to.
struct StoreSize {
  std::uint64_t objects = 0;
  std::uint64_t bytes = 0;
};

/// Calls `visit(id, stream)` for every object in a store, whether a branch reaches it or not.
void VisitObjects(TalVcs::IBlobReader& reader,
                  const std::function<void(const std::string&, TalVcs::StreamIO&)>& visit);

StoreSize MeasureStore(TalVcs::IBlobReader& reader);

}  // namespace Tal
