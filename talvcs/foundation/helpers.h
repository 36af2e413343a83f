#pragma once

#include <talvcs/export.h>
#include <talvcs/foundation/names.h>

#include <cstddef>
#include <vector>

/// Free functions between the object model and the lower layers. None keeps state.
namespace TalVcs::Helpers {

/// Returns the SHA-256 of `size` bytes as 64 lower-case hexadecimal characters, or an empty text if
/// `data` is null.
TALVCS_API TalStringT<WideChar> ComputeEncodedSHA256Hash(const void* data, std::size_t size);

/// Returns the SHA-256 of the bytes of `data`, of all segments as one run, or an empty text for an
/// empty buffer. Nothing is copied.
TALVCS_API TalStringT<WideChar> ComputeEncodedSHA256Hash(const Buffer& data);

/// Appends the bytes of `source` by sharing its segments.
TALVCS_API void AppendToBuffer(Buffer& target, const Buffer& source);

/// Appends the bytes of `text` as they are, without a terminator.
TALVCS_API void AppendToBuffer(Buffer& target, TalStringViewT<char> text);

/// Appends `text` up to its first U+0000 as UTF-8, without a terminator.
TALVCS_API void AppendToBuffer(Buffer& target, TalStringViewT<WideChar> text);

/// Returns the bytes of `data` as one text, zeros included. If their number exceeds an `int`, the
/// first 0x7FFFFFFF.
TALVCS_API TalStringT<char> StringAFromBuffer(const Buffer& data);

/// Returns the rest of `stream`, from `GetPosition` to `GetSize`. Returns an empty text if that is
/// nothing, or if fewer bytes can be read.
TALVCS_API TalStringT<char> StreamToStringA(StreamIO& stream);

/// Moves `stream` past the header of an object, that is past the next zero byte.
///
/// Returns true if the header begins with `expected`. The stream is past the header after a
/// mismatch too. Without a zero byte it is at its end, and the result is false.
TALVCS_API bool ShiftObjectIdentifier(StreamIO& stream, TalStringViewT<char> expected);

/// Returns the components of `path`, which are separated by "/". Empty ones are left out.
///
/// The components are views of the caller's text, which has to outlive them.
TALVCS_API std::vector<TalStringViewT<WideChar>> SplitVcsPath(TalStringViewT<WideChar> path);

}  // namespace TalVcs::Helpers
