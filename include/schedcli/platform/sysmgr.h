/* Where the scheduler's stores live. The host (daemon or test) sets the state and runtime
 * directories once at start; the library asks for URI prefixes and complete URIs.
 *
 * State directory: startup/ and debug/ stores, the log file, the device key; survives reboots.
 * Runtime directory: the running stores and the daemon's socket; gone after a reboot, so finding
 * it missing at start means a stateless restart. */
#ifndef SCHEDCLI_PLATFORM_SYSMGR_H
#define SCHEDCLI_PLATFORM_SYSMGR_H

#include <stddef.h>

#include "schedcli/export.h"

SCHED_BEGIN_DECLS

/* Sets both directories (absolute or relative paths, at most 200 bytes each; trailing slashes are
 * dropped), notes whether the runtime directory existed (a missing one is a stateless restart),
 * and creates the directories (mode 0750) with startup/ and debug/ under the state directory.
 * Returns 0, or an errno value (EINVAL for a null or empty path, ENAMETOOLONG, or what mkdir
 * reported) with nothing changed: directories made by the failed call are removed again. */
SCHED_EXPORT int sysmgr_dirs_set(const char *state_dir, const char *runtime_dir);
/* Forgets the directories (prefixes become NULL). */
SCHED_EXPORT void sysmgr_dirs_clear(void);
SCHED_EXPORT const char *sysmgr_state_dir(void);
SCHED_EXPORT const char *sysmgr_runtime_dir(void);

/* The defaults a host uses when it is given no directory: for root /var/lib/schedcli and
 * /run/schedcli; otherwise $XDG_STATE_HOME/schedcli (or ~/.local/state/schedcli) and
 * $XDG_RUNTIME_DIR/schedcli (or /tmp/schedcli-UID). Return 0, or -1 when the buffer is short. */
SCHED_EXPORT int sysmgr_default_state_dir(char *buffer, size_t size);
SCHED_EXPORT int sysmgr_default_runtime_dir(char *buffer, size_t size);

/* URI prefixes ending in '/', or NULL before the directories are set. */
SCHED_EXPORT const char *sysmgr_running_cfg_uri_get(void);
SCHED_EXPORT const char *sysmgr_startup_cfg_uri_get(void);
SCHED_EXPORT const char *sysmgr_debug_cfg_uri_get(void);
/* prefix + middle + name in a buffer of the calling thread, valid until its next call; the
 * caller copies it at once. NULL pieces count as empty. */
SCHED_EXPORT const char *sysmgr_uri_complete(const char *prefix, const char *middle, const char *name);
/* Non-zero when the runtime directory was missing when the directories were set, or when
 * sysmgr_stateless_restart_set was called since. */
SCHED_EXPORT int sysmgr_is_stateless_restart(void);
/* Makes this start a stateless restart: a host that finds its running stores unusable (a start-up
 * cut short left them) starts from the startup configuration, as after a boot. */
SCHED_EXPORT void sysmgr_stateless_restart_set(void);

SCHED_END_DECLS

#endif
