// The mailer: delivers one message per finished job run over SMTP from a worker thread, so the
// daemon's loop never waits for a mail server.
//
// The loop thread calls submit(); the message is composed there (bounded, cheap) and queued. The
// worker sends it with libcurl, retries a failed delivery after the configured delays, and reports
// every outcome twice: as one syslog line from the catalogue, and as a MailResult handed to the
// loop's GMainContext, where the result callback runs. The worker never touches daemon state.
//
// Memory is bounded: the queue holds at most `max_queued_messages` messages and
// `max_queued_bytes` bytes. When a new message does not fit, the oldest waiting ones are dropped
// (the run log still holds their output) and each drop is logged.
//
// A recipient the server refuses is reported with the server's reply and not tried again; the
// others still get the message.
//
// Retries live only in memory: a daemon restart forgets them, since the run log holds the output.
#ifndef SCHEDD_RUNNER_MAILER_H
#define SCHEDD_RUNNER_MAILER_H

#include <glib.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "mail_message.h"

namespace schedd::mail {

// A snapshot of the daemon's transport records, taken when the run ended.
struct Transport {
  std::string server;    // host name or address text; empty: no server configured
  uint32_t port = 25;
  std::string sender;    // empty: default_sender(host name)
  std::string reply_to;  // empty: no Reply-To:
  std::string vrf;       // network device to bind to when it exists; empty: default routing
};

// One finished run and where its output goes.
struct MailRequest {
  RunReport run;
  std::vector<std::string> recipients;  // the schedule's configured addresses, as stored
  Transport transport;
};

enum class MailOutcome {
  delivered,       // every valid recipient accepted the message
  partly_delivered,  // accepted for some recipients, refused (or invalid) for others
  given_up,        // not delivered after the last attempt, or refused for good
  dropped,         // removed from a full queue, or pending when the mailer stopped
  rejected,        // never queued: nothing valid to send to, or no server
};

// What became of one message; handed to the result callback on the loop thread.
struct MailResult {
  std::string schedule;
  std::string job;
  MailOutcome outcome = MailOutcome::rejected;
  int attempts = 0;
  std::vector<std::string> accepted;  // recipients the server took
  std::vector<std::string> refused;   // recipients refused by the server, or not valid addresses
  std::string detail;                 // the server's last reply or the reason, one line
};

struct MailerSettings {
  std::string ca_file;  // CA certificates for the server's certificate; empty: the system store
  std::chrono::milliseconds connect_timeout{10'000};
  std::chrono::milliseconds transfer_timeout{120'000};
  // The delay before each retry; a message gets 1 + retry_delays.size() attempts at most.
  std::vector<std::chrono::milliseconds> retry_delays{std::chrono::minutes(1), std::chrono::minutes(5),
                                                      std::chrono::minutes(15)};
  std::size_t max_queued_messages = 32;
  std::size_t max_queued_bytes = 2 * 1024 * 1024;
  ComposeLimits compose;
  std::string host_name;  // empty: gethostname()
  std::string network_devices = "/sys/class/net";  // where a VRF's device is looked for
};

class Mailer {
 public:
  using ResultCallback = std::function<void(const MailResult &)>;

  // Starts the worker. Results are delivered by dispatching on `context` (the loop's; NULL means
  // the global default context); `on_result` may be empty.
  Mailer(MailerSettings settings, GMainContext *context, ResultCallback on_result);
  // Stops the worker as stop() does.
  ~Mailer();
  Mailer(const Mailer &) = delete;
  Mailer &operator=(const Mailer &) = delete;

  // Composes and queues the message for one run. Returns true when it was queued. Returns false,
  // after one syslog line and a `rejected` result, when no server is configured, the sender or
  // reply-to is not a valid address, or no configured recipient is valid. Never blocks on the
  // network.
  bool submit(const MailRequest &request);

  // Aborts a transfer in progress, drops every waiting message (one syslog line says how many)
  // and joins the worker; results not yet dispatched are discarded. Does not wait for retry
  // delays. Safe to call twice. Call from the thread that owns `context`.
  void stop();

  // Number of messages waiting or in flight, and their bytes (for statistics and tests).
  std::size_t queued_messages() const;
  std::size_t queued_bytes() const;

  struct State;  // shared by the mailer, its worker and results not yet dispatched; opaque

 private:
  std::shared_ptr<State> state_;
};

}  // namespace schedd::mail

#endif
