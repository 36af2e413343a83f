#include <kit/store/object_store.h>

namespace TalVcs::Kit {

IObjectStore::~IObjectStore() = default;

bool IsObjectId(const Id& id) noexcept {
  constexpr int kDigits = 64;
  const TalStringViewT<WideChar> text = id.View();
  if (text.length != kDigits) return false;
  for (int index = 0; index < kDigits; ++index) {
    const WideChar digit = text.text[index];
    const bool decimal = digit >= '0' && digit <= '9';
    if (!decimal && (digit < 'a' || digit > 'f')) return false;
  }
  return true;
}

}  // namespace TalVcs::Kit
