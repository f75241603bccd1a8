// Debug output of the daemon: buginf lines at the levels switched on with --debug.
#ifndef SCHEDD_DEBUG_H
#define SCHEDD_DEBUG_H

namespace schedd {

// The levels the library traces at, reused so that one switch shows both.
inline constexpr int kDebugStartup = 100;
inline constexpr int kDebugRequest = 103;

// Writes the formatted line to buginf when `level` is switched on.
void debug(int level, const char *format, ...) __attribute__((format(printf, 2, 3)));

}  // namespace schedd

#endif
