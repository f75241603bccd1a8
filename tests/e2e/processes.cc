// Child processes of the end-to-end tests.
#include "processes.h"

#include <fcntl.h>
#include <grp.h>
#include <pwd.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <thread>

#include "schedcli/platform/cmi.h"

extern char **environ;

namespace e2e {

namespace {

using Clock = std::chrono::steady_clock;

int quiet(const std::string &command) { return std::system((command + " >/dev/null 2>&1").c_str()); }

int decode_status(int status) {
  if (WIFEXITED(status)) return WEXITSTATUS(status);
  return WIFSIGNALED(status) ? 128 + WTERMSIG(status) : -1;
}

// In a child about to exec: becomes the local user `name` (groups, group, user); false when it cannot.
bool become(const std::string &name) {
  passwd *account = getpwnam(name.c_str());
  return account && initgroups(name.c_str(), account->pw_gid) == 0 && setgid(account->pw_gid) == 0 &&
         setuid(account->pw_uid) == 0;
}

// Forks and execs `program` with its standard streams on the given files, as `user` when named.
pid_t spawn(const std::string &program, std::vector<std::string> arguments, const Environment &changes,
            const std::string &input, const std::string &output, const std::string &errors,
            const std::string &user = "") {
  std::vector<std::string> env_strings;
  for (char **entry = environ; *entry; ++entry) {
    std::string text = *entry;
    if (!changes.count(text.substr(0, text.find('=')))) env_strings.push_back(text);
  }
  for (const auto &[name, value] : changes) {
    if (!value.empty()) env_strings.push_back(name + "=" + value);
  }
  arguments.insert(arguments.begin(), program);
  std::vector<char *> argv, envp;
  for (std::string &text : arguments) argv.push_back(text.data());
  for (std::string &text : env_strings) envp.push_back(text.data());
  argv.push_back(nullptr);
  envp.push_back(nullptr);
  int in = open(input.c_str(), O_RDONLY | O_CLOEXEC);
  int out = open(output.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
  int err = open(errors.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
  pid_t pid = fork();
  if (pid == 0) {
    dup2(in, STDIN_FILENO);
    dup2(out, STDOUT_FILENO);
    dup2(err, STDERR_FILENO);
    if (!user.empty() && !become(user)) _exit(99);
    execve(program.c_str(), argv.data(), envp.data());
    _exit(127);
  }
  for (int fd : {in, out, err}) close(fd);
  return pid;
}

// Waits up to `limit` for the child; kills it after that. Its status as decode_status gives it.
int wait_for(pid_t pid, std::chrono::seconds limit) {
  auto deadline = Clock::now() + limit;
  int status = 0;
  while (waitpid(pid, &status, WNOHANG) == 0) {
    if (Clock::now() > deadline) {
      kill(pid, SIGKILL);
      waitpid(pid, &status, 0);
      break;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
  }
  return decode_status(status);
}

// Runs `program` to its end (killed after 60 s), its output and errors in "<base>.out" and "<base>.err".
ShellRun run_to_end(const std::string &program, const std::vector<std::string> &arguments,
                    const Environment &environment, const std::string &input, const std::string &base,
                    const std::string &user = "") {
  pid_t pid = spawn(program, arguments, environment, input, base + ".out", base + ".err", user);
  ShellRun run;
  run.status = wait_for(pid, std::chrono::seconds(60));
  run.out = read_file(base + ".out");
  run.err = read_file(base + ".err");
  return run;
}

// libfaketime leaves a shared-memory clock and a semaphore in /dev/shm for every faked process
// that ends by a signal or _exit. Those of processes gone for minutes are nobody's any more.
void remove_stale_fake_clocks() {
  std::error_code error;
  auto old = std::filesystem::file_time_type::clock::now() - std::chrono::minutes(2);
  for (const auto &entry : std::filesystem::directory_iterator("/dev/shm", error)) {
    std::string name = entry.path().filename().string();
    std::size_t digits = name.find_first_of("0123456789");
    if (digits == std::string::npos ||
        (name.compare(0, digits, "faketime_shm_") != 0 && name.compare(0, digits, "sem.faketime_sem_") != 0)) {
      continue;
    }
    pid_t pid = static_cast<pid_t>(std::atol(name.c_str() + digits));
    if (pid > 0 && kill(pid, 0) != 0 && errno == ESRCH && entry.last_write_time(error) < old) {
      std::filesystem::remove(entry.path(), error);
    }
  }
}

}  // namespace

Environment fake_clock(const std::string &faketime, const std::string &format, const std::string &more) {
  Environment environment{{"TZ", "UTC"}, {"FAKETIME", faketime}, {"FAKETIME_FMT", format},
                          {"DONT_FAKE_MONOTONIC", "1"}, {"FAKETIME_DONT_FAKE_MONOTONIC", "1"}};
  preload(environment, E2E_FAKETIME_LIBRARY + more);
  return environment;
}

Environment stopped_clock() { return fake_clock("1900000000", "%s"); }

void preload(Environment &environment, const std::string &libraries) {
  environment["LD_PRELOAD"] = libraries;
  const char *asan = std::getenv("ASAN_OPTIONS");
  environment["ASAN_OPTIONS"] = std::string(asan ? asan : "") + (asan ? ":" : "") + "verify_asan_link_order=0";
}

Environment as_user(const std::string &directory, const std::string &user) {
  std::string passwd = directory + "/passwd-" + user;
  std::string group = directory + "/group";
  write_file(passwd, user + ":x:" + std::to_string(geteuid()) + ":" + std::to_string(getegid()) + "::/:/bin/sh\n");
  write_file(group, "operators:x:" + std::to_string(getegid()) + ":\n");
  Environment environment = stopped_clock();
  environment["NSS_WRAPPER_PASSWD"] = passwd;
  environment["NSS_WRAPPER_GROUP"] = group;
  environment["PAM_WRAPPER"] = "1";
  environment["PAM_WRAPPER_SERVICE_DIR"] = E2E_PAM_SERVICE_DIR;
#ifdef __SANITIZE_ADDRESS__
  // The sanitizer refuses deep binding. pam_wrapper 1.1.4 reads its switch under uid_wrapper's name.
  environment["PAM_WRAPPER_DISABLE_DEEPBIND"] = "1";
  environment["UID_WRAPPER_DISABLE_DEEPBIND"] = "1";
  environment["NSS_WRAPPER_DISABLE_DEEPBIND"] = "1";
#endif
  preload(environment, environment["LD_PRELOAD"] + ":" + E2E_PAM_WRAPPER_LIBRARY + ":" + E2E_NSS_WRAPPER_LIBRARY);
  return environment;
}

Daemon::~Daemon() {
  stop();
  remove_stale_fake_clocks();
}

bool Daemon::start(std::string *why, const Environment &environment, const std::vector<std::string> &options) {
  std::vector<std::string> arguments = directories();
  arguments.insert(arguments.begin(), "--foreground");
  arguments.insert(arguments.end(), options.begin(), options.end());
  pid_ = spawn(E2E_SCHEDD, arguments, environment, "/dev/null", directory_ + "/schedd.log",
               directory_ + "/schedd.log");
  auto deadline = Clock::now() + std::chrono::seconds(20);
  while (Clock::now() < deadline) {
    if (log().find("serving on") != std::string::npos) return true;
    int status = 0;
    if (waitpid(pid_, &status, WNOHANG) == pid_) {
      pid_ = -1;
      *why = "the daemon ended (" + std::to_string(decode_status(status)) + "): " + log();
      return false;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  *why = "the daemon did not serve within 20 s: " + log();
  return false;
}

std::vector<std::string> Daemon::directories() const {
  return {"--state-dir", directory_ + "/state", "--runtime-dir", directory_ + "/run"};
}

ShellRun Daemon::start_detached(const std::vector<std::string> &options) {
  prctl(PR_SET_CHILD_SUBREAPER, 1);
  std::vector<std::string> arguments = directories();
  arguments.insert(arguments.end(), options.begin(), options.end());
  ShellRun run = schedd(arguments);
  if (run.status == 0) std::ifstream(directory_ + "/run/schedd.pid") >> pid_;
  return run;
}

ShellRun Daemon::schedd(const std::vector<std::string> &arguments) {
  sch::testing::TempDir outputs;
  return run_to_end(E2E_SCHEDD, arguments, {}, "/dev/null", outputs.file("schedd"));
}

int Daemon::stop() {
  if (pid_ <= 0) return -1;
  kill(pid_, SIGCONT);
  kill(pid_, SIGTERM);
  int status = wait_for(pid_, std::chrono::seconds(10));
  pid_ = -1;
  return status;
}

void Daemon::kill_now() {
  if (pid_ > 0 && kill(pid_, SIGKILL) == 0) waitpid(pid_, nullptr, 0);
  pid_ = -1;
}

std::string Daemon::log() const { return read_file(directory_ + "/schedd.log"); }

bool Daemon::serve(std::string *why, const Environment &environment, const std::vector<std::string> &options) {
  if (!start(why, environment, options)) return false;
  ShellRun run = shell("configure terminal\nfeature scheduler\n");
  if (run.status == 0 && run.err.empty()) return true;
  *why = "feature scheduler failed (" + std::to_string(run.status) + "): " + run.err;
  return false;
}

ShellRun Daemon::shell(const std::string &input, const std::vector<std::string> &arguments,
                       const Environment &environment, const std::string &user) const {
  static std::atomic<int> runs{0};
  std::string base = directory_ + "/shell" + std::to_string(runs++);
  write_file(base + ".in", input);
  std::vector<std::string> all = directories();
  all.insert(all.end(), arguments.begin(), arguments.end());
  return run_to_end(E2E_SCHEDSH, all, environment, base + ".in", base, user);
}

bool Daemon::share_socket(const std::string &group) const {
  struct group *entry = getgrnam(group.c_str());
  return entry && chmod(directory_.c_str(), 0711) == 0 && chown((directory_ + "/run").c_str(), 0, entry->gr_gid) == 0 &&
         chown(socket_path().c_str(), 0, entry->gr_gid) == 0;
}

std::string Daemon::socket_path() const { return directory_ + "/run/" CMI_SOCKET_NAME; }

bool make_users(const std::string &group, const std::vector<std::string> &users) {
  remove_users(group, users);
  if (quiet("groupadd " + group) != 0) return false;
  for (const std::string &user : users) {
    if (quiet("useradd -M -N -d / -s /bin/sh -g " + group + " " + user) != 0) return false;
  }
  return true;
}

void remove_users(const std::string &group, const std::vector<std::string> &users) {
  for (const std::string &user : users) quiet("userdel " + user);
  quiet("groupdel " + group);
}

std::string user_name() {
  struct passwd *entry = getpwuid(geteuid());
  return entry && entry->pw_name ? entry->pw_name : "";
}

std::string read_file(const std::string &path) {
  std::ifstream file(path, std::ios::binary);
  std::ostringstream text;
  text << file.rdbuf();
  return text.str();
}

char process_state(pid_t pid) {
  std::string stat = read_file("/proc/" + std::to_string(pid) + "/stat");
  std::size_t close = stat.rfind(')');
  return close != std::string::npos && close + 2 < stat.size() ? stat[close + 2] : 0;
}

int connect_to(const std::string &path) {
  int fd = socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0);
  sockaddr_un address{AF_UNIX, {}};
  std::snprintf(address.sun_path, sizeof address.sun_path, "%s", path.c_str());
  if (fd >= 0 && connect(fd, reinterpret_cast<sockaddr *>(&address), sizeof address) == 0) return fd;
  if (fd >= 0) close(fd);
  return -1;
}

std::size_t count(const std::string &text, const std::string &what) {
  std::size_t found = 0;
  for (std::size_t at = text.find(what); at != std::string::npos; at = text.find(what, at + what.size())) found++;
  return found;
}

void write_file(const std::string &path, const std::string &text) {
  std::ofstream(path, std::ios::binary | std::ios::trunc) << text;
}

}  // namespace e2e
