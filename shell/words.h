// What the shell's grammar accepts in the words it hands on: times of each kind, email
// addresses, names and job lines. Malformed words are refused here, before any handler runs,
// because the handlers take much of what they are given without a word (02:30pm as 02:30).
#ifndef SCHEDSH_WORDS_H
#define SCHEDSH_WORDS_H

#include <optional>
#include <string_view>

namespace schedsh {

// A rule a variable's word must satisfy, and how a refusal names the word and its form.
struct WordRule {
  std::string_view what;       // "time", "email address", ...
  std::string_view expected;   // the accepted form, as the refusal shows it
  bool (*accepts)(std::string_view word);
};

// Bytes below 0x20 and DEL. Such bytes would reach the daemon's records, the configuration text
// and mail headers, where they would change what is read back.
bool has_control_character(std::string_view text);

// One address local@domain, no blanks or control characters: the local part of letters,
// digits and !#$%&'*+-/=?^_`{|}~ with single inner dots, the domain of dot-separated labels of
// letters, digits and inner hyphens. The one rule for every address the scheduler mails.
bool is_email_address(std::string_view text);

// The shapes each kind of time takes; every number is one or two digits (a year four), a day
// or month also a name (Mon, monday; Jan, january). Values are not range-checked here: the
// handlers do that with their own messages.
bool is_daily_time(std::string_view word);      // HH:MM or MM
bool is_weekly_time(std::string_view word);     // dow:HH:MM
bool is_monthly_time(std::string_view word);    // dm:HH:MM
bool is_start_time(std::string_view word);      // yyyy:mmm:dd:HH:MM ... HH:MM, or +dd:HH:MM ... +MM
bool is_interval(std::string_view word);        // dd:HH:MM, HH:MM or MM

// Why a line cannot be one of a job's commands, or nothing when it can: it must hold no
// control character but a tab, and must read back as a job line (not end-job, not '?').
std::optional<std::string_view> job_line_problem(std::string_view line);

extern const WordRule kDailyTimeRule;
extern const WordRule kWeeklyTimeRule;
extern const WordRule kMonthlyTimeRule;
extern const WordRule kStartTimeRule;
extern const WordRule kIntervalRule;
extern const WordRule kEmailAddressRule;
extern const WordRule kNameRule;   // not empty, no control characters
extern const WordRule kTextRule;   // no control characters (passwords, file names)

}  // namespace schedsh

#endif
