// Merges texts for a test in another language.
//
// usage: talvcs_merge_texts < TEXTS
//
// The input is a list of texts, each as its size in bytes, a line end and the bytes: root, left and
// right of the first merge, then those of the next. The output has for each merge the number of
// conflicts, a blank, and the merged text with conflict markers in the same form.

#include <kit/merge/text_merge.h>

#include <iostream>
#include <optional>
#include <string>

namespace {

std::optional<std::string> ReadText() {
  std::size_t size = 0;
  if (!(std::cin >> size)) return std::nullopt;
  std::cin.get();
  std::string text(size, '\0');
  std::cin.read(text.data(), static_cast<std::streamsize>(size));
  return text;
}

}  // namespace

int main() {
  std::ios::sync_with_stdio(false);
  while (const std::optional<std::string> root = ReadText()) {
    const std::string left = ReadText().value();
    const std::string right = ReadText().value();
    const TalVcs::Kit::TextMerge merge =
        TalVcs::Kit::MergeText(*root, left, right,
                               {.conflictText = TalVcs::Kit::ConflictText::Markers})
            .value();
    std::cout << merge.conflicts.size() << ' ' << merge.text.size() << '\n' << merge.text;
  }
  return std::cin.eof() ? 0 : 1;
}
