#pragma once

#include <kit/open/statistics.h>
#include <kit/open/verify.h>

#include <cstdint>
#include <string>

namespace Tal {

/// Returns the table of what each branch costs. Says how many it leaves out beyond `mostBytes`.
std::string CostView(const TalVcs::Kit::StoreStatistics& statistics, std::uint64_t mostBytes);

/// Returns the result of a verification, with its damages up to `mostBytes`.
std::string VerifyView(const TalVcs::Kit::VerifyReport& report, std::uint64_t mostBytes);

}  // namespace Tal
