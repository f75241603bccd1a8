// The mailer's queue, its worker thread and one SMTP delivery with libcurl.
#include "mailer.h"

#include <curl/curl.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cctype>
#include <condition_variable>
#include <cstring>
#include <deque>
#include <mutex>
#include <random>
#include <set>
#include <thread>

#include "core/syslog_lines.h"
#include "schedcli/diag.h"
#include "schedcli/platform/syslog.h"

namespace schedd::mail {

namespace {

// A catalogue message whose one argument is `text`.
void emit_text(const syslog_message &message, const std::string &text) { schedd::emit(message, text.c_str()); }

}  // namespace


namespace {

using Clock = std::chrono::steady_clock;

// A reply or reason quoted in a syslog line is cut here, so one line stays one line of sane size.
constexpr std::size_t kMaxQuotedLength = 200;
// Longest network device name the kernel accepts (IFNAMSIZ less the NUL).
constexpr std::size_t kMaxDeviceNameLength = 15;

std::string about(const std::string &schedule, const std::string &job) {
  return "mail for job " + header_safe(job, 64) + " of schedule " + header_safe(schedule, 64);
}

std::string join(const std::vector<std::string> &items) {
  std::string text;
  for (const std::string &item : items) {
    if (!text.empty()) text += ", ";
    text += item;
  }
  return text;
}

// A server name fit for the URL: a host name, an IPv4 address or an IPv6 address, nothing that
// could add a path, credentials or another port.
bool valid_server(std::string_view server) {
  if (server.empty() || server.size() > 255) return false;
  return std::all_of(server.begin(), server.end(), [](char c) {
    return std::isalnum(static_cast<unsigned char>(c)) || c == '.' || c == '-' || c == ':';
  });
}

bool valid_device_name(std::string_view name) {
  if (name.empty() || name.size() > kMaxDeviceNameLength || name == "." || name == "..") return false;
  return std::all_of(name.begin(), name.end(), [](char c) { return c > 0x20 && c < 0x7F && c != '/'; });
}

struct Pending {
  std::string schedule;
  std::string job;
  std::string sender;
  std::vector<std::string> recipients;
  std::vector<std::string> invalid;  // configured but not valid: reported with the outcome
  Transport transport;
  std::string message;
  int attempts = 0;
  Clock::time_point not_before{};

  std::size_t bytes() const {
    std::size_t total = message.size() + sender.size();
    for (const std::string &recipient : recipients) total += recipient.size();
    return total;
  }
};

// What one SMTP conversation came to.
struct Attempt {
  CURLcode code = CURLE_OK;
  long reply_code = 0;
  std::string last_reply;
  std::vector<std::string> accepted;
  std::vector<std::string> refused;  // "address (reply)"
  bool refused_for_good = false;     // some refusal was a 5xx
  std::string error;
};

// Follows the protocol through libcurl's debug stream, the only place that tells which
// recipient a server refused when refusals are allowed.
struct Conversation {
  std::string pending_recipient;
  bool awaiting_recipient_reply = false;
  Attempt *attempt = nullptr;
  const std::atomic<bool> *stopping = nullptr;
  std::string_view upload;
  std::size_t upload_offset = 0;

  void sent_line(std::string_view line) {
    if (line.substr(0, 8) == "RCPT TO:") {
      std::string_view address = line.substr(8);
      while (!address.empty() && (address.back() == '\r' || address.back() == '\n')) address.remove_suffix(1);
      if (address.size() >= 2 && address.front() == '<' && address.back() == '>') {
        address = address.substr(1, address.size() - 2);
      }
      pending_recipient = address;
      awaiting_recipient_reply = true;
    }
  }

