// Composition and checks of the job-output message.
#include "mail_message.h"

#include <sys/wait.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>

namespace schedd::mail {

namespace {

constexpr std::string_view kCrlf = "\r\n";
constexpr std::string_view kReplacement = "\xEF\xBF\xBD";  // U+FFFD
constexpr std::size_t kMaxSubjectNameLength = 64;
constexpr std::size_t kMaxHostNameLength = 253;

bool is_letter_or_digit(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9');
}

// RFC 5322 atext without quoting: what a dot-atom local part may hold besides dots.
bool is_local_character(char c) {
  if (is_letter_or_digit(c)) return true;
  static constexpr std::string_view kSpecials = "!#$%&'*+-/=?^_`{|}~";
  return kSpecials.find(c) != std::string_view::npos;
}

bool valid_local_part(std::string_view local) {
  if (local.empty() || local.size() > kMaxLocalPartLength) return false;
  if (local.front() == '.' || local.back() == '.') return false;
  if (local.find("..") != std::string_view::npos) return false;
  return std::all_of(local.begin(), local.end(), [](char c) { return c == '.' || is_local_character(c); });
}

bool valid_label(std::string_view label) {
  if (label.empty() || label.size() > 63) return false;
  if (label.front() == '-' || label.back() == '-') return false;
  return std::all_of(label.begin(), label.end(), [](char c) { return c == '-' || is_letter_or_digit(c); });
}

bool valid_domain(std::string_view domain) {
  if (domain.empty() || domain.size() > kMaxDomainLength) return false;
  std::size_t start = 0;
  while (true) {
    std::size_t dot = domain.find('.', start);
    std::string_view label = domain.substr(start, dot == std::string_view::npos ? dot : dot - start);
    if (!valid_label(label)) return false;
    if (dot == std::string_view::npos) return true;
    start = dot + 1;
  }
}

// Length of the well-formed UTF-8 sequence at the start of `text`, or 0 when it is not one
// (overlong forms, surrogates and values above U+10FFFF included).
std::size_t utf8_sequence_length(std::string_view text) {
  auto byte = [&](std::size_t i) { return static_cast<unsigned char>(text[i]); };
  unsigned char first = byte(0);
  if (first < 0x80) return 1;
  std::size_t length;
  unsigned char low = 0x80, high = 0xBF;
  if (first >= 0xC2 && first <= 0xDF) {
    length = 2;
  } else if (first >= 0xE0 && first <= 0xEF) {
    length = 3;
    if (first == 0xE0) low = 0xA0;
    if (first == 0xED) high = 0x9F;
  } else if (first >= 0xF0 && first <= 0xF4) {
    length = 4;
    if (first == 0xF0) low = 0x90;
    if (first == 0xF4) high = 0x8F;
  } else {
    return 0;
  }
  if (text.size() < length) return 0;
  if (byte(1) < low || byte(1) > high) return 0;
  for (std::size_t i = 2; i < length; i++) {
    if (byte(i) < 0x80 || byte(i) > 0xBF) return 0;
  }
  return length;
}

// Appends one character (already made safe) to the line in hand, breaking the line first when the
// character would carry it past the limit.
void append_character(std::string *body, std::size_t *line_length, std::string_view character) {
  if (*line_length + character.size() > kMaxLineOctets) {
    body->append(kCrlf);
    *line_length = 0;
  }
  body->append(character);
  *line_length += character.size();
}

std::string two_digits(int value) {
  char text[8];
  std::snprintf(text, sizeof text, "%02d", value);
  return text;
}

std::string fold_address_list(const std::vector<std::string> &addresses) {
  // One address a line keeps every header line short, however many recipients there are.
  std::string list;
  for (std::size_t i = 0; i < addresses.size(); i++) {
    if (i > 0) list.append(",\r\n ");
    list.append(addresses[i]);
  }
  return list;
}

// A run that could not start has no exit code of its own; it still reads as failed.
int effective_status(const RunReport &run) {
  if (!run.failure_reason.empty() && run.wait_status == 0) return 1 << 8;
  return run.wait_status;
}

std::string describe_run(const RunReport &run, std::string_view host_name) {
  std::string text;
  auto line = [&](std::string_view label, std::string_view value) {
    text.append(label);
    text.append(value);
    text.append("\n");
  };
  line("Schedule : ", header_safe(run.schedule, kMaxSubjectNameLength));
  line("Job      : ", header_safe(run.job, kMaxSubjectNameLength));
  line("User     : ", header_safe(run.user, kMaxSubjectNameLength));
  line("Host     : ", header_safe(host_name, kMaxHostNameLength));
  line("Started  : ", rfc5322_date(run.started));
  line("Ended    : ", rfc5322_date(run.ended));
  line("Result   : ", result_text(effective_status(run)));
  if (!run.failure_reason.empty()) {
    line("Reason   : ", run.failure_reason);
  } else if (WIFSIGNALED(run.wait_status)) {
    line("Signal   : ", std::to_string(WTERMSIG(run.wait_status)));
  }
  return text;
}

}  // namespace

bool valid_address(std::string_view address) {
  if (address.empty() || address.size() > kMaxAddressLength) return false;
  std::size_t at = address.find('@');
  if (at == std::string_view::npos || address.find('@', at + 1) != std::string_view::npos) return false;
  return valid_local_part(address.substr(0, at)) && valid_domain(address.substr(at + 1));
}

bool valid_header_text(std::string_view value, std::size_t max_length) {
  if (value.size() > max_length) return false;
  return std::all_of(value.begin(), value.end(), [](char c) { return c >= 0x20 && c < 0x7F; });
}

std::string header_safe(std::string_view text, std::size_t max_length) {
  std::string safe(text.substr(0, max_length));
  for (char &c : safe) {
    if (c < 0x20 || c >= 0x7F) c = '?';
  }
  return safe;
}

std::string result_text(int wait_status) {
  if (wait_status == 0) return "Success (0)";
  return "Failed (" + std::to_string((wait_status >> 8) & 0xFF) + ")";
}

std::string rfc5322_date(std::time_t when) {
  static constexpr const char *kDays[] = {"Sun", "Mon", "Tue", "Wed", "Thu", "Fri", "Sat"};
  static constexpr const char *kMonths[] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                            "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
  struct tm local {};
  if (!localtime_r(&when, &local)) {
    when = 0;
    gmtime_r(&when, &local);
  }
  long offset_minutes = local.tm_gmtoff / 60;
  char sign = offset_minutes < 0 ? '-' : '+';
  offset_minutes = std::labs(offset_minutes);
  std::string text = kDays[local.tm_wday % 7];
  text += ", " + std::to_string(local.tm_mday) + " " + kMonths[local.tm_mon % 12] + " " +
          std::to_string(local.tm_year + 1900) + " " + two_digits(local.tm_hour) + ":" + two_digits(local.tm_min) +
          ":" + two_digits(local.tm_sec) + " " + sign + two_digits(static_cast<int>(offset_minutes / 60)) +
          two_digits(static_cast<int>(offset_minutes % 60));
  return text;
}

std::string default_sender(std::string_view host_name) {
  std::string sender = "scheduler@" + std::string(host_name);
  return valid_address(sender) ? sender : "scheduler@localhost";
}

std::string body_text(std::string_view output, bool already_cut, std::size_t max_bytes) {
  bool cut = already_cut;
  if (output.size() > max_bytes) {
    output = output.substr(0, max_bytes);
    cut = true;
    // A character split by the bound is dropped whole rather than shown as a replacement mark.
    std::size_t lead = output.size();
    for (int back = 0; back < 4 && lead > 0; back++) {
      lead--;
      if ((static_cast<unsigned char>(output[lead]) & 0xC0) != 0x80) break;
    }
    if (static_cast<unsigned char>(output[lead]) >= 0xC0 && utf8_sequence_length(output.substr(lead)) == 0) {
      output = output.substr(0, lead);
    }
  }

  std::string body;
  body.reserve(output.size() + output.size() / 32 + 64);
  std::size_t line_length = 0;
  std::size_t i = 0;
  while (i < output.size()) {
    char c = output[i];
    if (c == '\n' || c == '\r') {
      body.append(kCrlf);
      line_length = 0;
      i += (c == '\r' && i + 1 < output.size() && output[i + 1] == '\n') ? 2 : 1;
      continue;
    }
    if (c == '\0') {
      append_character(&body, &line_length, kReplacement);
      i++;
      continue;
    }
    std::size_t length = utf8_sequence_length(output.substr(i));
    if (length == 0) {
      append_character(&body, &line_length, kReplacement);
      i++;
      continue;
    }
    append_character(&body, &line_length, output.substr(i, length));
    i += length;
  }
  if (line_length > 0) body.append(kCrlf);
  if (cut) {
    body.append(kOutputCutMarker);
    body.append(kCrlf);
  }
  return body;
}

void sort_recipients(const std::vector<std::string> &configured, Addressing *addressing,
                     std::vector<std::string> *rejected) {
  for (const std::string &address : configured) {
    if (!valid_address(address)) {
      rejected->push_back(address);
      continue;
    }
    auto &recipients = addressing->recipients;
    if (std::find(recipients.begin(), recipients.end(), address) == recipients.end()) recipients.push_back(address);
  }
}

std::string make_message_id(std::time_t when, unsigned long long random, std::string_view host_name) {
  std::string sender = default_sender(host_name);
  char text[64];
  std::snprintf(text, sizeof text, "%lld.%016llx", static_cast<long long>(when), random);
  return std::string(text) + sender.substr(sender.find('@'));
}

bool compose(const RunReport &run, const Addressing &addressing, std::string_view host_name,
             std::string_view message_id, const ComposeLimits &limits, std::string *message,
             std::string *error) {
  if (!valid_address(addressing.sender)) {
    *error = "invalid sender address";
    return false;
  }
  if (!addressing.reply_to.empty() && !valid_address(addressing.reply_to)) {
    *error = "invalid reply-to address";
    return false;
  }
  if (addressing.recipients.empty()) {
    *error = "no recipient";
    return false;
  }
  for (const std::string &recipient : addressing.recipients) {
    if (!valid_address(recipient)) {
      *error = "invalid recipient address";
      return false;
    }
  }
  if (!valid_header_text(message_id, kMaxLineOctets - 16) || message_id.find_first_of("<> ") != std::string_view::npos) {
    *error = "invalid message id";
    return false;
  }

  std::string host = header_safe(host_name, kMaxHostNameLength);
  std::string result = result_text(effective_status(run));
  std::string subject = "Scheduler job " + header_safe(run.job, kMaxSubjectNameLength) + " of schedule " +
                        header_safe(run.schedule, kMaxSubjectNameLength) + " on " + host + ": " + result;

  std::string text;
  auto header = [&](std::string_view name, std::string_view value) {
    text.append(name);
    text.append(": ");
    text.append(value);
    text.append(kCrlf);
  };
  header("Date", rfc5322_date(run.ended));
  header("From", addressing.sender);
  header("To", fold_address_list(addressing.recipients));
  if (!addressing.reply_to.empty()) header("Reply-To", addressing.reply_to);
  header("Subject", subject);
  header("Message-ID", "<" + std::string(message_id) + ">");
  header("Auto-Submitted", "auto-generated");
  header("MIME-Version", "1.0");
  header("Content-Type", "text/plain; charset=utf-8");
  header("Content-Transfer-Encoding", "8bit");
  text.append(kCrlf);
  text.append(body_text(describe_run(run, host_name), false, limits.max_output_bytes));
  text.append(kCrlf);
  text.append(body_text(run.output, run.output_cut, limits.max_output_bytes));
  *message = std::move(text);
  return true;
}

}  // namespace schedd::mail
