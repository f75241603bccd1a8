// The word rules of the shell's grammar.
#include "words.h"

#include <algorithm>
#include <array>
#include <string>
#include <vector>

#include "tokenizer.h"

namespace schedsh {

namespace {

// The library's time parser keeps at most this many characters and drops the rest unseen.
constexpr std::size_t kTimeTextLimit = 17;

constexpr std::array<std::string_view, 7> kDays = {"sunday",   "monday", "tuesday", "wednesday",
                                                   "thursday", "friday", "saturday"};
constexpr std::array<std::string_view, 12> kMonths = {"january", "february", "march",     "april",
                                                      "may",     "june",     "july",      "august",
                                                      "september", "october", "november", "december"};

bool is_digit(char c) { return c >= '0' && c <= '9'; }
bool is_letter(char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'); }

bool digits(std::string_view field, std::size_t low, std::size_t high) {
  return field.size() >= low && field.size() <= high && std::all_of(field.begin(), field.end(), is_digit);
}

bool number_field(std::string_view field) { return digits(field, 1, 2); }

char lower(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; }

// The three-letter abbreviation or the whole name, in any letter case.
template <std::size_t N>
bool name_field(std::string_view field, const std::array<std::string_view, N> &names) {
  if (field.size() < 3) return false;
  return std::any_of(names.begin(), names.end(), [&](std::string_view name) {
    if (field.size() != 3 && field.size() != name.size()) return false;
    return std::equal(field.begin(), field.end(), name.begin(), [](char a, char b) { return lower(a) == b; });
  });
}

bool day_field(std::string_view field) { return number_field(field) || name_field(field, kDays); }
bool month_field(std::string_view field) { return number_field(field) || name_field(field, kMonths); }

std::vector<std::string_view> fields(std::string_view word) {
  std::vector<std::string_view> parts;
  for (std::size_t begin = 0;;) {
    std::size_t colon = word.find(':', begin);
    parts.push_back(word.substr(begin, colon == std::string_view::npos ? std::string_view::npos : colon - begin));
    if (colon == std::string_view::npos) return parts;
    begin = colon + 1;
  }
}

bool fits_parser(std::string_view word) { return !word.empty() && word.size() <= kTimeTextLimit; }

// The fields from `from` on are plain numbers.
bool clock_fields(const std::vector<std::string_view> &parts, std::size_t from) {
  return std::all_of(parts.begin() + static_cast<std::ptrdiff_t>(from), parts.end(), number_field);
}

bool is_local_part(std::string_view local) {
  if (local.empty() || local.front() == '.' || local.back() == '.' || local.find("..") != std::string_view::npos) {
    return false;
  }
  constexpr std::string_view kSpecials = "!#$%&'*+-/=?^_`{|}~.";
  return std::all_of(local.begin(), local.end(), [&](char c) {
    return is_letter(c) || is_digit(c) || kSpecials.find(c) != std::string_view::npos;
  });
}

bool is_domain(std::string_view domain) {
  if (domain.empty()) return false;
  for (std::size_t begin = 0; begin <= domain.size();) {
    std::size_t end = std::min(domain.find('.', begin), domain.size());
    std::string_view label = domain.substr(begin, end - begin);
    if (label.empty() || label.size() > 63 || label.front() == '-' || label.back() == '-') return false;
    if (!std::all_of(label.begin(), label.end(), [](char c) { return is_letter(c) || is_digit(c) || c == '-'; })) {
      return false;
    }
    begin = end + 1;
  }
  return true;
}

bool is_name(std::string_view word) { return !word.empty() && !has_control_character(word); }
bool is_text(std::string_view word) { return !has_control_character(word); }

}  // namespace

bool has_control_character(std::string_view text) {
  return std::any_of(text.begin(), text.end(), [](char c) {
    auto byte = static_cast<unsigned char>(c);
    return byte < 0x20 || byte == 0x7f;
  });
}

bool is_email_address(std::string_view text) {
  std::size_t at = text.find('@');
  if (at == std::string_view::npos || text.find('@', at + 1) != std::string_view::npos) return false;
  return text.size() <= 254 && is_local_part(text.substr(0, at)) && is_domain(text.substr(at + 1));
}

bool is_daily_time(std::string_view word) {
  if (!fits_parser(word)) return false;
  std::vector<std::string_view> parts = fields(word);
  return parts.size() <= 2 && clock_fields(parts, 0);
}

bool is_weekly_time(std::string_view word) {
  if (!fits_parser(word)) return false;
  std::vector<std::string_view> parts = fields(word);
  return parts.size() == 3 && day_field(parts[0]) && clock_fields(parts, 1);
}

bool is_monthly_time(std::string_view word) {
  if (!fits_parser(word)) return false;
  std::vector<std::string_view> parts = fields(word);
  return parts.size() == 3 && clock_fields(parts, 0);
}

bool is_start_time(std::string_view word) {
  if (!fits_parser(word)) return false;
  if (word.front() == '+') return is_interval(word.substr(1));
  std::vector<std::string_view> parts = fields(word);
  switch (parts.size()) {
    case 2:
    case 3: return clock_fields(parts, 0);
    case 4: return month_field(parts[0]) && clock_fields(parts, 1);
    case 5: return digits(parts[0], 4, 4) && month_field(parts[1]) && clock_fields(parts, 2);
    default: return false;
  }
}

bool is_interval(std::string_view word) {
  if (!fits_parser(word)) return false;
  std::vector<std::string_view> parts = fields(word);
  return parts.size() <= 3 && clock_fields(parts, 0);
}

std::optional<std::string_view> job_line_problem(std::string_view line) {
  // A tab is ordinary in a command and reads back unchanged; other control bytes are not.
  bool control = std::any_of(line.begin(), line.end(), [](char c) {
    auto byte = static_cast<unsigned char>(c);
    return (byte < 0x20 && c != '\t') || byte == 0x7f;
  });
  if (control) return "a job line holds a control character";
  std::string_view content = trim(line);
  if (content == "end-job") return "a job line cannot be end-job: it would end the job when read back";
  if (content == "?") return "a job line cannot be '?': it asks for help in job mode";
  return std::nullopt;
}

const WordRule kDailyTimeRule = {"time", "HH:MM or MM", is_daily_time};
const WordRule kWeeklyTimeRule = {"time", "dow:HH:MM, dow = 1..7 or Sun..Sat", is_weekly_time};
const WordRule kMonthlyTimeRule = {"time", "dm:HH:MM", is_monthly_time};
const WordRule kStartTimeRule = {
    "time", "yyyy:mmm:dd:HH:MM, mmm:dd:HH:MM, dd:HH:MM, HH:MM, or +dd:HH:MM, +HH:MM, +MM from now",
    is_start_time};
const WordRule kIntervalRule = {"interval", "dd:HH:MM, HH:MM or MM", is_interval};
const WordRule kEmailAddressRule = {"email address", "one address local@domain without blanks", is_email_address};
const WordRule kNameRule = {"name", "a name that is not empty and has no control characters", is_name};
const WordRule kTextRule = {"word", "text without control characters", is_text};

}  // namespace schedsh
