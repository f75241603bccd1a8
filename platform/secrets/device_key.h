// The device key of type-7 passwords: where it lives, and reading or making it.
#ifndef SCHEDPLAT_SECRETS_DEVICE_KEY_H
#define SCHEDPLAT_SECRETS_DEVICE_KEY_H

#include <sodium.h>

#include <cstdint>

namespace secrets {

constexpr size_t kKeyBytes = crypto_aead_chacha20poly1305_ietf_KEYBYTES;

// Reads the key into `key`; with `create`, makes it first when there is none. Returns 0 or a
// SECRETS_* code, with `key` zeroed on failure.
uint32_t load_device_key(bool create, unsigned char (&key)[kKeyBytes]);

// security_conf_encrypt and security_conf_decrypt with the key of this process (see secrets.h).
uint32_t encrypt_with_key(const char *clear, int type, char **encrypted, uint32_t *encrypted_length);
uint32_t decrypt_with_key(const char *encrypted, uint32_t length, int type, char **clear, uint32_t *clear_length);

}  // namespace secrets

#endif
