#include "command_table.h"

#include <array>

namespace Tal {

std::span<const AddCommands> GetCommandTable() {
  static constexpr std::array kTable = {
      AddWorkCommands,   AddLogCommands,   AddDiffCommands,     AddFileCommands,
      AddBranchCommands, AddMergeCommands, AddRestoreCommands,  AddRewriteCommands,
      AddCheckCommands,  AddStoreCommands, AddExchangeCommands, AddSharingCommands,
  };
  return kTable;
}

}  // namespace Tal
