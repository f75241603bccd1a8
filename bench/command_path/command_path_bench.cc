// One configuration command end to end (handler, request, daemon, durable store, reply) next to a
// bare durable store put, and `show scheduler job` over 256 jobs.
#include <benchmark/benchmark.h>
#include <pwd.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <filesystem>
#include <string>

#include "schedcli/cli.h"
#include "schedcli/platform/auth.h"
#include "schedcli/platform/feature.h"
#include "schedcli/pss.h"

namespace {

// A daemon of its own in a temporary directory, for the whole program.
struct Daemon {
  Daemon() {
    char pattern[] = "/tmp/sb-XXXXXX";  // short: store paths must fit in 63 bytes
    directory = mkdtemp(pattern);
    std::string state = directory + "/state", runtime = directory + "/run";
    pid = fork();
    if (pid == 0) {
      execl(SCHEDD_PATH, "schedd", "--foreground", "--state-dir", state.c_str(), "--runtime-dir", runtime.c_str(),
            static_cast<char *>(nullptr));
      _exit(127);
    }
    std::string socket = runtime + "/schedd.sock";
    for (int i = 0; i < 500 && !std::filesystem::exists(socket); i++) usleep(10000);
    session = cmi_session_open(socket.c_str());
    fm_cmi_set_feature_wait(session, "scheduler", nullptr, nullptr, FM_FEATURE_ENABLE);
    // The benchmark's user passes the credential gate as a local user.
    passwd_file = directory + "/passwd";
    const passwd *me = getpwuid(geteuid());
    FILE *file = std::fopen(passwd_file.c_str(), "w");
    std::fprintf(file, "%s:x:%d:%d::/:/bin/sh\n", me->pw_name, me->pw_uid, me->pw_gid);
    std::fclose(file);
    auth_local_passwd_file_set(passwd_file.c_str());
    user = me->pw_name;
  }
  ~Daemon() {
    cmi_session_close(session);
    kill(pid, SIGTERM);
    waitpid(pid, nullptr, 0);
    std::filesystem::remove_all(directory);
  }
  sch_cli_context context(uint8_t params = 0) {
    sch_cli_context c{};
    c.param_count = params;
    c.session = session;
    std::strncpy(c.user, user.c_str(), sizeof c.user - 1);
    return c;
  }
  std::string directory, passwd_file, user;
  pid_t pid = -1;
  cmi_session *session = nullptr;
};

Daemon &daemon() {
  static Daemon instance;
  return instance;
}

sch_cli_param string_param(const char *text) {
  return sch_cli_param{0, SCH_VALUE_STRING, const_cast<char *>(text), 0};
}

// Creating and deleting a schedule: two durable changes, each acknowledged after its sync.
void BM_ConfigCommandRoundTrip(benchmark::State &state) {
  Daemon &d = daemon();
  sch_cli_param name = string_param("bench-schedule");
  for (auto _ : state) {
    sch_cli_context create = d.context(1);
    create.params[0] = &name;
    sch_cli_create_delete_schedule(&create);
    sch_cli_context remove = d.context(1);
    remove.no_flag = 1;
    remove.params[0] = &name;
    sch_cli_create_delete_schedule(&remove);
  }
  state.counters["commands/s"] = benchmark::Counter(2.0 * state.iterations(), benchmark::Counter::kIsRate);
}
BENCHMARK(BM_ConfigCommandRoundTrip)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_BareDurableStorePut(benchmark::State &state) {
  std::string path = daemon().directory + "/bare";
  pss2_handle store = sch_pss_create(path.c_str(), 1024, 1024, 40);
  uint8_t key[40] = {}, value[48] = {};
  pss2_datum key_datum{key, sizeof key}, value_datum{value, sizeof value};
  for (auto _ : state) {
    value[0]++;
    pss2_store(store, &key_datum, &value_datum);
    pss2_store(store, &key_datum, &value_datum);
  }
  state.counters["puts/s"] = benchmark::Counter(2.0 * state.iterations(), benchmark::Counter::kIsRate);
  pss2_close(store);
}
BENCHMARK(BM_BareDurableStorePut)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_ShowJobs256(benchmark::State &state) {
  Daemon &d = daemon();
  static bool created = false;  // the benchmark is entered more than once
  std::string text;
  for (int i = 0; i < 40; i++) text += "show interface brief | include up\n";
  for (int id = 0; id < 256 && !created; id++) {
    std::string job = "job" + std::to_string(id);
    sch_cli_param name = string_param(job.c_str());
    sch_cli_context create = d.context(1);
    create.params[0] = &name;
    sch_cli_create_delete_job(&create);
    sch_cli_define_job(d.session, text.c_str(), static_cast<int>(text.size()), job.c_str(), d.user.c_str(), nullptr);
  }
  created = true;
  FILE *saved = stdout;
  stdout = std::fopen("/dev/null", "w");
  for (auto _ : state) {
    sch_cli_context show = d.context(0);
    sch_cli_show_jobs(&show);
  }
  std::fclose(stdout);
  stdout = saved;
}
BENCHMARK(BM_ShowJobs256)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace
