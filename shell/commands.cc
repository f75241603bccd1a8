// The command table of the shell and what each command hands to the library or the platform.
#include "commands.h"

#include <arpa/inet.h>
#include <netinet/in.h>

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "cli/request.h"
#include "configuration.h"
#include "context.h"
#include "replay.h"
#include "schedcli/cli.h"
#include "schedcli/cli_config.h"
#include "schedcli/platform/acfg.h"
#include "schedcli/platform/secrets.h"
#include "schedcli/platform/syserr.h"
#include "schedcli/platform/uri.h"
#include "schedcli/protocol.h"
#include "schedcli/status.h"
#include "shell.h"
#include "words.h"

namespace schedsh {

namespace {

// The feature whose commands `no feature scheduler` takes out of the shell.
constexpr std::string_view kFeature = "scheduler";
// The system log's name for the scheduler's messages.
constexpr std::string_view kLoggingFacility = "scheduler";

constexpr std::string_view kNo = "Negate a command";
constexpr std::string_view kScheduler = "Scheduler configuration";
constexpr std::string_view kName = "Name: a letter or digit, then letters, digits, '_' or '-'";
constexpr std::string_view kStartTime =
    "Start: yyyy:mmm:dd:HH:MM, mmm:dd:HH:MM, dd:HH:MM, HH:MM, or +dd:HH:MM, +HH:MM, +MM from now";
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

// A show command whose name argument, `parameter`, may be left out: all are shown then.
bool show_named(Shell &shell, const Arguments &arguments, const char *parameter,
                int (Backend::*show)(sch_cli_context *)) {
  if (!name_fits(shell, arguments.get(parameter))) return false;
  CommandContext context(shell.session(), false);
  if (const std::string *name = arguments.get(parameter)) context.add_string(*name);
  return (shell.backend().*show)(context.get()) == 0;
}

bool show_jobs(Shell &shell, const Arguments &arguments) {
  return show_named(shell, arguments, "<job>", &Backend::show_jobs);
}

bool show_schedules(Shell &shell, const Arguments &arguments) {
  return show_named(shell, arguments, "<schedule>", &Backend::show_schedules);
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

bool show_logfile(Shell &shell, const Arguments &arguments) {
  return show_named(shell, arguments, "<name>", &Backend::show_logfile);
}

bool show_timers(Shell &shell, const Arguments &) {
  CommandContext context(shell.session(), false);
  return shell.backend().show_timers(context.get()) == 0;
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

// The commands of the one-line form, split where the library splits them: at a ';' with a blank
// before it and a blank or the end of the text after it.
std::vector<std::string_view> one_line_commands(std::string_view text) {
  std::vector<std::string_view> commands;
  std::size_t start = 0;
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] == ';' && i > 0 && text[i - 1] == ' ' && (i + 1 == text.size() || text[i + 1] == ' ')) {
      commands.push_back(text.substr(start, i - start));
      start = i + 1;
    }
  }
  commands.push_back(text.substr(start));
  return commands;
}

// The daemon defines only jobs that exist, so the job is created first, as in job mode; a job
// that exists already is refused the same way there and here.
bool job_on_one_line(Shell &shell, const Arguments &arguments) {
  if (!name_fits(shell, arguments.get("<job>"))) return false;
  // Each command of the line becomes a job line, and must read back as one.
  const std::string commands = arguments.value("<commands>");
  for (std::string_view command : one_line_commands(commands)) {
    if (std::optional<std::string_view> problem = job_line_problem(command)) {
      shell.err() << "% Job not defined: " << *problem << "\n";
      return false;
    }
  }
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
  if (!arguments.has("repeat")) {
    if (!arguments.has("now")) return modify_schedule(shell, arguments, SCH_MODIFY_ONESHOT, {"<time>"});
    // Once, two minutes from now: the same start the repeating form takes without a time.
    CommandContext context(shell.session(), no_form(arguments));
    context.set_code(SCH_MODIFY_ONESHOT);
    context.add_string(shell.schedule_name());
    context.add_string("+2");
    return shell.backend().modify_schedule(context.get()) == 0;
  }
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

// Turning the feature off deletes every job and schedule; at a terminal the operator is asked
// first when there is any. Scripts and -c are not asked: they say what they mean.
bool disable_confirmed(Shell &shell) {
  if (!shell.interactive()) return true;
  std::string text;
  std::optional<Configuration> running;
  if (shell.backend().config_text(shell.session().session, ACFG_CFG_RUNNING, &text) == 0) {
    running = parse_configuration(text, nullptr);
  }
  std::string question;
  if (running) {
    if (running->jobs.empty() && running->schedules.empty()) return true;
    question = "Turning the scheduler off deletes its " + std::to_string(running->jobs.size()) +
               (running->jobs.size() == 1 ? " job and " : " jobs and ") + std::to_string(running->schedules.size()) +
               (running->schedules.size() == 1 ? " schedule" : " schedules") + ". Turn it off?";
  } else {
    question = "Turning the scheduler off deletes all its jobs and schedules. Turn it off?";
  }
  return shell.confirm(question);
}

bool feature(Shell &shell, const Arguments &arguments) {
  if (no_form(arguments) && !disable_confirmed(shell)) {
    shell.err() << "% The scheduler stays on\n";
    return false;
  }
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

// The address kind the handler expects with a server; 0 for text that is none of them, which
// the handler refuses with its own message.
uint32_t host_address_kind(const std::string &host) {
  unsigned char address[sizeof(in6_addr)];
  if (host.find(':') != std::string::npos) return inet_pton(AF_INET6, host.c_str(), address) == 1 ? SCH_ADDRESS_IPV6 : 0;
  if (inet_pton(AF_INET, host.c_str(), address) == 1) return SCH_ADDRESS_IPV4;
  return sch_is_host_name(host.c_str()) ? SCH_ADDRESS_HOST_NAME : 0;
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

bool copy_running_config(Shell &shell, const Arguments &) {
  uint32_t status = shell.backend().copy_running_to_startup(shell.session().session);
  if (status != 0) {
    shell.err() << "% Could not copy the running configuration to the startup configuration: "
                << syserr2str(status) << "\n";
    return false;
  }
  shell.out() << "Copied running-config to startup-config\n";
  shell.out().flush();
  return true;
}

// A saved configuration holds encrypted passwords: the file is the operator's alone.
bool write_file(Shell &shell, const std::string &path, std::string_view text) {
  int descriptor = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC | O_NOCTTY, 0600);
  if (descriptor < 0) {
    shell.err() << "% Could not write " << printable_text(path) << ": " << std::strerror(errno) << "\n";
    return false;
  }
  std::size_t written = 0;
  while (written < text.size()) {
    ssize_t count = write(descriptor, text.data() + written, text.size() - written);
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) break;
    written += static_cast<std::size_t>(count);
  }
  int saved = errno;
  bool closed = close(descriptor) == 0;
  if (written < text.size() || !closed) {
    shell.err() << "% Could not write " << printable_text(path) << ": "
                << std::strerror(written < text.size() ? saved : errno) << "\n";
    return false;
  }
  return true;
}

bool export_configuration(Shell &shell, uint32_t cfg_type, std::string_view name, const std::string &path) {
  std::string text;
  uint32_t status = shell.backend().config_text(shell.session().session, cfg_type, &text);
  if (status != 0) {
    shell.err() << "% Could not read the " << name << ": " << syserr2str(status) << "\n";
    return false;
  }
  if (!write_file(shell, path, text)) return false;
  shell.out() << "Copied " << name << " to " << printable_text(path) << " (" << text.size() << " bytes)\n";
  shell.out().flush();
  return true;
}

bool copy_running_to_file(Shell &shell, const Arguments &arguments) {
  return export_configuration(shell, ACFG_CFG_RUNNING, "running-config", arguments.value("<file>"));
}

bool copy_startup_to_file(Shell &shell, const Arguments &arguments) {
  return export_configuration(shell, ACFG_CFG_STARTUP, "startup-config", arguments.value("<file>"));
}

// The startup configuration applied onto the running one, as a saved file would be.
bool copy_startup_to_running(Shell &shell, const Arguments &) {
  std::string text;
  uint32_t status = shell.backend().config_text(shell.session().session, ACFG_CFG_STARTUP, &text);
  if (status != 0) {
    shell.err() << "% Could not read the startup-config: " << syserr2str(status) << "\n";
    return false;
  }
  return replay_configuration(shell, text, "startup-config");
}

bool copy_file_to_running(Shell &shell, const Arguments &arguments) {
  const std::string path = arguments.value("<file>");
  std::string why;
  std::optional<std::string> text = read_configuration_file(path, &why);
  if (!text) {
    shell.err() << "% Could not read " << printable_text(path) << ": " << why << "\n";
    return false;
  }
  return replay_configuration(shell, *text, path);
}

bool configure_replace(Shell &shell, const Arguments &arguments) {
  const std::string path = arguments.value("<file>");
  std::string why;
  std::optional<std::string> text = read_configuration_file(path, &why);
  if (!text) {
    shell.err() << "% Could not read " << printable_text(path) << ": " << why << "\n";
    return false;
  }
  return replace_configuration(shell, *text, path);
}

// ---- Credentials ----

constexpr int kCredentialDone = 8;   // this handler's success result

// The clear text of a type-7 password, or nothing when it does not decrypt.
std::optional<std::string> decrypted(const std::string &encrypted) {
  char *clear = nullptr;
  uint32_t length = 0;
  uint32_t status = security_conf_decrypt(encrypted.c_str(), static_cast<uint32_t>(encrypted.size() + 1), SECRETS_TYPE7, 0, 0,
                                          &clear, &length);
  if (status != 0 || !clear) {
    std::free(clear);
    return std::nullopt;
  }
  std::string text(clear, length);
  std::memset(clear, 0, length);
  std::free(clear);
  return text;
}

// The handler reports success also when the daemon refused to store or delete the credential
// (a standby, a full disk), so what the daemon holds afterwards is read back and compared.
bool credential_holds(Shell &shell, const Arguments &arguments) {
  const std::string user = arguments.get("<user>") ? arguments.value("<user>") : shell.session().user;
  std::string text;
  uint32_t status = shell.backend().config_text(shell.session().session, ACFG_CFG_RUNNING, &text);
  std::optional<Configuration> running;
  if (status == 0) running = parse_configuration(text, nullptr);
  if (!running) {
    shell.err() << "% Could not read back the credential of user " << printable_word(user) << ": "
                << (status != 0 ? syserr2str(status) : "the running configuration is not whole") << "\n";
    return false;
  }
  const std::string prefix = "scheduler aaa-authentication username " + user + " password 7 ";
  std::optional<std::string> stored;
  for (const std::string &setting : running->settings) {
    if (setting.starts_with(prefix)) stored = setting.substr(prefix.size());
  }
  if (no_form(arguments)) {
    if (!stored) return true;
    shell.err() << "% The daemon did not delete the credential of user " << printable_word(user) << "\n";
    return false;
  }
  const std::string typed = arguments.value("<password>");
  bool holds = stored && (arguments.has("7") ? *stored == typed : decrypted(*stored) == typed);
  if (!holds) shell.err() << "% The daemon did not store the credential of user " << printable_word(user) << "\n";
  return holds;
}

bool aaa_authentication(Shell &shell, const Arguments &arguments) {
  CommandContext context(shell.session(), no_form(arguments));
  if (const std::string *user = arguments.get("<user>")) context.add_string(*user, SCH_PARAM_USER_NAME);
  if (const std::string *password = arguments.get("<password>")) {
    context.add_string(*password, arguments.has("7") ? SCH_PARAM_ENCRYPTED_PASSWORD : SCH_PARAM_CLEAR_PASSWORD);
  }
  if (shell.backend().aaa_auth_passwd(context.get()) != kCredentialDone) return false;
  return credential_holds(shell, arguments);
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
  // Show commands are also at hand in the configuration modes, where they leave the mode alone.
  auto add_show = [&table](CommandDeclaration declaration) {
    for (Mode mode : {Mode::Exec, Mode::Config, Mode::Schedule}) {
      declaration.mode = mode;
      table.add(declaration);
    }
  };
  const std::vector<std::pair<std::string_view, const WordRule *>> job_rule = {{"<job>", &kNameRule}};
  const std::vector<std::pair<std::string_view, const WordRule *>> schedule_rule = {{"<schedule>", &kNameRule}};
  const std::vector<std::pair<std::string_view, const WordRule *>> address_rule = {
      {"<address>", &kEmailAddressRule}};

  // Exec mode.
  table.add({Mode::Exec, "configure terminal",
             {"Enter configuration mode", "Configure from this terminal"}, configure_terminal});
  table.add({Mode::Exec, "configure replace <file>",
             {"Enter configuration mode", "Make the configuration in use equal to a file, all or nothing",
              "A file of configuration text"},
             configure_replace});
  add_show({Mode::Exec, "show scheduler job [name <job>]",
            {"Show information", "Scheduler information", "Jobs and their commands", "One job by name", kName},
            show_jobs, kFeature, job_rule});
  add_show({Mode::Exec, "show scheduler schedule [name <schedule>]",
            {"Show information", "Scheduler information", "Schedules, their times and last runs",
             "One schedule by name", kName},
            show_schedules, kFeature, schedule_rule});
  add_show({Mode::Exec, "show scheduler config",
            {"Show information", "Scheduler information", "The scheduler's configuration, block by block"},
            show_config, kFeature});
  add_show({Mode::Exec, "show scheduler logfile [name <name>]",
            {"Show information", "Scheduler information", "The log of job runs, with their output",
             "The runs of one job or schedule", "A job's or a schedule's name"},
            show_logfile, kFeature, {{"<name>", &kNameRule}}});
  add_show({Mode::Exec, "show scheduler timers",
            {"Show information", "Scheduler information",
             "Each schedule's next run, time left, last run and result, missed and skipped runs"},
            show_timers, kFeature});
  add_show({Mode::Exec, "show scheduler memory-statistics",
            {"Show information", "Scheduler information", "The daemon's allocations by kind"},
            show_memory_statistics, kFeature});
  add_scheduler({Mode::Exec, "clear scheduler logfile",
                 {"Empty a log", "Scheduler logs", "The log of job runs"}, clear_logfile});
  add_scheduler({Mode::Exec, "[no] debug scheduler",
                 {kNo, "Trace what the commands do", "Trace the scheduler's commands to standard error"},
                 debug_scheduler});
  add_show({Mode::Exec, "show running-config [scheduler]",
            {"Show information", "The configuration in use", "The scheduler's part (all of it)"},
            show_running_config});
  add_show({Mode::Exec, "show startup-config [scheduler]",
            {"Show information", "The configuration the daemon starts from", "The scheduler's part (all of it)"},
            show_startup_config});
  constexpr std::string_view copy = "Copy a configuration";
  constexpr std::string_view running = "The configuration in use";
  constexpr std::string_view file = "A file (saved configuration text)";
  table.add({Mode::Exec, "copy running-config startup-config",
             {copy, running, "To the configuration the daemon starts from"}, copy_running_config});
  table.add({Mode::Exec, "copy running-config <file>", {copy, running, file}, copy_running_to_file});
  table.add({Mode::Exec, "copy startup-config <file>",
             {copy, "The configuration the daemon starts from", file}, copy_startup_to_file});
  table.add({Mode::Exec, "copy startup-config running-config",
             {copy, "The configuration the daemon starts from", "Onto the configuration in use: what differs"},
             copy_startup_to_running});
  table.add({Mode::Exec, "copy <file> running-config",
             {copy, "A file of configuration text to apply", "Onto the configuration in use: what differs"},
             copy_file_to_running});
  table.add({Mode::Exec, "exit", {"Leave the shell"}, exit_mode});

  // Configuration mode.
  table.add({Mode::Config, "[no] feature scheduler",
             {kNo, "Turn a feature on", "The job scheduler and its commands"}, feature});
  add_scheduler({Mode::Config, "[no] scheduler job name <job>",
                 {kNo, kScheduler, "A job: a named list of commands", "Name the job", kName}, job, {}, job_rule});
  add_scheduler({Mode::Config, "scheduler job name <job> <commands>...",
                 {kScheduler, "A job: a named list of commands", "Name the job", kName,
                  "The job's commands, separated by \" ; \""},
                 job_on_one_line, {}, job_rule});
  add_scheduler({Mode::Config, "[no] scheduler schedule name <schedule>",
                 {kNo, kScheduler, "A schedule: when to run which jobs", "Name the schedule", kName}, schedule, {},
                 schedule_rule});
  add_scheduler({Mode::Config, "[no] scheduler aaa-authentication [username <user>] password [0|7] <password>",
                 {kNo, kScheduler, "Password under which remote users' jobs run", "Whose password (default: yours)",
                  "User name", "The password", "The password follows in clear text",
                  "The password follows in encrypted form", "Password"},
                 aaa_authentication, {}, {{"<user>", &kNameRule}}});
  add_scheduler({Mode::Config, "no scheduler aaa-authentication [username <user>]",
                 {kNo, kScheduler, "Password under which remote users' jobs run", "Whose password (default: yours)",
                  "User name"},
                 aaa_authentication, {}, {{"<user>", &kNameRule}}});
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
                 {kNo, kScheduler, transport, email, from, "Email address"}, transport_from, {}, address_rule});
  add_scheduler({Mode::Config, "no scheduler transport email from", {kNo, kScheduler, transport, email, from},
                 transport_from});
  add_scheduler({Mode::Config, "[no] scheduler transport email reply-to <address>",
                 {kNo, kScheduler, transport, email, reply_to, "Email address"}, transport_reply_to, {},
                 address_rule});
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
                 {kNo, "A job the schedule runs", "Name the job", kName}, schedule_job, {}, job_rule});
  add_scheduler({Mode::Schedule, "[no] time daily <time>",
                 {kNo, "When the schedule runs", "Every day", "HH:MM, or MM in the current hour"}, time_daily, {},
                 {{"<time>", &kDailyTimeRule}}});
  add_scheduler({Mode::Schedule, "[no] time weekly <time>",
                 {kNo, "When the schedule runs", "Every week", "dow:HH:MM, dow = 1..7 or Sun..Sat"}, time_weekly, {},
                 {{"<time>", &kWeeklyTimeRule}}});
  add_scheduler({Mode::Schedule, "[no] time monthly <time>",
                 {kNo, "When the schedule runs", "Every month", "dm:HH:MM, dm = 1..31"}, time_monthly, {},
                 {{"<time>", &kMonthlyTimeRule}}});
  add_scheduler({Mode::Schedule, "[no] time start <time> [repeat <interval>]",
                 {kNo, "When the schedule runs", "Once, or from a start time on", kStartTime,
                  "Run again after every interval", kInterval},
                 time_start, {}, {{"<time>", &kStartTimeRule}, {"<interval>", &kIntervalRule}}});
  add_scheduler({Mode::Schedule, "[no] time start now [repeat <interval>]",
                 {kNo, "When the schedule runs", "Once, or from a start time on", "Two minutes from now",
                  "Run again after every interval", kInterval},
                 time_start, {}, {{"<interval>", &kIntervalRule}}});
  add_scheduler({Mode::Schedule, "email-addr <address>", {"Mail the jobs' output", "Email address"}, email_address,
                 {}, address_rule});
  // An address stored before the rule held can still be taken away.
  add_scheduler({Mode::Schedule, "no email-addr <address>",
                 {kNo, "Mail the jobs' output", "Email address, as stored"}, email_address});
  table.add({Mode::Schedule, "end", {end_help}, end_mode});
  table.add({Mode::Schedule, "exit", {exit_help}, exit_mode});
}

}  // namespace schedsh
