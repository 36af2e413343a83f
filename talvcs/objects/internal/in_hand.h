#pragma once

namespace TalVcs {

/// While one lives, look-ups of this thread are for objects that the library has in hand, to find
/// the instance that is stored already. A storage on demand answers them from memory: to ask the
/// store for each new object would cost a read each, and the answer would make no difference.
class LookUpInHand {
 public:
  LookUpInHand() noexcept { ++s_depth; }
  LookUpInHand(const LookUpInHand&) = delete;
  LookUpInHand& operator=(const LookUpInHand&) = delete;
  ~LookUpInHand() { --s_depth; }

  static bool IsActive() noexcept { return s_depth != 0; }

 private:
// The offset is known when the library is loaded, so counting takes one instruction.
#if defined(__GNUC__) && defined(__ELF__)
  [[gnu::tls_model("initial-exec")]]
#endif
  static constinit thread_local int s_depth;
};

}  // namespace TalVcs
