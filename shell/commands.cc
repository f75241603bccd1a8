// The command table of the shell and what each command hands to the library.
#include "commands.h"

#include "cli/request.h"
#include "context.h"
#include "schedcli/status.h"
#include "shell.h"

namespace schedsh {

namespace {

constexpr std::string_view kNo = "Negate a command";
constexpr std::string_view kScheduler = "Scheduler configuration";
constexpr std::string_view kName = "Name: a letter or digit, then letters, digits, '_' or '-'";
constexpr std::string_view kStartTime = "Start: yyyy:mmm:dd:HH:MM, mmm:dd:HH:MM, dd:HH:MM, HH:MM or +dd:HH:MM";
constexpr std::string_view kInterval = "Interval: dd:HH:MM, HH:MM or MM";

// Whether the command was typed in its no form.
bool no_form(const Arguments &arguments) { return arguments.has("no"); }

// The handlers cut a longer value to its field without a word (or send it unterminated), so
// that another name than the one typed would be used: refuse it here instead.
bool fits(Shell &shell, const std::string *value, std::size_t field_size, std::string_view what) {
  if (!value || value->size() < field_size) return true;
  shell.err() << "% " << what << " too long: at most " << field_size - 1 << " characters\n";
  return false;
}

bool name_fits(Shell &shell, const std::string *name) { return fits(shell, name, SCH_NAME_SIZE, "Name"); }

// ---- Modes ----

bool configure_terminal(Shell &shell, const Arguments &) {
  shell.enter(Mode::Config);
  return true;
}

bool exit_mode(Shell &shell, const Arguments &) {
  shell.exit_mode();
  return true;
}

bool end_mode(Shell &shell, const Arguments &) {
  shell.enter(Mode::Exec);
  return true;
}

bool debug_scheduler(Shell &shell, const Arguments &arguments) {
  shell.session().debug = !no_form(arguments);
  return true;
}

// ---- Show ----

bool show_jobs(Shell &shell, const Arguments &arguments) {
  if (!name_fits(shell, arguments.get("<job>"))) return false;
  CommandContext context(shell.session(), false);
  if (const std::string *name = arguments.get("<job>")) context.add_string(*name);
  return shell.backend().show_jobs(context.get()) == 0;
}

bool show_schedules(Shell &shell, const Arguments &arguments) {
  if (!name_fits(shell, arguments.get("<schedule>"))) return false;
  CommandContext context(shell.session(), false);
  if (const std::string *name = arguments.get("<schedule>")) context.add_string(*name);
  return shell.backend().show_schedules(context.get()) == 0;
}

// ---- Jobs ----

bool job(Shell &shell, const Arguments &arguments) {
  std::string name = arguments.value("<job>");
  bool created = false;
  if (name_fits(shell, &name)) {
    CommandContext context(shell.session(), no_form(arguments));
    context.add_string(name);
    created = shell.backend().create_delete_job(context.get()) == 0;
  }
  // Job mode is entered even when the job could not be created, so that the job's lines that
  // follow are taken as text (and dropped) rather than run as commands.
  if (!no_form(arguments)) shell.enter_job(std::move(name), created);
  return created;
}

// The daemon defines only jobs that exist, so the job is created first, as in job mode; a job
// that exists already is refused the same way there and here.
bool job_on_one_line(Shell &shell, const Arguments &arguments) {
  if (!name_fits(shell, arguments.get("<job>"))) return false;
  CommandContext create(shell.session(), false);
  create.add_string(arguments.value("<job>"));
  if (shell.backend().create_delete_job(create.get()) != 0) return false;
  CommandContext define(shell.session(), false);
  define.add_string(arguments.value("<job>"));
  define.add_string(arguments.value("<commands>"));
  return shell.backend().semicolon_define_job(define.get()) == 0;
}

// ---- Schedules ----

bool schedule(Shell &shell, const Arguments &arguments) {
  std::string name = arguments.value("<schedule>");
  if (!name_fits(shell, &name)) return false;
  CommandContext context(shell.session(), no_form(arguments));
  context.add_string(name);
  uint32_t result = shell.backend().create_delete_schedule(context.get());
  if (no_form(arguments)) return result == 0;
  // An existing schedule is entered quietly: that is how it is changed.
  if (result != 0 && result != SCH_STATUS_EXISTS) return false;
  shell.enter_schedule(std::move(name));
  return true;
}

// Every modify command names the schedule of the mode first.
bool modify_schedule(Shell &shell, const Arguments &arguments, uint32_t code,
                     std::initializer_list<std::string_view> variables) {
  CommandContext context(shell.session(), no_form(arguments));
  context.set_code(code);
  context.add_string(shell.schedule_name());
  for (std::string_view variable : variables) context.add_string(arguments.value(variable));
  return shell.backend().modify_schedule(context.get()) == 0;
}

bool schedule_job(Shell &shell, const Arguments &arguments) {
  if (!name_fits(shell, arguments.get("<job>"))) return false;
  return modify_schedule(shell, arguments, SCH_MODIFY_JOB, {"<job>"});
}

bool time_daily(Shell &shell, const Arguments &arguments) {
  return modify_schedule(shell, arguments, SCH_MODIFY_DAILY, {"<time>"});
}

bool time_weekly(Shell &shell, const Arguments &arguments) {
  return modify_schedule(shell, arguments, SCH_MODIFY_WEEKLY, {"<time>"});
}

bool time_monthly(Shell &shell, const Arguments &arguments) {
  return modify_schedule(shell, arguments, SCH_MODIFY_MONTHLY, {"<time>"});
}

bool time_start(Shell &shell, const Arguments &arguments) {
  if (!arguments.has("repeat")) return modify_schedule(shell, arguments, SCH_MODIFY_ONESHOT, {"<time>"});
  // Without a start time the handler sees two parameters and starts two minutes from now.
  if (arguments.has("now")) return modify_schedule(shell, arguments, SCH_MODIFY_START_REPEAT, {"<interval>"});
  return modify_schedule(shell, arguments, SCH_MODIFY_START_REPEAT, {"<time>", "<interval>"});
}

bool email_address(Shell &shell, const Arguments &arguments) {
  if (!fits(shell, arguments.get("<address>"), SCH_EMAIL_SIZE, "Email address")) return false;
  CommandContext context(shell.session(), no_form(arguments));
  context.add_string(shell.schedule_name());
  context.add_string(arguments.value("<address>"));
  return shell.backend().modify_schedule_emailaddr(context.get()) == 0;
}

// ---- Credentials ----

constexpr int kCredentialDone = 8;   // this handler's success result

bool aaa_authentication(Shell &shell, const Arguments &arguments) {
  CommandContext context(shell.session(), no_form(arguments));
  if (const std::string *user = arguments.get("<user>")) context.add_string(*user, SCH_PARAM_USER_NAME);
  if (const std::string *password = arguments.get("<password>")) {
    context.add_string(*password, arguments.has("7") ? SCH_PARAM_ENCRYPTED_PASSWORD : SCH_PARAM_CLEAR_PASSWORD);
  }
  return shell.backend().aaa_auth_passwd(context.get()) == kCredentialDone;
}

}  // namespace

void register_commands(CommandTable &table) {
  const std::string_view exit_help = "Leave this mode";
  const std::string_view end_help = "Go back to exec mode";

  // Exec mode.
  table.add({Mode::Exec, "configure terminal",
             {"Enter configuration mode", "Configure from this terminal"}, configure_terminal});
  table.add({Mode::Exec, "show scheduler job [name <job>]",
             {"Show information", "Scheduler information", "Jobs and their commands", "One job by name", kName},
             show_jobs});
  table.add({Mode::Exec, "show scheduler schedule [name <schedule>]",
             {"Show information", "Scheduler information", "Schedules, their times and last runs",
              "One schedule by name", kName},
             show_schedules});
  table.add({Mode::Exec, "[no] debug scheduler",
             {kNo, "Trace what the commands do", "Trace the scheduler's commands to standard error"},
             debug_scheduler});
  table.add({Mode::Exec, "exit", {"Leave the shell"}, exit_mode});

  // Configuration mode.
  table.add({Mode::Config, "[no] scheduler job name <job>",
             {kNo, kScheduler, "A job: a named list of commands", "Name the job", kName}, job});
  table.add({Mode::Config, "scheduler job name <job> <commands>...",
             {kScheduler, "A job: a named list of commands", "Name the job", kName,
              "The job's commands, separated by \" ; \""},
             job_on_one_line});
  table.add({Mode::Config, "[no] scheduler schedule name <schedule>",
             {kNo, kScheduler, "A schedule: when to run which jobs", "Name the schedule", kName}, schedule});
  table.add({Mode::Config, "[no] scheduler aaa-authentication [username <user>] password [0|7] <password>",
             {kNo, kScheduler, "Password under which remote users' jobs run", "Whose password (default: yours)",
              "User name", "The password", "The password follows in clear text",
              "The password follows in encrypted form", "Password"},
             aaa_authentication});
  table.add({Mode::Config, "no scheduler aaa-authentication [username <user>]",
             {kNo, kScheduler, "Password under which remote users' jobs run", "Whose password (default: yours)",
              "User name"},
             aaa_authentication});
  table.add({Mode::Config, "end", {end_help}, end_mode});
  table.add({Mode::Config, "exit", {"Leave configuration mode"}, exit_mode});

  // Schedule mode; configuration commands typed here are taken as in configuration mode.
  table.add({Mode::Schedule, "[no] job name <job>",
             {kNo, "A job the schedule runs", "Name the job", kName}, schedule_job});
  table.add({Mode::Schedule, "[no] time daily <time>",
             {kNo, "When the schedule runs", "Every day", "HH:MM"}, time_daily});
  table.add({Mode::Schedule, "[no] time weekly <time>",
             {kNo, "When the schedule runs", "Every week", "dow:HH:MM, dow = 1..7 or Sun..Sat"}, time_weekly});
  table.add({Mode::Schedule, "[no] time monthly <time>",
             {kNo, "When the schedule runs", "Every month", "dm:HH:MM, dm = 1..31"}, time_monthly});
  table.add({Mode::Schedule, "[no] time start <time> [repeat <interval>]",
             {kNo, "When the schedule runs", "Once, or from a start time on", kStartTime, "Run again after every interval",
              kInterval},
             time_start});
  table.add({Mode::Schedule, "[no] time start now repeat <interval>",
             {kNo, "When the schedule runs", "Once, or from a start time on", "Two minutes from now",
              "Run again after every interval", kInterval},
             time_start});
  table.add({Mode::Schedule, "[no] email-addr <address>",
             {kNo, "Mail the jobs' output", "Email address"}, email_address});
  table.add({Mode::Schedule, "end", {end_help}, end_mode});
  table.add({Mode::Schedule, "exit", {exit_help}, exit_mode});
}

}  // namespace schedsh
