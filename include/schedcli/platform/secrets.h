/* Type-7 passwords: the device's reversible encryption of stored passwords.
 *
 * A type-7 text is authenticated encryption (ChaCha20-Poly1305) under the device key, printed as
 * base64 of exactly SECRETS_TYPE7_MAX_TEXT characters whatever the password's length, so that it
 * fits a 128-byte field with its NUL. Clear passwords are at most SECRETS_MAX_CLEAR bytes. Text
 * that was changed, cut, made under another key or is not base64 at all is refused, never
 * half-decrypted.
 *
 * The device key is 32 random bytes in a file, by default "<state dir>/device.key". It is made
 * on the first encryption with mode 0600: the daemon alone reads it. Every other process (the
 * shell, the library's handlers in it) has its passwords encrypted and decrypted by the daemon:
 * security_conf_encrypt and security_conf_decrypt send a request on SECRETS_SERVICE to the daemon
 * at the socket set with secrets_daemon_socket_set, unless the process holds the key itself
 * (secrets_use_device_key). The daemon encrypts for any caller and decrypts for a caller other
 * than root only that caller's own credential; a refusal is the daemon's status word.
 *
 * Results are status words: 0 for success, otherwise one of the SECRETS_* codes below
 * (syserr2str renders each). Output buffers come from malloc and are the caller's to free; a
 * caller holding a clear password should zero it before freeing it. */
#ifndef SCHEDCLI_PLATFORM_SECRETS_H
#define SCHEDCLI_PLATFORM_SECRETS_H

#include <stdint.h>

#include "schedcli/export.h"

SCHED_BEGIN_DECLS

#define SECRETS_TYPE7 7
#define SECRETS_MAX_CLEAR 64u
#define SECRETS_TYPE7_MAX_TEXT 124u
#define SECRETS_DEVICE_KEY_NAME "device.key"

/* The daemon's service for type-7 passwords. Payloads are text without a terminating NUL: an
 * encryption request carries the clear password and its reply the type-7 text, a decryption
 * request the type-7 text and its reply the clear password. */
#define SECRETS_SERVICE 5955u
#define SECRETS_OP_ENCRYPT 1u
#define SECRETS_OP_DECRYPT 2u

/* Status words, numbers 0x201-0x2ff of the platform facility. These values are returned across the
 * product: never renumber. */
#define SECRETS_ERR_BAD_ARGUMENT 0x80c00201u  /* null pointer */
#define SECRETS_ERR_TYPE 0x80c00202u          /* an encryption type other than 7 */
#define SECRETS_ERR_TOO_LONG 0x80c00203u      /* clear password above SECRETS_MAX_CLEAR bytes */
#define SECRETS_ERR_NO_KEY_PATH 0x80c00204u   /* no key path set and no state directory */
#define SECRETS_ERR_NO_KEY 0x80c00205u        /* decryption before any key was made */
#define SECRETS_ERR_KEY_ACCESS 0x80c00206u    /* the key file cannot be read or created */
#define SECRETS_ERR_KEY_DAMAGED 0x80c00207u   /* the key file is not a 32-byte regular file */
#define SECRETS_ERR_FORMAT 0x80c00208u        /* not a type-7 text: wrong length or not base64 */
#define SECRETS_ERR_DECRYPT 0x80c00209u       /* changed, or made under another key */
#define SECRETS_ERR_CRYPTO 0x80c0020au        /* the cryptography library failed to start */
#define SECRETS_ERR_NO_MEMORY 0x80c0020bu

/* With a non-zero `use`, this process holds the device key: security_conf_encrypt and
 * security_conf_decrypt use it directly (the daemon, and tests of the encryption itself). With 0
 * (the default) they ask the daemon. */
SCHED_EXPORT void secrets_use_device_key(int use);

/* The daemon's socket for security_conf_* requests; NULL restores "<runtime dir>/schedd.sock".
 * Returns 0, or SECRETS_ERR_BAD_ARGUMENT for an empty path (the setting is then unchanged). */
SCHED_EXPORT uint32_t secrets_daemon_socket_set(const char *path);

/* Sets the device key file; NULL restores "<state dir>/device.key" (see sysmgr_dirs_set).
 * Returns 0, or SECRETS_ERR_BAD_ARGUMENT for an empty path (the setting is then unchanged). */
SCHED_EXPORT uint32_t secrets_device_key_path_set(const char *path);

/* Encrypts the NUL-terminated `clear` password (type 7 only), or has the daemon encrypt it. On success *encrypted is the
 * NUL-terminated text and *encrypted_length its length without the NUL. A fresh random nonce
 * makes each text of the same password different. `unused1` and `unused2` are accepted for the
 * callers' sake. On failure *encrypted is NULL and *encrypted_length 0. */
SCHED_EXPORT uint32_t security_conf_encrypt(const char *clear, int type, int unused1, int unused2,
                                            char **encrypted, uint32_t *encrypted_length);

/* Decrypts a type-7 text, or has the daemon decrypt it (then only the caller's own credential,
 * any for root). `length` counts the text with its terminating NUL (strlen + 1); the
 * text ends at its first NUL within it. On success *clear is the NUL-terminated password and
 * *clear_length its length without the NUL. On failure *clear is NULL and *clear_length 0. */
SCHED_EXPORT uint32_t security_conf_decrypt(const char *encrypted, uint32_t length, int type, int unused1,
                                            int unused2, char **clear, uint32_t *clear_length);

SCHED_END_DECLS

#endif
