#pragma once

#include "choices.h"
#include "twins.h"

#include <memory>
#include <string>
#include <vector>

namespace ModelTest {

/// What was asked of the resolvers on each side, in order.
using Questions =
    Twin<std::shared_ptr<std::vector<std::string>>, std::shared_ptr<std::vector<std::string>>>;

using ResolversTwin = Twin<TalVcs::Resolvers, Model::Resolvers>;

/// Makes a pair of resolvers, constant, chained, by time, empty or deciding by a hash of the path,
/// that answer alike on both sides and write down what they were asked.
ResolversTwin MakeResolvers(Choices& choices, const Questions& questions);

}  // namespace ModelTest
