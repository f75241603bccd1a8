// The debug store (debug_pss_running): settings kept apart from the configuration, which copy to
// startup carries along to "scheduler_debug_startup". It holds the scheduler's logging level: the
// 4-byte key sch_get_syslog_pss_key() names, with the value {1, level} in big-endian words.
#ifndef SCHEDD_CONFIG_DEBUG_STORE_H
#define SCHEDD_CONFIG_DEBUG_STORE_H

#include <cstdint>
#include <string>

namespace schedd {

// Creates or opens the store. After a stateless restart it starts from the debug startup store,
// as the configuration starts from the startup store. `restore` sets the logging level from it.
// False with `error` set when the store cannot be had.
bool open_debug_store(bool stateless, bool restore, std::string *error);
void close_debug_store();

// Sets the scheduler's logging level (0..7) and keeps it; the default level forgets the record.
// Returns 0 or the store's status, with the level unchanged then.
uint32_t set_logging_level(uint32_t level);
// The level in force when none is kept.
void reset_logging_level();

}  // namespace schedd

#endif
