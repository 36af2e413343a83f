#include "store_size.h"

namespace Tal {

void VisitObjects(TalVcs::IBlobReader& reader,
                  const std::function<void(const std::string&, TalVcs::StreamIO&)>& visit) {
  constexpr std::string_view kDigits = "0123456789abcdef";
  const TalVcs::PathBuilder paths{WideString()};
  for (const char first : kDigits) {
    for (const char second : kDigits) {
      const std::string prefix{first, second};
      const WideString folder = paths.GetObjectsPath() + WideView(ToWide("/" + prefix));
      for (const WideString& rest : reader.ListBlobs(folder)) {
        const std::string id = prefix + ToUtf8(rest);
        TalVcs::StreamIO stream = reader.OpenBlob(paths.GetObjectW(ToWide(id)));
        visit(id, stream);
      }
    }
  }
}

StoreSize MeasureStore(TalVcs::IBlobReader& reader) {
  StoreSize size;
  VisitObjects(reader, [&](const std::string&, const TalVcs::StreamIO& stream) {
    ++size.objects;
    size.bytes += stream.GetSize();
  });
  return size;
}

}  // namespace Tal
