#pragma once

#include "input.h"

#include <tests/model/plain/store.h>

#include <string>
#include <vector>

namespace Fuzz {

/// Writes the streams of objects as inputs spell them.
///
/// An id has 64 characters, which no fuzzer guesses. So a byte 0x01 and a character mean one:
/// "A" for the digest of the first object, "B" for that of the second, and so on; any other
/// character, or a letter whose object hasn't come yet, for an id that consists of that character.
/// A byte 0x02 means the number of bytes after the next zero byte, as a header has it.
class StreamWriter {
 public:
  /// Returns the bytes of a stream.
  std::string Expand(const std::string& text) const;

  /// Counts an object, which the next letter means from now on. Returns its id.
  Model::Id Add(const std::string& bytes);

  static std::string IdOf(char character) { return std::string(64, character); }

 private:
  std::string IdFor(char character) const;

  std::vector<Model::Id> m_ids;
};

// store  := stream*                      ended by an empty stream or the end
// stream := kind text 0xFF
// kind   := "b"                          a branch; its text begins with the name and a line end
//         | "o"                          an object under the digest of its bytes
//         | any other character          an object under the id that consists of that character

/// Reads a store with the root path `rootPath`.
Model::Store ReadStore(Input& input, StreamWriter& writer, const Model::Text& rootPath);

}  // namespace Fuzz
