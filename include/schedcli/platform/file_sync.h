/* Making files and names durable: the one place that knows a new file or a rename survives a crash
 * only once the file and then the directory that names it are synced.
 *
 * Results are 0 or an errno value (EBADF for a negative descriptor, EINVAL for a NULL or empty
 * path); an interrupted sync is retried. Nothing here closes the descriptor it is given. */
#ifndef SCHEDCLI_PLATFORM_FILE_SYNC_H
#define SCHEDCLI_PLATFORM_FILE_SYNC_H

#include <stddef.h>

#include "schedcli/export.h"

SCHED_BEGIN_DECLS

/* Writes all `size` bytes to `fd`, again after a short write or an interrupted one; EIO when a
 * write takes nothing. */
SCHED_EXPORT int file_write_all(int fd, const void *bytes, size_t size);
/* Syncs the contents and size of the open file `fd`. */
SCHED_EXPORT int file_sync(int fd);
/* Syncs the directory that holds `path` (the part before its last '/', "." when it has none), so
 * that a file created, renamed or removed there keeps that name after a crash. `path` itself need
 * not exist any more. */
SCHED_EXPORT int file_sync_directory_of(const char *path);
/* Both: the open file `fd`, then the directory that holds its name `path`. */
SCHED_EXPORT int file_sync_with_directory(int fd, const char *path);

SCHED_END_DECLS

#endif
