// Type-7 passwords: authenticated encryption under the device key, printed as base64.
#include <sodium.h>

#include <cstdlib>
#include <cstring>

#include "schedcli/platform/secrets.h"
#include "secrets/device_key.h"

namespace {

// Sealed layout: format byte | nonce | password padded with NULs to SECRETS_MAX_CLEAR | tag.
// Padding makes every text the same length, so the text does not tell the password's length;
// the format byte is authenticated with the rest. The 96-bit nonce (rather than a 192-bit one)
// is what lets the whole fit the 128-byte field; random nonces of that size stay unique for far
// more passwords than a device will ever store.
constexpr unsigned char kFormat = 1;
constexpr size_t kNonceBytes = crypto_aead_chacha20poly1305_ietf_NPUBBYTES;
constexpr size_t kTagBytes = crypto_aead_chacha20poly1305_ietf_ABYTES;
constexpr size_t kSealedBytes = 1 + kNonceBytes + SECRETS_MAX_CLEAR + kTagBytes;
constexpr int kBase64 = sodium_base64_VARIANT_ORIGINAL;
static_assert(sodium_base64_ENCODED_LEN(kSealedBytes, kBase64) == SECRETS_TYPE7_MAX_TEXT + 1,
              "a type-7 text and its NUL must fit the 128-byte field");

bool sodium_ready() {
  static const bool ready = sodium_init() >= 0;
  return ready;
}

// Key bytes that are wiped whatever way the call leaves.
struct DeviceKey {
  unsigned char bytes[secrets::kKeyBytes];
  ~DeviceKey() { sodium_memzero(bytes, sizeof bytes); }
};

}  // namespace

namespace secrets {

uint32_t encrypt_with_key(const char *clear, int type, char **encrypted, uint32_t *encrypted_length) {
  if (encrypted) *encrypted = nullptr;
  if (encrypted_length) *encrypted_length = 0;
  if (!clear || !encrypted || !encrypted_length) return SECRETS_ERR_BAD_ARGUMENT;
  if (type != SECRETS_TYPE7) return SECRETS_ERR_TYPE;
  size_t clear_length = strnlen(clear, SECRETS_MAX_CLEAR + 1);
  if (clear_length > SECRETS_MAX_CLEAR) return SECRETS_ERR_TOO_LONG;
  if (!sodium_ready()) return SECRETS_ERR_CRYPTO;
  DeviceKey key;
  if (uint32_t status = secrets::load_device_key(true, key.bytes)) return status;

  unsigned char padded[SECRETS_MAX_CLEAR] = {};
  std::memcpy(padded, clear, clear_length);
  unsigned char sealed[kSealedBytes];
  sealed[0] = kFormat;
  unsigned char *nonce = sealed + 1;
  randombytes_buf(nonce, kNonceBytes);
  crypto_aead_chacha20poly1305_ietf_encrypt(nonce + kNonceBytes, nullptr, padded, sizeof padded, sealed, 1,
                                            nullptr, nonce, key.bytes);
  sodium_memzero(padded, sizeof padded);

  auto *text = static_cast<char *>(std::malloc(SECRETS_TYPE7_MAX_TEXT + 1));
  if (!text) return SECRETS_ERR_NO_MEMORY;
  sodium_bin2base64(text, SECRETS_TYPE7_MAX_TEXT + 1, sealed, sizeof sealed, kBase64);
  *encrypted = text;
  *encrypted_length = static_cast<uint32_t>(std::strlen(text));
  return 0;
}

uint32_t decrypt_with_key(const char *encrypted, uint32_t length, int type, char **clear, uint32_t *clear_length) {
  if (clear) *clear = nullptr;
  if (clear_length) *clear_length = 0;
  if (!encrypted || !clear || !clear_length) return SECRETS_ERR_BAD_ARGUMENT;
  if (type != SECRETS_TYPE7) return SECRETS_ERR_TYPE;
  size_t text_length = strnlen(encrypted, length);
  if (text_length != SECRETS_TYPE7_MAX_TEXT) return SECRETS_ERR_FORMAT;
  unsigned char sealed[kSealedBytes];
  size_t sealed_length = 0;
  const char *end = nullptr;
  if (sodium_base642bin(sealed, sizeof sealed, encrypted, text_length, nullptr, &sealed_length, &end, kBase64) != 0 ||
      end != encrypted + text_length || sealed_length != kSealedBytes || sealed[0] != kFormat) {
    return SECRETS_ERR_FORMAT;
  }
  if (!sodium_ready()) return SECRETS_ERR_CRYPTO;
  DeviceKey key;
  if (uint32_t status = secrets::load_device_key(false, key.bytes)) return status;

  const unsigned char *nonce = sealed + 1;
  unsigned char padded[SECRETS_MAX_CLEAR];
  if (crypto_aead_chacha20poly1305_ietf_decrypt(padded, nullptr, nullptr, nonce + kNonceBytes,
                                                kSealedBytes - 1 - kNonceBytes, sealed, 1, nonce, key.bytes) != 0) {
    return SECRETS_ERR_DECRYPT;
  }
  size_t password_length = strnlen(reinterpret_cast<const char *>(padded), sizeof padded);
  auto *password = static_cast<char *>(std::malloc(password_length + 1));
  if (password) {
    std::memcpy(password, padded, password_length);
    password[password_length] = '\0';
  }
  sodium_memzero(padded, sizeof padded);
  if (!password) return SECRETS_ERR_NO_MEMORY;
  *clear = password;
  *clear_length = static_cast<uint32_t>(password_length);
  return 0;
}

}  // namespace secrets
