#include <talvcs/directory/internal/object_source.h>

namespace TalVcs {

// FNV-1a over the code units, each name ended by a slash.
ObjectSource::Place ObjectSource::PlaceBelow(Place place, TalStringViewT<WideChar> name) noexcept {
  constexpr Place kPrime = 16777619;
  for (int index = 0; index < name.length; ++index) place = (place ^ name.text[index]) * kPrime;
  return (place ^ '/') * kPrime;
}

}  // namespace TalVcs
