#pragma once

#include "terminal.h"

#include <kit/text/progress.h>

#include <filesystem>

namespace Tal {

/// The short name of the library's companion, in which commands are written.
namespace Kit = TalVcs::Kit;

/// What every command gets: where it was started, and how it prints.
struct Host {
  std::filesystem::path start = ".";
  Terminal terminal;
  bool json = false;
};

/// Returns a progress that shows itself on the terminal, and that cancels the operation after an
/// interrupt. The terminal must outlive it.
Kit::Progress ShowProgress(const Terminal& terminal);

}  // namespace Tal
