#include <talvcs/objects/internal/in_hand.h>

namespace TalVcs {

constinit thread_local int LookUpInHand::s_depth = 0;

}  // namespace TalVcs
