#include <kit/store/internal/compression.h>

// A build without the compression library.

namespace TalVcs::Kit {

bool HasCompression() noexcept { return false; }

struct Compressor::Context {};
Compressor::Compressor() = default;
Compressor::~Compressor() = default;

bool Compressor::Append(std::span<const std::byte> /*bytes*/, std::span<const std::byte> /*prefix*/,
                        std::vector<std::byte>& /*target*/, CompressionEffort /*effort*/) {
  return false;
}

struct Decompressor::Context {};
Decompressor::Decompressor() = default;
Decompressor::~Decompressor() = default;

bool Decompressor::Read(std::span<const std::byte> /*compressed*/,
                        std::span<const std::byte> /*prefix*/, std::span<std::byte> /*target*/) {
  return false;
}

}  // namespace TalVcs::Kit