  void received_line(std::string_view line) {
    while (!line.empty() && (line.back() == '\r' || line.back() == '\n')) line.remove_suffix(1);
    if (line.size() < 3) return;
    bool final_line = line.size() == 3 || line[3] == ' ';
    if (!final_line) return;
    attempt->last_reply = header_safe(line, kMaxQuotedLength);
    if (!awaiting_recipient_reply) return;
    awaiting_recipient_reply = false;
    if (line[0] == '2') {
      attempt->accepted.push_back(pending_recipient);
    } else {
      attempt->refused.push_back(pending_recipient + " (" + attempt->last_reply + ")");
      if (line[0] == '5') attempt->refused_for_good = true;
    }
  }
};

int on_debug(CURL *, curl_infotype type, char *data, size_t size, void *user) {
  auto *conversation = static_cast<Conversation *>(user);
  if (type != CURLINFO_HEADER_OUT && type != CURLINFO_HEADER_IN) return 0;
  std::string_view text(data, size);
  while (!text.empty()) {
    std::size_t end = text.find('\n');
    std::string_view line = text.substr(0, end == std::string_view::npos ? text.size() : end + 1);
    text.remove_prefix(line.size());
    if (type == CURLINFO_HEADER_OUT) {
      conversation->sent_line(line);
    } else {
      conversation->received_line(line);
    }
  }
  return 0;
}

size_t on_read(char *buffer, size_t size, size_t count, void *user) {
  auto *conversation = static_cast<Conversation *>(user);
  std::size_t room = size * count;
  std::size_t left = conversation->upload.size() - conversation->upload_offset;
  std::size_t length = std::min(room, left);
  std::memcpy(buffer, conversation->upload.data() + conversation->upload_offset, length);
  conversation->upload_offset += length;
  return length;
}

int on_progress(void *user, curl_off_t, curl_off_t, curl_off_t, curl_off_t) {
  auto *conversation = static_cast<Conversation *>(user);
  return conversation->stopping->load() ? 1 : 0;
}

struct CurlDeleter {
  void operator()(CURL *curl) const { curl_easy_cleanup(curl); }
};
struct ListDeleter {
  void operator()(curl_slist *list) const { curl_slist_free_all(list); }
};

std::once_flag curl_initialised;

}  // namespace

struct Mailer::State {
  MailerSettings settings;
  GMainContext *context = nullptr;
  ResultCallback on_result;
  std::string host_name;
  bool alive = true;  // loop thread only: false once stopped, so late results are discarded

  mutable std::mutex mutex;
  std::condition_variable wake;
  std::deque<Pending> queue;    // waiting, each due at its not_before
  std::size_t bytes = 0;        // of the waiting messages and the one in flight
  bool in_flight = false;
  std::atomic<bool> stopping{false};
  std::thread worker;

  std::set<std::string> vrfs_reported;  // worker only

