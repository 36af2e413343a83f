#include <talvcs/version.h>

#define TALVCS_TEXT_OF(value) #value
#define TALVCS_TEXT(value) TALVCS_TEXT_OF(value)

namespace TalVcs {

Version GetVersion() noexcept {
  return {TALVCS_VERSION_MAJOR, TALVCS_VERSION_MINOR, TALVCS_VERSION_PATCH};
}

const char* GetVersionText() noexcept {
  return TALVCS_TEXT(TALVCS_VERSION_MAJOR) "." TALVCS_TEXT(TALVCS_VERSION_MINOR) "." TALVCS_TEXT(
      TALVCS_VERSION_PATCH);
}

}  // namespace TalVcs
