// The command table of the shell and what each command hands to the library or the platform.
#include "commands.h"

#include <arpa/inet.h>
#include <netinet/in.h>

#include <algorithm>

#include "cli/request.h"
#include "context.h"
#include "schedcli/cli_config.h"
#include "schedcli/platform/acfg.h"
#include "schedcli/platform/syserr.h"
#include "schedcli/platform/uri.h"
#include "schedcli/protocol.h"
#include "schedcli/status.h"
#include "shell.h"

namespace schedsh {

namespace {

// The feature whose commands `no feature scheduler` takes out of the shell.
constexpr std::string_view kFeature = "scheduler";
// The system log's name for the scheduler's messages.
constexpr std::string_view kLoggingFacility = "scheduler";

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

// Both handlers report their own failures and always return success.
bool show_config(Shell &shell, const Arguments &) {
  CommandContext context(shell.session(), false);
  return shell.backend().show_config(context.get()) == 0;
}

bool show_memory_statistics(Shell &shell, const Arguments &) {
  CommandContext context(shell.session(), false);
  return shell.backend().show_memstats(context.get()) == 0;
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

// ---- Feature, log file and transport ----

bool feature(Shell &shell, const Arguments &arguments) {
  CommandContext context(shell.session(), no_form(arguments));
  // A disable that the handler carries out takes the commands out itself, through the hook.
  if (shell.backend().enable_scheduler(context.get()) != 0) return false;
  // An enable the handler accepts, "already enabled" included, brings them back.
  if (!no_form(arguments)) shell.restore_feature(kFeature);
  return true;
}

bool logfile_size(Shell &shell, const Arguments &arguments) {
  CommandContext context(shell.session(), no_form(arguments));
  if (std::optional<int64_t> kilobytes = arguments.number("<1-65536>"); kilobytes && !no_form(arguments)) {
    context.add_integer(static_cast<int32_t>(*kilobytes));
  }
  return shell.backend().logfile_resize(context.get()) == 0;
}

bool logfile_name(Shell &shell, const Arguments &arguments) {
  CommandContext context(shell.session(), no_form(arguments));
  if (!no_form(arguments)) {
    file_uri uri;
    if (uri_parse(arguments.value("<uri>").c_str(), &uri) != 0) {
      shell.err() << "% Invalid file name: a path, or logs:, bootflash: or volatile: followed by a path "
                     "without \"..\"\n";
      return false;
    }
    context.add_file_uri(uri);
  }
  return shell.backend().logfile_rename(context.get()) == 0;
}

bool clear_logfile(Shell &shell, const Arguments &) {
  CommandContext context(shell.session(), false);
  return shell.backend().logfile_clear(context.get()) == 0;
}

bool transport_address(Shell &shell, const Arguments &arguments, uint32_t code) {
  CommandContext context(shell.session(), no_form(arguments));
  context.set_code(code);
  if (!no_form(arguments)) {
    if (!fits(shell, arguments.get("<address>"), sizeof(sch_email_transport_conf::from), "Email address")) return false;
    context.add_string(arguments.value("<address>"));
  }
  return shell.backend().email_transport(context.get()) == 0;
}

bool transport_from(Shell &shell, const Arguments &arguments) {
  return transport_address(shell, arguments, SCH_TRANSPORT_FROM);
}

bool transport_reply_to(Shell &shell, const Arguments &arguments) {
  return transport_address(shell, arguments, SCH_TRANSPORT_REPLY_TO);
}

// Letters, digits and inner hyphens in labels of 1 to 63, the last label not all digits: so
// that a mistyped IPv4 address is not taken for a name.
bool is_host_name(std::string_view host) {
  if (host.empty() || host.size() > 253) return false;
  std::string_view last;
  for (std::size_t begin = 0; begin <= host.size();) {
    std::size_t end = std::min(host.find('.', begin), host.size());
    std::string_view label = host.substr(begin, end - begin);
    bool valid = !label.empty() && label.size() <= 63 && label.front() != '-' && label.back() != '-' &&
                 std::all_of(label.begin(), label.end(), [](char c) {
                   return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '-';
                 });
    if (!valid) return false;
    last = label;
    begin = end + 1;
  }
  return !std::all_of(last.begin(), last.end(), [](char c) { return c >= '0' && c <= '9'; });
}

// The address kind the handler expects with a server; 0 for text that is none of them, which
// the handler refuses with its own message.
uint32_t host_address_kind(const std::string &host) {
  unsigned char address[sizeof(in6_addr)];
  if (host.find(':') != std::string::npos) return inet_pton(AF_INET6, host.c_str(), address) == 1 ? SCH_ADDRESS_IPV6 : 0;
  if (inet_pton(AF_INET, host.c_str(), address) == 1) return SCH_ADDRESS_IPV4;
  return is_host_name(host) ? SCH_ADDRESS_HOST_NAME : 0;
}

bool smtp_server(Shell &shell, const Arguments &arguments) {
  CommandContext context(shell.session(), no_form(arguments));
  context.set_code(SCH_TRANSPORT_SMTP_SERVER);
  uint32_t kind = SCH_ADDRESS_HOST_NAME;
  if (!no_form(arguments)) {
    const std::string host = arguments.value("<host>");
    if (!fits(shell, &host, sizeof(sch_email_transport_conf::smtp_server), "Host") ||
        !fits(shell, arguments.get("<vrf>"), sizeof(sch_email_transport_conf::vrf), "VRF name")) {
      return false;
    }
    kind = host_address_kind(host);
    context.add_string(host, 0, kind);
    if (std::optional<int64_t> port = arguments.number("<1-65535>")) context.add_integer(static_cast<int32_t>(*port));
    if (const std::string *vrf = arguments.get("<vrf>")) context.add_string(*vrf);
  }
  uint32_t result = shell.backend().email_transport(context.get());
  // The handler's refusal of the host ends without a line end; the line is ended here.
  if (kind == 0 && result != 0) shell.err() << '\n';
  return result == 0;
}

bool logging_level(Shell &shell, const Arguments &arguments) {
  std::optional<int64_t> level = arguments.number("<0-7>");
  uint32_t wanted = no_form(arguments) || !level ? ACFG_LEVEL_DEFAULT : static_cast<uint32_t>(*level);
  uint32_t status = shell.backend().logging_level(shell.session().session, kLoggingFacility, wanted);
  if (status != 0) shell.err() << "% Could not set the scheduler's logging level: " << syserr2str(status) << "\n";
  return status == 0;
}

// ---- Configuration text ----

bool show_configuration(Shell &shell, uint32_t cfg_type, std::string_view what) {
  std::string text;
  uint32_t status = shell.backend().config_text(shell.session().session, cfg_type, &text);
  if (status != 0) {
    shell.err() << "% Could not show the " << what << " configuration: " << syserr2str(status) << "\n";
    return false;
  }
  // As received: the text is meant to be pasted back.
  shell.out() << text;
  shell.out().flush();
  return true;
}

// The scheduler is all this configuration holds, so its filter shows the same text.
bool show_running_config(Shell &shell, const Arguments &) {
  return show_configuration(shell, ACFG_CFG_RUNNING, "running");
}

bool show_startup_config(Shell &shell, const Arguments &) {
  return show_configuration(shell, ACFG_CFG_STARTUP, "startup");
}

// Silent on success, as every configuration command: a script's output stays its own.
bool copy_running_config(Shell &shell, const Arguments &) {
  uint32_t status = shell.backend().copy_running_to_startup(shell.session().session);
  if (status != 0) {
    shell.err() << "% Could not copy the running configuration to the startup configuration: "
                << syserr2str(status) << "\n";
  }
  return status == 0;
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
  // The commands that `no feature scheduler` takes away.
  auto add_scheduler = [&table](CommandDeclaration declaration) {
    declaration.feature = kFeature;
    table.add(declaration);
  };

  // Exec mode.
  table.add({Mode::Exec, "configure terminal",
             {"Enter configuration mode", "Configure from this terminal"}, configure_terminal});
  add_scheduler({Mode::Exec, "show scheduler job [name <job>]",
                 {"Show information", "Scheduler information", "Jobs and their commands", "One job by name", kName},
                 show_jobs});
  add_scheduler({Mode::Exec, "show scheduler schedule [name <schedule>]",
                 {"Show information", "Scheduler information", "Schedules, their times and last runs",
                  "One schedule by name", kName},
                 show_schedules});
  add_scheduler({Mode::Exec, "show scheduler config",
                 {"Show information", "Scheduler information", "The scheduler's configuration, block by block"},
                 show_config});
  add_scheduler({Mode::Exec, "show scheduler memory-statistics",
                 {"Show information", "Scheduler information", "The daemon's allocations by kind"},
                 show_memory_statistics});
  add_scheduler({Mode::Exec, "clear scheduler logfile",
                 {"Empty a log", "Scheduler logs", "The log of job runs"}, clear_logfile});
  add_scheduler({Mode::Exec, "[no] debug scheduler",
                 {kNo, "Trace what the commands do", "Trace the scheduler's commands to standard error"},
                 debug_scheduler});
  table.add({Mode::Exec, "show running-config [scheduler]",
             {"Show information", "The configuration in use", "The scheduler's part (all of it)"},
             show_running_config});
  table.add({Mode::Exec, "show startup-config [scheduler]",
             {"Show information", "The configuration the daemon starts from", "The scheduler's part (all of it)"},
             show_startup_config});
  table.add({Mode::Exec, "copy running-config startup-config",
             {"Copy a configuration", "The configuration in use", "To the configuration the daemon starts from"},
             copy_running_config});
  table.add({Mode::Exec, "exit", {"Leave the shell"}, exit_mode});

  // Configuration mode.
  table.add({Mode::Config, "[no] feature scheduler",
             {kNo, "Turn a feature on", "The job scheduler and its commands"}, feature});
  add_scheduler({Mode::Config, "[no] scheduler job name <job>",
                 {kNo, kScheduler, "A job: a named list of commands", "Name the job", kName}, job});
  add_scheduler({Mode::Config, "scheduler job name <job> <commands>...",
                 {kScheduler, "A job: a named list of commands", "Name the job", kName,
                  "The job's commands, separated by \" ; \""},
                 job_on_one_line});
  add_scheduler({Mode::Config, "[no] scheduler schedule name <schedule>",
                 {kNo, kScheduler, "A schedule: when to run which jobs", "Name the schedule", kName}, schedule});
  add_scheduler({Mode::Config, "[no] scheduler aaa-authentication [username <user>] password [0|7] <password>",
                 {kNo, kScheduler, "Password under which remote users' jobs run", "Whose password (default: yours)",
                  "User name", "The password", "The password follows in clear text",
                  "The password follows in encrypted form", "Password"},
                 aaa_authentication});
  add_scheduler({Mode::Config, "no scheduler aaa-authentication [username <user>]",
                 {kNo, kScheduler, "Password under which remote users' jobs run", "Whose password (default: yours)",
                  "User name"},
                 aaa_authentication});
  constexpr std::string_view log = "The log of job runs";
  constexpr std::string_view log_size = "How much it holds (default 16 kilobytes)";
  constexpr std::string_view log_name = "Its file (default scheduler_circular_log.dat)";
  // The daemon takes 1 kilobyte to 64 megabytes; help shows it before the daemon has to say so.
  add_scheduler({Mode::Config, "[no] scheduler logfile size <1-65536>",
                 {kNo, kScheduler, log, log_size, "Kilobytes"}, logfile_size});
  add_scheduler({Mode::Config, "no scheduler logfile size", {kNo, kScheduler, log, log_size}, logfile_size});
  add_scheduler({Mode::Config, "[no] scheduler logfile name <uri>",
                 {kNo, kScheduler, log, log_name,
                  "File: a path, or logs:, bootflash: or volatile: followed by a path"},
                 logfile_name});
  add_scheduler({Mode::Config, "no scheduler logfile name", {kNo, kScheduler, log, log_name}, logfile_name});
  constexpr std::string_view transport = "How job output is sent";
  constexpr std::string_view email = "By email";
  constexpr std::string_view from = "Sender address of the mails";
  constexpr std::string_view reply_to = "Address that replies go to";
  constexpr std::string_view server = "Mail server that takes the mails";
  add_scheduler({Mode::Config, "[no] scheduler transport email from <address>",
                 {kNo, kScheduler, transport, email, from, "Email address"}, transport_from});
  add_scheduler({Mode::Config, "no scheduler transport email from", {kNo, kScheduler, transport, email, from},
                 transport_from});
  add_scheduler({Mode::Config, "[no] scheduler transport email reply-to <address>",
                 {kNo, kScheduler, transport, email, reply_to, "Email address"}, transport_reply_to});
  add_scheduler({Mode::Config, "no scheduler transport email reply-to",
                 {kNo, kScheduler, transport, email, reply_to}, transport_reply_to});
  add_scheduler({Mode::Config, "[no] scheduler transport email smtp-server <host> [port <1-65535>] [vrf <vrf>]",
                 {kNo, kScheduler, transport, email, server, "IPv4 address, IPv6 address or host name",
                  "Server port (default 25)", "Port number", "VRF through which the server is reached", "VRF name"},
                 smtp_server});
  add_scheduler({Mode::Config, "no scheduler transport email smtp-server",
                 {kNo, kScheduler, transport, email, server}, smtp_server});
  add_scheduler({Mode::Config, "[no] logging level scheduler <0-7>",
                 {kNo, "Messages to the system log", "Least severity of the messages logged",
                  "The scheduler's messages", "Level: 0 emergencies to 7 debugging (default 5)"},
                 logging_level});
  add_scheduler({Mode::Config, "no logging level scheduler",
                 {kNo, "Messages to the system log", "Least severity of the messages logged",
                  "The scheduler's messages"},
                 logging_level});
  table.add({Mode::Config, "end", {end_help}, end_mode});
  table.add({Mode::Config, "exit", {"Leave configuration mode"}, exit_mode});

  // Schedule mode; configuration commands typed here are taken as in configuration mode.
  add_scheduler({Mode::Schedule, "[no] job name <job>",
                 {kNo, "A job the schedule runs", "Name the job", kName}, schedule_job});
  add_scheduler({Mode::Schedule, "[no] time daily <time>",
                 {kNo, "When the schedule runs", "Every day", "HH:MM"}, time_daily});
  add_scheduler({Mode::Schedule, "[no] time weekly <time>",
                 {kNo, "When the schedule runs", "Every week", "dow:HH:MM, dow = 1..7 or Sun..Sat"}, time_weekly});
  add_scheduler({Mode::Schedule, "[no] time monthly <time>",
                 {kNo, "When the schedule runs", "Every month", "dm:HH:MM, dm = 1..31"}, time_monthly});
  add_scheduler({Mode::Schedule, "[no] time start <time> [repeat <interval>]",
                 {kNo, "When the schedule runs", "Once, or from a start time on", kStartTime,
                  "Run again after every interval", kInterval},
                 time_start});
  add_scheduler({Mode::Schedule, "[no] time start now repeat <interval>",
                 {kNo, "When the schedule runs", "Once, or from a start time on", "Two minutes from now",
                  "Run again after every interval", kInterval},
                 time_start});
  add_scheduler({Mode::Schedule, "[no] email-addr <address>",
                 {kNo, "Mail the jobs' output", "Email address"}, email_address});
  table.add({Mode::Schedule, "end", {end_help}, end_mode});
  table.add({Mode::Schedule, "exit", {exit_help}, exit_mode});
}

}  // namespace schedsh
