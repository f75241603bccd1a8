/* File URIs: a path, optionally prefixed by a file-system name ("logs:", "bootflash:",
 * "volatile:"), which maps to a directory of the scheduler's own. Paths without a prefix are
 * taken as they are (relative ones from the state directory). */
#ifndef SCHEDCLI_PLATFORM_URI_H
#define SCHEDCLI_PLATFORM_URI_H

#include <stddef.h>

#include "schedcli/export.h"

SCHED_BEGIN_DECLS

#define URI_DEVICE_SIZE 32
#define URI_PATH_SIZE 256

/* A parsed file URI: the file-system name without its colon (empty when none) and the path. */
typedef struct file_uri {
  char device[URI_DEVICE_SIZE];
  char path[URI_PATH_SIZE];
} file_uri;

/* Splits `text` into device and path. Returns 0, or -1 for an empty or over-long text, an
 * unknown file-system name, or a path that leaves its file system (".." components). */
SCHED_EXPORT int uri_parse(const char *text, file_uri *uri);
/* The local path of a parsed URI, in a buffer of the calling thread (valid until its next call):
 * "logs" maps to <state dir>/logs, "bootflash" to <state dir>/bootflash, "volatile" to
 * <runtime dir>/volatile (each created on first use); no device: the path itself, a relative
 * one under the state directory. NULL when the directories are not set or the device unknown. */
SCHED_EXPORT const char *uri_map_targetfs_path_get(const char *device, const char *path);
/* Renders the URI as text ("device:path", or the path alone) into `buffer` of `length` bytes,
 * always terminated. Returns the length the full text needs, like snprintf. */
SCHED_EXPORT int snprintf_uri_len(char *buffer, const file_uri *uri, size_t length);

SCHED_END_DECLS

#endif
