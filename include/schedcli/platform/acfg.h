/* The configuration framework: components answer a request for their configuration text with a
 * response made of elements (ordered blocks of lines) and configuration groups shared with other
 * components. The framework renders the response as text: blocks in ascending order number, the
 * lines of a block in the order they were added, a line with the indent flag 1 indented by two
 * blanks.
 *
 * A request is an acfg_message that the host fills (which configuration, the shell's filter
 * mode, where the startup stores are) and hands to the component's generator callback; the
 * callback builds a response on a handle and calls acfg_respond, which leaves the text in the
 * message. Results: 0 success, otherwise an ACFG_ERR_* status (syserr2str renders each). */
#ifndef SCHEDCLI_PLATFORM_ACFG_H
#define SCHEDCLI_PLATFORM_ACFG_H

#include <stddef.h>
#include <stdint.h>

#include "schedcli/export.h"
#include "schedcli/platform/cmi.h"

SCHED_BEGIN_DECLS

#define ACFG_CFG_RUNNING 1u
#define ACFG_CFG_STARTUP 2u
#define ACFG_FILTER_HIDE_PASSWORDS 2u

#define ACFG_ERR_BAD_ARGUMENT 0x80c00101u   /* null pointer */
#define ACFG_ERR_NO_ELEMENT 0x80c00102u     /* a line for an element that was not declared */
#define ACFG_ERR_NO_MEMORY 0x80c00103u
#define ACFG_ERR_DUPLICATE 0x80c00104u      /* an element declared twice */

typedef struct acfg_handle acfg_handle;

typedef struct acfg_message {
  uint32_t cfg_type;                  /* ACFG_CFG_RUNNING or ACFG_CFG_STARTUP */
  uint32_t filter_mode;               /* the shell's execution filter bits */
  const char *startup_prefix;         /* URI prefix of the startup stores (may be NULL) */
  const char *startup_debug_prefix;   /* URI prefix of the debug startup stores (may be NULL) */
  char *response;                     /* set by acfg_respond: malloc'ed text, the host frees it */
  size_t response_length;
} acfg_message;

/* An empty response handle in *handle. */
SCHED_EXPORT uint32_t acfg_hdl_init(acfg_handle **handle);
/* Releases a handle that was never handed to acfg_respond. NULL does nothing. */
SCHED_EXPORT void acfg_hdl_free(acfg_handle *handle);

SCHED_EXPORT uint32_t acfg_cfg_type_get(const acfg_message *message);
SCHED_EXPORT uint32_t acfg_vsh_execution_filter_mode_get(const acfg_message *message);
SCHED_EXPORT const char *acfg_startup_cfg_uri_prefix_get(const acfg_message *message);
SCHED_EXPORT const char *acfg_startup_debug_cfg_uri_prefix_get(const acfg_message *message);
/* prefix + middle + name in a buffer of the calling thread (valid until its next call); NULL
 * when the prefix is NULL. */
SCHED_EXPORT const char *acfg_uri_complete(const char *prefix, const char *middle, const char *name);

/* Declares an element of `component` with its order number. */
SCHED_EXPORT uint32_t acfg_elem_add(acfg_handle *handle, uint32_t component, uint32_t element, uint32_t order);
/* Appends text (one or more lines, as given) to a declared element; indent 1 indents every line
 * of it by two blanks. */
SCHED_EXPORT uint32_t acfg_elem_str_add_indent(acfg_handle *handle, uint32_t element, const char *text, int indent);
/* Records that `element` depends on an element of another component. */
SCHED_EXPORT uint32_t acfg_elem_dependency_add(acfg_handle *handle, uint32_t element, uint32_t other_component,
                                               uint32_t other_element);
/* Adds text to a configuration group shared with other components; it is rendered at `order`
 * among the elements. */
SCHED_EXPORT uint32_t acfg_elem_group_config_str_add(acfg_handle *handle, uint32_t group, uint32_t unused,
                                                     uint32_t order, const char *text);
/* Renders the response into message->response and releases the handle. `context` is the host's
 * and handed on unchanged. */
SCHED_EXPORT uint32_t acfg_respond(acfg_handle *handle, void *context, acfg_message *message);

/* ---- Requests between the shell and the daemon that hosts the generator ----
 *
 * The daemon serves ACFG_SERVICE. A configuration-text request is [kind byte, filter byte]; a
 * logging-level request is [level byte] (ACFG_LEVEL_DEFAULT restores the default) followed by the
 * facility name.
 *
 * An apply carries configuration request records (jobs, schedules, schedule addresses) that the
 * daemon makes hold together or not at all, in one durable change. It may take several messages:
 * each is [mode byte, part flags byte] followed by entries, each a big-endian u32 length and a
 * request record of that length, as the configuration service takes it. The first part carries
 * ACFG_APPLY_FIRST (and discards any unfinished apply); the last carries ACFG_APPLY_LAST and is
 * answered with the outcome: 0, or the status of the first entry that failed, and for every
 * failed entry [u32 index (from 0, over all parts), u32 status], big-endian. The other parts are
 * answered with 0 alone. ACFG_APPLY_CHECK answers the same without changing anything. */

#define ACFG_SERVICE 5954u
#define ACFG_OP_CONFIG_TEXT 1u     /* answered by a stream of text parts */
#define ACFG_OP_COPY_STARTUP 2u    /* copy running-config startup-config */
#define ACFG_OP_MEMORY_STATS 3u    /* the daemon's tracked-allocation statistics as text */
#define ACFG_OP_LOGGING_LEVEL 4u
#define ACFG_LEVEL_DEFAULT 0xFFu
#define ACFG_OP_APPLY 5u           /* a set of configuration changes, all or nothing */
#define ACFG_APPLY_COMMIT 0u       /* mode: make the changes */
#define ACFG_APPLY_CHECK 1u        /* mode: say which changes would fail; change nothing */
#define ACFG_APPLY_FIRST 1u        /* part flags */
#define ACFG_APPLY_LAST 2u

/* Asks for the running (ACFG_CFG_RUNNING) or startup (ACFG_CFG_STARTUP) configuration text and
 * gathers the reply stream into *text (malloc'ed, terminated; *length without the NUL). */
SCHED_EXPORT uint32_t acfg_request_config_text(cmi_session *session, uint32_t cfg_type, uint32_t filter_mode,
                                               char **text, size_t *length);
/* Asks the daemon to copy the running configuration to the startup configuration and waits. */
SCHED_EXPORT uint32_t acfg_request_copy_startup(cmi_session *session);
/* Asks for the daemon's memory statistics text (*text malloc'ed, terminated). */
SCHED_EXPORT uint32_t acfg_request_memory_stats(cmi_session *session, char **text, size_t *length);
/* Sets a facility's logging level (0..7), or restores its default with ACFG_LEVEL_DEFAULT. */
SCHED_EXPORT uint32_t acfg_request_logging_level(cmi_session *session, const char *facility, uint32_t level);

SCHED_END_DECLS

#endif
