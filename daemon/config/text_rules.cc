// The rules for texts that the configuration text carries.
#include "config/text_rules.h"

#include <algorithm>
#include <string>

#include "mail_message.h"
#include "schedcli/cli.h"

namespace schedd {

namespace {

// The job mode trims these around a line before it compares the line with "end-job".
bool blank(char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n' || c == '\v' || c == '\f'; }

std::string_view trimmed(std::string_view line) {
  while (!line.empty() && blank(line.front())) line.remove_prefix(1);
  while (!line.empty() && blank(line.back())) line.remove_suffix(1);
  return line;
}

}  // namespace

bool control_character(char c) { return static_cast<unsigned char>(c) < 0x20 || c == 0x7F; }

bool plain_word(std::string_view text) {
  return !text.empty() && std::none_of(text.begin(), text.end(), [](char c) { return c == ' ' || control_character(c); });
}

bool job_text_travels(std::span<const uint8_t> bytes) {
  std::string_view text(reinterpret_cast<const char *>(bytes.data()), bytes.size());
  // Printed as it stands and followed by "end-job": a last line without its newline would run into it.
  if (!text.empty() && text.back() != '\n') return false;
  while (!text.empty()) {
    size_t end = text.find('\n');
    std::string_view line = text.substr(0, end);
    // A tab reads back as it stands; other control bytes do not. The shell takes a line "?" for a
    // request for help and "end-job" for the end of the job.
    if (std::any_of(line.begin(), line.end(), [](char c) { return c != '\t' && control_character(c); })) return false;
    if (trimmed(line) == "end-job" || trimmed(line) == "?") return false;
    text.remove_prefix(end + 1);
  }
  return true;
}

bool address_travels(std::string_view address) { return schedd::mail::valid_address(address); }

bool host_name_travels(std::string_view host) {
  return host.size() <= 253 && host.find('\0') == std::string_view::npos && sch_is_host_name(std::string(host).c_str());
}

}  // namespace schedd
