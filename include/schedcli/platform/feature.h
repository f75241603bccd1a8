/* The feature manager: turning a feature's service on or off, and taking its commands out of the
 * shell. The scheduler daemon serves the requests for its feature on FM_SERVICE. */
#ifndef SCHEDCLI_PLATFORM_FEATURE_H
#define SCHEDCLI_PLATFORM_FEATURE_H

#include <stdint.h>

#include "schedcli/export.h"
#include "schedcli/platform/cmi.h"

SCHED_BEGIN_DECLS

#define FM_SERVICE 5952u
#define FM_FEATURE_ENABLE 3u
#define FM_FEATURE_DISABLE 4u
#define FM_FEATURE_NAME_SIZE 32

/* Status words of the feature manager; never renumber. */
#define FM_ERR_BAD_ARGUMENT 0x80aa0001u
#define FM_ERR_ALREADY_ENABLED 0x40aa0005u
#define FM_ERR_ALREADY_DISABLED 0x40aa0006u

/* Asks the daemon to turn `feature` on (FM_FEATURE_ENABLE) or off (FM_FEATURE_DISABLE) and waits
 * for it. The request's payload is the action byte followed by the feature name (no integers on
 * the wire). Returns 0, the daemon's status, or a transport status. `user` and `identity` are
 * accepted for the callers' sake; the daemon identifies the caller by the socket. */
SCHED_EXPORT uint32_t fm_cmi_set_feature_wait(cmi_session *session, const char *feature, const char *user,
                                              const void *identity, uint32_t action);

/* The shell registers what removing a feature's commands means for it. */
typedef void (*vsh_parse_tree_hook)(const char *feature, void *context);
SCHED_EXPORT void vsh_parse_tree_hook_set(vsh_parse_tree_hook hook, void *context);
/* Removes the feature's commands from the shell through the registered hook. Returns 0, or
 * FM_ERR_BAD_ARGUMENT for a NULL feature. Without a hook it does nothing. */
SCHED_EXPORT uint32_t vsh_deregister_parse_tree(cmi_session *session, const char *feature);

/* Daemon side: reads a feature request's payload. Returns 0 with the action and the name
 * (terminated, at most FM_FEATURE_NAME_SIZE - 1 characters), or FM_ERR_BAD_ARGUMENT. */
SCHED_EXPORT uint32_t fm_feature_request_parse(const void *payload, uint32_t length, uint32_t *action,
                                               char name[FM_FEATURE_NAME_SIZE]);

SCHED_END_DECLS

#endif