  std::size_t messages_locked() const { return queue.size() + (in_flight ? 1 : 0); }
};

namespace {

struct Posted {
  std::shared_ptr<Mailer::State> state;
  MailResult result;
};

}  // namespace

// Runs on the loop thread: a GSource is always dispatched by whoever iterates the context, never
// by the thread that attached it.
static gboolean dispatch_result(gpointer data) {
  auto *posted = static_cast<Posted *>(data);
  if (posted->state->alive && posted->state->on_result) posted->state->on_result(posted->result);
  return G_SOURCE_REMOVE;
}

static void post_result(const std::shared_ptr<Mailer::State> &state, MailResult result) {
  auto *posted = new Posted{state, std::move(result)};
  GSource *source = g_idle_source_new();
  g_source_set_callback(source, dispatch_result, posted, [](gpointer data) { delete static_cast<Posted *>(data); });
  g_source_attach(source, state->context);
  g_source_unref(source);
}

static MailResult result_of(const Pending &pending, MailOutcome outcome, std::string detail) {
  MailResult result;
  result.schedule = pending.schedule;
  result.job = pending.job;
  result.outcome = outcome;
  result.attempts = pending.attempts;
  result.refused = pending.invalid;
  result.detail = std::move(detail);
  return result;
}

// The device to bind to, or empty for the default routing (said once per VRF name).
static std::string bound_device(Mailer::State &state, const std::string &vrf) {
  if (vrf.empty()) return "";
  if (valid_device_name(vrf) && access((state.settings.network_devices + "/" + vrf).c_str(), F_OK) == 0) return vrf;
  if (state.vrfs_reported.insert(vrf).second) {
    emit_text(syslog_msg_SCH_WARN, "mail: no network device for VRF " + header_safe(vrf, 64) + ", using the default routing");
  }
  return "";
}

static Attempt deliver(Mailer::State &state, const Pending &pending) {
  Attempt attempt;
  std::unique_ptr<CURL, CurlDeleter> curl(curl_easy_init());
  if (!curl) {
    attempt.code = CURLE_FAILED_INIT;
    attempt.error = "cannot start a mail transfer";
    return attempt;
  }
  Conversation conversation;
  conversation.attempt = &attempt;
  conversation.stopping = &state.stopping;
  conversation.upload = pending.message;

  const std::string &server = pending.transport.server;
  bool ipv6_literal = server.find(':') != std::string::npos;
  std::string url = "smtp://" + (ipv6_literal ? "[" + server + "]" : server) + ":" +
                    std::to_string(pending.transport.port) + "/" + pending.sender.substr(pending.sender.find('@') + 1);
  std::string from = "<" + pending.sender + ">";
  std::unique_ptr<curl_slist, ListDeleter> recipients;
  for (const std::string &recipient : pending.recipients) {
    curl_slist *grown = curl_slist_append(recipients.get(), ("<" + recipient + ">").c_str());
    if (!grown) {
      attempt.code = CURLE_OUT_OF_MEMORY;
      attempt.error = "out of memory";
      return attempt;
    }
    (void)recipients.release();
    recipients.reset(grown);
  }
  std::string device = bound_device(state, pending.transport.vrf);
  std::string interface = "if!" + device;
  char error[CURL_ERROR_SIZE] = {};

  CURL *handle = curl.get();
  curl_easy_setopt(handle, CURLOPT_URL, url.c_str());
  curl_easy_setopt(handle, CURLOPT_PROTOCOLS_STR, "smtp");
  curl_easy_setopt(handle, CURLOPT_NOSIGNAL, 1L);
  curl_easy_setopt(handle, CURLOPT_MAIL_FROM, from.c_str());
  curl_easy_setopt(handle, CURLOPT_MAIL_RCPT, recipients.get());
#if defined(CURLOPT_MAIL_RCPT_ALLOWFAILS) || LIBCURL_VERSION_NUM >= 0x080200
  curl_easy_setopt(handle, CURLOPT_MAIL_RCPT_ALLOWFAILS, 1L);
#else
  // The option's first name, misspelt by libcurl itself before 8.2: intended.
  curl_easy_setopt(handle, CURLOPT_MAIL_RCPT_ALLLOWFAILS, 1L);
#endif
  curl_easy_setopt(handle, CURLOPT_USE_SSL, static_cast<long>(CURLUSESSL_TRY));
  curl_easy_setopt(handle, CURLOPT_SSL_VERIFYPEER, 1L);
  curl_easy_setopt(handle, CURLOPT_SSL_VERIFYHOST, 2L);
  if (!state.settings.ca_file.empty()) curl_easy_setopt(handle, CURLOPT_CAINFO, state.settings.ca_file.c_str());
  curl_easy_setopt(handle, CURLOPT_CONNECTTIMEOUT_MS, static_cast<long>(state.settings.connect_timeout.count()));
  curl_easy_setopt(handle, CURLOPT_TIMEOUT_MS, static_cast<long>(state.settings.transfer_timeout.count()));
  if (!device.empty()) curl_easy_setopt(handle, CURLOPT_INTERFACE, interface.c_str());
  curl_easy_setopt(handle, CURLOPT_UPLOAD, 1L);
  curl_easy_setopt(handle, CURLOPT_INFILESIZE_LARGE, static_cast<curl_off_t>(pending.message.size()));
  curl_easy_setopt(handle, CURLOPT_READFUNCTION, on_read);
  curl_easy_setopt(handle, CURLOPT_READDATA, &conversation);
  curl_easy_setopt(handle, CURLOPT_VERBOSE, 1L);
  curl_easy_setopt(handle, CURLOPT_DEBUGFUNCTION, on_debug);
  curl_easy_setopt(handle, CURLOPT_DEBUGDATA, &conversation);
  curl_easy_setopt(handle, CURLOPT_NOPROGRESS, 0L);
  curl_easy_setopt(handle, CURLOPT_XFERINFOFUNCTION, on_progress);
  curl_easy_setopt(handle, CURLOPT_XFERINFODATA, &conversation);
  curl_easy_setopt(handle, CURLOPT_ERRORBUFFER, error);

  attempt.code = curl_easy_perform(handle);
  curl_easy_getinfo(handle, CURLINFO_RESPONSE_CODE, &attempt.reply_code);
  if (attempt.code != CURLE_OK) {
    attempt.error = header_safe(error[0] ? error : curl_easy_strerror(attempt.code), kMaxQuotedLength);
  }
  return attempt;
}

namespace {

// Takes the next due message out of the queue, waiting for one; false when stopping.
bool next_due(Mailer::State &state, Pending *pending) {
  std::unique_lock lock(state.mutex);
  while (true) {
    if (state.stopping) return false;
    if (!state.queue.empty()) {
      auto due = std::min_element(state.queue.begin(), state.queue.end(),
                                  [](const Pending &a, const Pending &b) { return a.not_before < b.not_before; });
      if (due->not_before <= Clock::now()) {
        *pending = std::move(*due);
        state.queue.erase(due);
        state.in_flight = true;
        return true;
      }
      // A copy: the entry may be dropped from the queue while the lock is released.
      Clock::time_point until = due->not_before;
      state.wake.wait_until(lock, until);
    } else {
      state.wake.wait(lock);
    }
  }
}

std::string delivered_text(const Pending &pending, const Attempt &attempt, const std::vector<std::string> &refused) {
  std::string text = about(pending.schedule, pending.job) + " delivered to " + std::to_string(attempt.accepted.size()) +
                     " of " + std::to_string(attempt.accepted.size() + refused.size()) + " recipients";
  if (!refused.empty()) text += "; refused: " + join(refused);
  text += " (attempt " + std::to_string(pending.attempts) + "): " + attempt.last_reply;
  return text;
}

}  // namespace

static void work(const std::shared_ptr<Mailer::State> &shared) {
  Mailer::State &state = *shared;
  Pending pending;
  while (next_due(state, &pending)) {
    pending.attempts++;
    Attempt attempt = deliver(state, pending);

    std::unique_lock lock(state.mutex);
    state.in_flight = false;
    if (attempt.code == CURLE_ABORTED_BY_CALLBACK && state.stopping) {
      state.bytes -= pending.bytes();
      lock.unlock();
      emit_text(syslog_msg_SCH_WARN, about(pending.schedule, pending.job) + " dropped: the mailer stopped during delivery");
      continue;
    }
    if (attempt.code == CURLE_OK) {
      state.bytes -= pending.bytes();
      lock.unlock();
      std::vector<std::string> refused = pending.invalid;
      refused.insert(refused.end(), attempt.refused.begin(), attempt.refused.end());
      bool whole = refused.empty();
      emit_text(whole ? syslog_msg_SCH_MSG : syslog_msg_SCH_WARN, delivered_text(pending, attempt, refused));
      MailResult result = result_of(pending, whole ? MailOutcome::delivered : MailOutcome::partly_delivered,
                                    attempt.last_reply);
      result.accepted = attempt.accepted;
      result.refused = refused;
      post_result(shared, std::move(result));
      continue;
    }

    std::string reason = attempt.error;
    if (!attempt.last_reply.empty()) reason += "; server: " + attempt.last_reply;
    if (!attempt.refused.empty()) reason += "; refused: " + join(attempt.refused);
    // A 5xx reply, to the message or to every recipient, will not change on a retry.
    bool for_good = attempt.reply_code >= 500 || (attempt.accepted.empty() && attempt.refused_for_good);
    std::size_t retries = state.settings.retry_delays.size();
    if (!for_good && static_cast<std::size_t>(pending.attempts) <= retries && !state.stopping) {
      pending.not_before = Clock::now() + state.settings.retry_delays[pending.attempts - 1];
      state.queue.push_back(std::move(pending));
      continue;
    }
    state.bytes -= pending.bytes();
    lock.unlock();
    emit_text(syslog_msg_SCH_ERR, about(pending.schedule, pending.job) + " given up after " +
                                 std::to_string(pending.attempts) + (pending.attempts == 1 ? " attempt: " : " attempts: ") +
                                 reason);
    MailResult result = result_of(pending, MailOutcome::given_up, reason);
    result.refused.insert(result.refused.end(), attempt.refused.begin(), attempt.refused.end());
    post_result(shared, std::move(result));
  }
}

Mailer::Mailer(MailerSettings settings, GMainContext *context, ResultCallback on_result)
    : state_(std::make_shared<State>()) {
  std::call_once(curl_initialised, [] { curl_global_init(CURL_GLOBAL_DEFAULT); });
  state_->settings = std::move(settings);
  state_->context = context ? context : g_main_context_default();
  g_main_context_ref(state_->context);
  state_->on_result = std::move(on_result);
  state_->host_name = state_->settings.host_name;
  if (state_->host_name.empty()) {
    char name[256] = {};
    if (gethostname(name, sizeof name - 1) == 0) state_->host_name = name;
  }
  std::shared_ptr<State> shared = state_;
  state_->worker = std::thread([shared] { work(shared); });
}

Mailer::~Mailer() {
  stop();
  g_main_context_unref(state_->context);
}

bool Mailer::submit(const MailRequest &request) {
  const RunReport &run = request.run;
  auto refuse = [&](const std::string &reason, std::vector<std::string> refused) {
    emit_text(syslog_msg_SCH_ERR, about(run.schedule, run.job) + " not sent: " + reason);
    MailResult result;
    result.schedule = run.schedule;
    result.job = run.job;
    result.outcome = MailOutcome::rejected;
    result.refused = std::move(refused);
    result.detail = reason;
    post_result(state_, std::move(result));
    return false;
  };
  if (!state_->alive) return false;
  const Transport &transport = request.transport;
  if (!valid_server(transport.server) || transport.port == 0 || transport.port > 65535) {
    return refuse("no valid SMTP server configured", {});
  }

  Pending pending;
  pending.schedule = run.schedule;
  pending.job = run.job;
  pending.transport = transport;
  Addressing addressing;
  addressing.sender = transport.sender.empty() ? default_sender(state_->host_name) : transport.sender;
  addressing.reply_to = transport.reply_to;
  sort_recipients(request.recipients, &addressing, &pending.invalid);
  // Reported addresses are shown, never used: made safe once, here, for every log line and result.
  for (std::string &invalid : pending.invalid) invalid = header_safe(invalid, kMaxAddressLength + 8);
  if (addressing.recipients.empty()) return refuse("no valid recipient address", pending.invalid);

  std::random_device random;
  unsigned long long number = (static_cast<unsigned long long>(random()) << 32) ^ random();
  std::string message_id = make_message_id(run.ended, number, state_->host_name);
  std::string error;
  if (!compose(run, addressing, state_->host_name, message_id, state_->settings.compose, &pending.message, &error)) {
    return refuse(error, pending.invalid);
  }
  pending.sender = addressing.sender;
  pending.recipients = std::move(addressing.recipients);

  std::vector<Pending> dropped;
  bool taken = true;
  {
    std::lock_guard lock(state_->mutex);
    std::size_t size = pending.bytes();
    auto full = [&] {
      return state_->messages_locked() + 1 > state_->settings.max_queued_messages ||
             state_->bytes + size > state_->settings.max_queued_bytes;
    };
    // The oldest waiting runs make room for the newest; the one in flight is never taken back.
    while (full() && !state_->queue.empty()) {
      state_->bytes -= state_->queue.front().bytes();
      dropped.push_back(std::move(state_->queue.front()));
      state_->queue.pop_front();
    }
    if (full()) {
      taken = false;
    } else {
      state_->bytes += size;
      state_->queue.push_back(std::move(pending));
    }
  }
  if (taken) state_->wake.notify_one();
  if (!taken) dropped.push_back(std::move(pending));
  for (Pending &old : dropped) {
    emit_text(syslog_msg_SCH_WARN, about(old.schedule, old.job) + " dropped: the mail queue is full");
    post_result(state_, result_of(old, MailOutcome::dropped, "the mail queue is full"));
  }
  return taken;
}

void Mailer::stop() {
  if (!state_->worker.joinable()) return;
  std::size_t waiting;
  {
    std::lock_guard lock(state_->mutex);
    state_->stopping = true;
    waiting = state_->queue.size();
    state_->queue.clear();
  }
  state_->wake.notify_all();
  state_->worker.join();
  state_->alive = false;
  state_->bytes = 0;
  if (waiting > 0) emit_text(syslog_msg_SCH_WARN, "mail: " + std::to_string(waiting) + " waiting messages dropped at shutdown");
}

std::size_t Mailer::queued_messages() const {
  std::lock_guard lock(state_->mutex);
  return state_->messages_locked();
}

std::size_t Mailer::queued_bytes() const {
  std::lock_guard lock(state_->mutex);
  return state_->bytes;
}

}  // namespace schedd::mail
