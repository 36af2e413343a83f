#pragma once

#include <span>

namespace Tal {

class Commands;

/// Adds the commands of one source. A new source needs a line here and one in the table.
using AddCommands = void (*)(Commands& commands);

void AddWorkCommands(Commands& commands);
void AddLogCommands(Commands& commands);
void AddDiffCommands(Commands& commands);
void AddFileCommands(Commands& commands);
void AddBranchCommands(Commands& commands);
void AddMergeCommands(Commands& commands);
void AddRestoreCommands(Commands& commands);
void AddStoreCommands(Commands& commands);
void AddRewriteCommands(Commands& commands);
void AddCheckCommands(Commands& commands);
void AddExchangeCommands(Commands& commands);
void AddSharingCommands(Commands& commands);

/// Returns the functions that add all commands, in the order of the help.
std::span<const AddCommands> GetCommandTable();

}  // namespace Tal
