// Composition of the message that carries one job run's output, and the checks that keep operator
// and job text out of the envelope and the headers.
//
// Everything here is pure: no I/O, no clock, no global state, so the daemon's loop thread, the
// mail worker and the shell may all call it.
//
// The message is built ready for libcurl's SMTP upload: header and body lines end in CRLF and no
// line exceeds 998 octets. It is NOT dot-stuffed: libcurl doubles a leading dot of every line
// itself while it sends the data and adds the final "CRLF.CRLF", so stuffing here would make a
// line holding a single dot arrive as two.
#ifndef SCHEDD_RUNNER_MAIL_MESSAGE_H
#define SCHEDD_RUNNER_MAIL_MESSAGE_H

#include <cstddef>
#include <ctime>
#include <string>
#include <string_view>
#include <vector>

namespace schedd::mail {

// An address must fit the 64-byte, NUL-terminated address fields of the configuration records.
inline constexpr std::size_t kMaxAddressLength = 63;
inline constexpr std::size_t kMaxLocalPartLength = 64;
inline constexpr std::size_t kMaxDomainLength = 253;
// RFC 5322's hard limit for a line, CRLF excluded.
inline constexpr std::size_t kMaxLineOctets = 998;
// How much of a run's output one message carries unless told otherwise.
inline constexpr std::size_t kDefaultMaxOutputBytes = 64 * 1024;
// Where output was cut, by the runner or here.
inline constexpr std::string_view kOutputCutMarker = "[... output cut ...]";

// True when `address` is exactly one plain `local@domain`: one '@', a local part of letters,
// digits and the specials mail allows (no quoting, no leading, trailing or doubled dot), a domain
// of dot-separated labels of letters, digits and hyphens, no blank or control character anywhere,
// and at most kMaxAddressLength bytes. Anything that could close the envelope's angle brackets or
// start a new command or header is refused.
bool valid_address(std::string_view address);

// True when `value` can stand as a header value: printable ASCII and blanks only (no CR, LF, NUL
// or other control byte) and at most `max_length` bytes.
bool valid_header_text(std::string_view value, std::size_t max_length);

// A header-safe rendering of a name that the daemon did not create (schedule, job, user, host):
// every byte outside printable ASCII becomes '?', and the text is cut at `max_length` bytes.
std::string header_safe(std::string_view text, std::size_t max_length);

// The result of a run in the words the run-log display uses: "Success (0)" for a wait status of
// 0, otherwise "Failed (N)" with N the exit-code byte of the wait status.
std::string result_text(int wait_status);

// An RFC 5322 date of `when` in local time with a numeric zone, e.g. "Mon, 23 Nov 2026 01:55:19
// +0000". The names of days and months never depend on the locale.
std::string rfc5322_date(std::time_t when);

// The sender used when none is configured: "scheduler@<host>", or "scheduler@localhost" when the
// host name cannot stand as a domain.
std::string default_sender(std::string_view host_name);

// Turns a run's captured output into body lines: CRLF line ends (LF, CRLF and a lone CR each end a
// line), NUL and bytes that are not UTF-8 replaced by U+FFFD, lines longer than kMaxLineOctets
// broken at a character boundary, at most `max_bytes` bytes of the output taken (cut at a character
// boundary), and kOutputCutMarker on a line of its own when anything was cut, here or before
// (`already_cut`). The result is empty or ends in CRLF.
std::string body_text(std::string_view output, bool already_cut, std::size_t max_bytes);

// What one message says about one job run.
struct RunReport {
  std::string schedule;
  std::string job;
  std::string user;
  int wait_status = 0;         // as wait() reports it; meaningful when failure_reason is empty
  std::string failure_reason;  // why the job could not be run at all; empty when it ran
  std::time_t started = 0;
  std::time_t ended = 0;
  std::string output;
  bool output_cut = false;     // the runner cut the output already
};

// Who sends the message and who gets it.
struct Addressing {
  std::string sender;                   // envelope sender and From:
  std::string reply_to;                 // Reply-To:, omitted when empty
  std::vector<std::string> recipients;  // valid, without duplicates
};

struct ComposeLimits {
  std::size_t max_output_bytes = kDefaultMaxOutputBytes;
};

// Sorts the configured addresses of a schedule: valid ones in order, each once, into
// `addressing->recipients`; the others into `rejected` (so they are reported, not lost).
void sort_recipients(const std::vector<std::string> &configured, Addressing *addressing,
                     std::vector<std::string> *rejected);

// The whole message for one run, headers and body. `message_id` is the text between the angle
// brackets of Message-ID: (see make_message_id). Returns false and leaves `message` unchanged when
// the sender, the reply-to address or a recipient is not valid or there is no recipient; `error`
// then says which.
bool compose(const RunReport &run, const Addressing &addressing, std::string_view host_name,
             std::string_view message_id, const ComposeLimits &limits, std::string *message,
             std::string *error);

// A Message-ID body "<seconds>.<hex>@<host>" from a time and a random number; the host part is the
// default sender's domain, so it is always a valid domain.
std::string make_message_id(std::time_t when, unsigned long long random, std::string_view host_name);

}  // namespace schedd::mail

#endif
