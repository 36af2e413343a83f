#pragma once

#include <cstddef>
#include <memory>
#include <span>
#include <vector>

namespace TalVcs::Kit {

/// True if this build has the compression library.
bool HasCompression() noexcept;

/// How long a `Compressor` looks for what it can leave out.
enum class CompressionEffort {
  Normal,
  /// Half as long. Digits of digests get no shorter by a longer look.
  Less,
};

/// Compresses bytes, with a prefix that both sides know. Keeps its working memory.
class Compressor {
 public:
  Compressor();
  Compressor(const Compressor&) = delete;
  Compressor& operator=(const Compressor&) = delete;
  ~Compressor();

  /// Appends `bytes`, compressed, to `target`. Returns false, with `target` unchanged, if this
  /// build has no compression or the library fails.
  bool Append(std::span<const std::byte> bytes, std::span<const std::byte> prefix,
              std::vector<std::byte>& target, CompressionEffort effort = CompressionEffort::Normal);

 private:
  struct Context;
  std::unique_ptr<Context> m_context;
};

/// Reads what a `Compressor` made. Keeps its working memory.
class Decompressor {
 public:
  Decompressor();
  Decompressor(const Decompressor&) = delete;
  Decompressor& operator=(const Decompressor&) = delete;
  ~Decompressor();

  /// Fills `target` with what was compressed. Zeros may follow `compressed`. Returns false if the
  /// bytes are damaged or make another number of bytes; `target` has no meaning then.
  bool Read(std::span<const std::byte> compressed, std::span<const std::byte> prefix,
            std::span<std::byte> target);

 private:
  struct Context;
  std::unique_ptr<Context> m_context;
};

}  // namespace TalVcs::Kit
