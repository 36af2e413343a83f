#include "merged_heads.h"

#include "../text.h"

namespace Tal {

std::string MergedTagOf(const TalVcs::Id& version) {
  constexpr std::size_t kDigits = 12;
  return "merged/" + ToUtf8(version).substr(0, kDigits);
}

}  // namespace Tal
