// Texts for every status word the product returns.
#include "schedcli/platform/syserr.h"

#include <cstdio>
#include <iterator>

#include "schedcli/platform/acfg.h"
#include "schedcli/platform/auth.h"
#include "schedcli/platform/cmi.h"
#include "schedcli/platform/feature.h"
#include "schedcli/platform/pss.h"
#include "schedcli/platform/secrets.h"
#include "schedcli/status.h"

namespace {

struct CodeText {
  uint32_t code;
  const char *text;
};

constexpr CodeText kTexts[] = {
    {0, "Success"},
    // Record stores.
    {PSS2_ERR_BAD_HANDLE, "Store handle is not open"},
    {PSS2_ERR_BAD_ARGUMENT, "Invalid argument to the record store"},
    {PSS2_ERR_NO_KEY, "No such record in the store"},
    {PSS2_ERR_KEY_SIZE, "Record key size does not match the store"},
    {PSS2_ERR_VALUE_SIZE, "Record value is larger than the store allows"},
    {PSS2_ERR_READ_ONLY, "Store is open for reading only"},
    {PSS2_ERR_END, "No more records in the store"},
    {PSS2_ERR_IO, "Input/output error on the record store"},
    {PSS2_ERR_FULL, "Record store is full"},
    {PSS2_ERR_TOO_MANY, "Too many record stores open"},
    {PSS2_ERR_CORRUPT, "Record store is damaged or not a store"},
    {PSS2_ERR_NO_MEMORY, "Out of memory in the record store"},
    {PSS2_ERR_NO_STORE, "Record store does not exist"},
    {PSS2_ERR_BUSY, "Record store is already open"},
    {PSS2_ERR_BATCH, "Record store batch is not in the expected state"},
    {PSS2_ERR_NO_DIRECTORY, "Record store directories are not set"},
    {PSS2_ERR_EXISTS, "Record store already exists"},
    // Requests to the scheduler daemon.
    {CMI_ERR_BAD_ARGUMENT, "Invalid argument to a request to the scheduler daemon"},
    {CMI_ERR_NO_DAEMON, "Scheduler daemon is not running (nothing listens on its socket)"},
    {CMI_ERR_TIMEOUT, "Scheduler daemon did not answer in time"},
    {CMI_ERR_DAEMON_CLOSED, "Scheduler daemon closed the connection before answering"},
    {CMI_ERR_CLIENT_CLOSED, "Client closed the connection to the scheduler daemon"},
    {CMI_ERR_SHORT, "Message is shorter than its header"},
    {CMI_ERR_TOO_LARGE, "Message is larger than the maximum message size"},
    {CMI_ERR_LENGTH, "Message length does not match its header"},
    {CMI_ERR_VERSION, "Message has an unknown protocol version"},
    {CMI_ERR_KIND, "Message is of the wrong kind (request or reply) for its place"},
    {CMI_ERR_TOKEN, "Reply does not belong to the request"},
    {CMI_ERR_NO_MEMORY, "Out of memory for a message to or from the scheduler daemon"},
    {CMI_ERR_ACCESS, "Permission denied on the scheduler daemon's socket"},
    {CMI_ERR_PATH, "Scheduler daemon's socket path is not set or cannot be used"},
    {CMI_ERR_IN_USE, "Another scheduler daemon is already listening on the socket"},
    {CMI_ERR_NOT_SOCKET, "Scheduler daemon's socket path is taken by a file that is not a socket"},
    {CMI_ERR_SOCKET, "Socket operation with the scheduler daemon failed"},
    {CMI_ERR_NO_STREAM, "No reply stream is open for this request"},
    {CMI_ERR_EMPTY, "Reply message carries no data"},
    {CMI_STREAM_END, "End of the reply stream"},
    {CMI_NOTHING_WAITING, "Nothing is waiting on the socket"},
    // Users and authentication.
    {AUTH_ERR_BAD_ARGUMENT, "Invalid argument to user authentication"},
    {AUTH_ERR_PAM_START, "Authentication service schedcli could not be started"},
    {AUTH_ERR_NO_MEMORY, "Out of memory in user authentication"},
    // Type-7 passwords.
    {SECRETS_ERR_BAD_ARGUMENT, "Invalid argument to password encryption"},
    {SECRETS_ERR_TYPE, "Unsupported password encryption type (only 7 is supported)"},
    {SECRETS_ERR_TOO_LONG, "Password is longer than 64 characters"},
    {SECRETS_ERR_NO_KEY_PATH, "Device key location is not set"},
    {SECRETS_ERR_NO_KEY, "Device key does not exist yet"},
    {SECRETS_ERR_KEY_ACCESS, "Device key file cannot be read or created"},
    {SECRETS_ERR_KEY_DAMAGED, "Device key file is damaged"},
    {SECRETS_ERR_FORMAT, "Encrypted password is not a valid type-7 text"},
    {SECRETS_ERR_DECRYPT, "Encrypted password was altered or made with another device key"},
    {SECRETS_ERR_CRYPTO, "Cryptography library could not be started"},
    {SECRETS_ERR_NO_MEMORY, "Out of memory in password encryption"},
    // Configuration framework.
    {ACFG_ERR_BAD_ARGUMENT, "Invalid argument to the configuration framework"},
    {ACFG_ERR_NO_ELEMENT, "Configuration element was not declared"},
    {ACFG_ERR_NO_MEMORY, "Out of memory in the configuration framework"},
    {ACFG_ERR_DUPLICATE, "Configuration element declared twice"},
    // Feature manager.
    {FM_ERR_BAD_ARGUMENT, "Invalid feature request"},
    {FM_ERR_ALREADY_ENABLED, "Feature is already enabled"},
    {FM_ERR_ALREADY_DISABLED, "Feature is already disabled"},
    // The scheduler.
    {SCH_STATUS_EXISTS, "Entry already exists"},
    {SCH_STATUS_NO_CREDENTIAL, "User name or password missing"},
    {SCH_STATUS_TIME_FORMAT, "Incorrect time format"},
    {SCH_STATUS_TIME_FORMAT_ALT, "Incorrect time format"},
    {SCH_STATUS_OUT_OF_RANGE, "Value out of range"},
    {SCH_STATUS_TIME_IN_PAST, "Specified time is in the past"},
    {SCH_STATUS_AUTH_FAILED, "User authentication failed"},
    {SCH_STATUS_CREDENTIAL_FETCH, "Could not fetch the user's credential"},
    {SCH_STATUS_LOCAL_USER, "Password cannot be stored for a local user"},
    {SCH_STATUS_NO_SUCH_JOB, "No such job"},
    {SCH_STATUS_NO_SUCH_SCHEDULE, "No such schedule"},
    {SCH_STATUS_JOB_TABLE_FULL, "No more jobs can be created (256 is the limit)"},
    {SCH_STATUS_TOO_MANY_EMAILS, "A schedule can have at most 10 email addresses"},
    {SCH_STATUS_BAD_REQUEST, "Malformed request to the scheduler daemon"},
    {SCH_STATUS_UNKNOWN_REQUEST, "Request type not supported by the scheduler daemon"},
    {SCH_STATUS_PERMISSION, "Permission denied: the credential belongs to another user"},
    {SCH_STATUS_TEXT_TOO_LONG, "Job command text is too long (8182 bytes at most)"},
    {SCH_STATUS_NO_MEMORY, "Scheduler daemon is out of memory"},
    {SCH_STATUS_STANDBY, "Scheduler daemon is on standby and accepts no changes"},
    {SCH_STATUS_FEATURE_DISABLED, "Scheduler feature is not enabled (use 'feature scheduler')"},
    {SCH_STATUS_NO_SUCH_FEATURE, "No such feature: the scheduler daemon serves the feature 'scheduler' only"},
    {SCH_STATUS_NO_SUCH_FACILITY, "No such logging facility: the scheduler daemon sets 'scheduler' only"},
    {SCH_STATUS_LOG_FILE_EXISTS, "File exists: the log file is never moved over another file"},
    {SCH_STATUS_LOG_FILE_DIRECTORY, "Directory of the new log file name does not exist"},
    {SCH_STATUS_LOG_FILE_PLACE,
     "Log file must be inside the scheduler's state or runtime directory (use logs:, bootflash: or volatile:)"},
    {SCH_STATUS_LOG_FILE_IO, "Log file could not be created, moved or emptied (see the daemon's log)"},
    {SCH_STATUS_COPY_FAILED, "Copy of the running configuration to the startup configuration failed"},
    {SCH_STATUS_NOT_PERMITTED,
     "Permission denied: only root administers the scheduler; a user changes only the schedules that run as that "
     "user and the jobs that only those schedules run"},
    {SCH_STATUS_BAD_ADDRESS, "Invalid email address: one local@domain, without blanks or control characters"},
    {SCH_STATUS_BAD_TEXT,
     "Text refused: it holds a control character or a blank where none may be, or a job line that reads as "
     "end-job, and could not be read back from the configuration"},
};

// Two texts for one code would make the second unreachable: every family keeps to its own range.
constexpr bool codes_are_unique() {
  for (size_t i = 0; i < std::size(kTexts); i++) {
    for (size_t j = i + 1; j < std::size(kTexts); j++) {
      if (kTexts[i].code == kTexts[j].code) return false;
    }
  }
  return true;
}
static_assert(codes_are_unique(), "a status word appears twice in the text table");

}  // namespace

extern "C" const char *syserr2str(uint32_t code) {
  for (const CodeText &entry : kTexts) {
    if (entry.code == code) return entry.text;
  }
  static thread_local char unknown[40];
  std::snprintf(unknown, sizeof unknown, "unknown error 0x%08x", code);
  return unknown;
}
