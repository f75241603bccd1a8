/* Users: whether a user is local to this device, and authentication of the others through PAM.
 *
 * A user is local when the local password file lists it (default /etc/passwd). Everybody else is
 * authenticated through PAM with the service name "schedcli"; its configuration ships in the
 * repository as platform/pam/schedcli and is installed as /etc/pam.d/schedcli.
 *
 * Results are status words: 0 for success, otherwise one of the AUTH_* codes below (syserr2str
 * renders each). */
#ifndef SCHEDCLI_PLATFORM_AUTH_H
#define SCHEDCLI_PLATFORM_AUTH_H

#include <stdint.h>

#include "schedcli/export.h"

SCHED_BEGIN_DECLS

#define AUTH_PAM_SERVICE "schedcli"
#define AUTH_DEFAULT_PASSWD_FILE "/etc/passwd"

/* Status words, numbers 0x301-0x3ff of the platform facility. These values are returned across the
 * product: never renumber. */
#define AUTH_ERR_BAD_ARGUMENT 0x80c00301u   /* null or empty user, null password or result */
#define AUTH_ERR_PAM_START 0x80c00302u      /* PAM could not start the schedcli service */
#define AUTH_ERR_NO_MEMORY 0x80c00303u

/* Sets the password file that lists the local users; NULL restores AUTH_DEFAULT_PASSWD_FILE.
 * Returns 0, or AUTH_ERR_BAD_ARGUMENT for an empty path (the setting is then unchanged). */
SCHED_EXPORT uint32_t auth_local_passwd_file_set(const char *path);

/* Non-zero when the password file lists `user_name` as the name of an entry; 0 when it does not,
 * when the name is NULL or empty, or when the file cannot be read. `session` is accepted for the
 * callers' sake and not used. */
SCHED_EXPORT int check_if_user_local(void *session, const char *user_name);

/* The outcome of one authentication. */
typedef struct aaa_auth_result {
  int32_t pam_status;   /* PAM's answer: 0 (PAM_SUCCESS) or the code that refused the user */
  uint32_t accepted;    /* 1 when the user was accepted, else 0 */
} aaa_auth_result;

/* Authenticates `user_name` with `password` through the PAM service "schedcli" and checks that
 * the account may be used. `host_name` (may be NULL) is given to PAM as the requesting host.
 * `method_list`, `group` and `flags` are accepted for the callers' sake: the PAM configuration
 * decides the methods. Returns 0 when the attempt ran, whatever its outcome, with *result set
 * to a record the caller frees with free(); a wrong password or an unknown user is a result with
 * accepted 0, not a failure. Otherwise returns an AUTH_* code with *result NULL. The password
 * is only handed to PAM's conversation and never kept. */
SCHED_EXPORT uint32_t aaa_scheduler_authenticate(const char *user_name, const char *password,
                                                 const char *method_list, const char *group,
                                                 const char *host_name, uint32_t flags,
                                                 aaa_auth_result **result);

SCHED_END_DECLS

#endif
