// The scheduler's commands, one table entry each.
#ifndef SCHEDSH_COMMANDS_H
#define SCHEDSH_COMMANDS_H

#include "command_table.h"

namespace schedsh {

// Registers every command of every mode; throws std::logic_error when an entry is wrong.
void register_commands(CommandTable &table);

}  // namespace schedsh

#endif
