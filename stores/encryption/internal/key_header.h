#pragma once

#include <kit/text/result.h>
#include <stores/encryption/encrypted_store.h>
#include <stores/encryption/internal/secret.h>

#include <string>
#include <string_view>

namespace TalVcs::Kit::Encryption {

/// The name of the value of the store below that says how to open it.
inline constexpr std::string_view kHeaderName = "talvcs.encryption";

/// Returns a new header, which has `key` encrypted under `password`. Fails with `Unsupported` for
/// the cost and with `Unavailable` without enough memory.
Result<std::string> MakeHeader(const Key& key, std::string_view password, const PasswordCost& cost);

/// Puts the key that `header` has into `key`. Fails with `Damaged` or `Unsupported` for the header,
/// with `Denied` for the password, and with `Unavailable` without enough memory.
Status OpenHeader(std::string_view header, std::string_view password, const PasswordCost& mostCost,
                  Key& key);

}  // namespace TalVcs::Kit::Encryption
