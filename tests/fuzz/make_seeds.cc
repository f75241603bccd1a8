// Writes the seed corpora of the daemon, restore, reply and run-log harnesses from the tests' own
// byte images: the request records of wire_images.h, the stores and replies of an in-process
// daemon configured with them, and run-log files written by the append. Run it again when a
// layout changes:  build-fuzz/tests/fuzz/make_seeds tests/fuzz/corpus
// (the shell's seeds are the end-to-end transcripts' command files, copied).
#include <cstdio>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <map>
#include <string>
#include <vector>

#include "core/daemon.h"
#include "fuzz_support.h"
#include "pss/store_walk.h"
#include "runner/run_log.h"
#include "schedcli/platform/acfg.h"
#include "schedcli/platform/feature.h"
#include "schedcli/platform/pss.h"
#include "schedcli/pss.h"
#include "support/wire_images.h"

namespace {

using namespace wire_images;
using fuzz::require;

const schedd::Caller kRoot{0, "root"};
std::filesystem::path g_corpus;

void write(const std::string &area, const std::string &name, const std::string &bytes) {
  std::filesystem::create_directories(g_corpus / area);
  std::ofstream(g_corpus / area / name, std::ios::binary) << bytes;
}

void put_u16(std::string *out, size_t value) {
  out->push_back(static_cast<char>(value >> 8 & 0xFF));
  out->push_back(static_cast<char>(value & 0xFF));
}
void put_u32(std::string *out, uint32_t value) {
  put_u16(out, value >> 16);
  put_u16(out, value & 0xFFFF);
}

// A sequence of requests in the daemon harness's form; configuration and display requests get
// their length word set by the harness (bit 7 of the selector).
struct Requests {
  std::string bytes;
  Requests &add(uint8_t selector, const Bytes &request, int opcode = -1) {
    bytes.push_back(static_cast<char>(selector));
    if (opcode >= 0) bytes.push_back(static_cast<char>(opcode));
    put_u16(&bytes, request.size());
    bytes.append(request.begin(), request.end());
    return *this;
  }
  Requests &config(const Bytes &request) { return add(0x80, request); }
  Requests &display(const Bytes &request) { return add(0x81, request); }
  Requests &simple(const Bytes &request) { return add(0x82, request); }
};

Bytes feature(uint32_t action) {
  Bytes payload{static_cast<uint8_t>(action)};
  for (char c : std::string("scheduler")) payload.push_back(static_cast<uint8_t>(c));
  payload.push_back(0);
  return payload;
}

sch_email_transport_conf transport() {
  sch_email_transport_conf conf{};
  std::strcpy(conf.from, "scheduler@example.com");
  std::strcpy(conf.reply_to, "ops@example.com");
  std::strcpy(conf.smtp_server, "mail.example.com");
  conf.smtp_reserved = 16;  // a host name, as the shell sends it
  conf.smtp_port = 25;
  return conf;
}

// The configuration of the in-process tests: something of every kind.
Requests everything() {
  Requests r;
  r.config(job_request(SCH_REQ_CREATE_JOB, "backup"))
      .config(job_request(SCH_REQ_DEFINE_JOB, "backup", "tar czf /tmp/backup.tgz /etc\necho done\n"))
      .config(job_request(SCH_REQ_CREATE_JOB, "rotate"))
      .config(job_request(SCH_REQ_DEFINE_JOB, "rotate", "logrotate -f /etc/rotate.conf\n"));
  for (const char *name : {"zeta", "alpha"}) {
    r.config(schedule_request(SCH_REQ_CREATE_SCHEDULE, name))
        .config(modify_request(name, SCH_MODIFY_DAILY, daily(2, 30)))
        .config(assign_request(name, "backup"))
        .config(email_request(SCH_EMAIL_ADD, name, "ops@example.com"));
  }
  r.config(assign_request("alpha", "rotate"))
      .config(credential_request(SCH_CREDENTIAL_STORE, "alice", "7$secret"))
      .config(log_file_request(SCH_REQ_LOG_SIZE, false, "", 4096))
      .config(transport_request(SCH_REQ_EMAIL_FROM, transport()))
      .config(transport_request(SCH_REQ_EMAIL_REPLY_TO, transport()))
      .config(transport_request(SCH_REQ_EMAIL_SMTP, transport()));
  return r;
}

void request_seeds() {
  write("request", "everything", everything().bytes);
  Requests times;
  times.config(schedule_request(SCH_REQ_CREATE_SCHEDULE, "s"));
  times.config(modify_request("s", SCH_MODIFY_WEEKLY, tminfo{SCH_TM_WEEKLY, 4, 3, 0, 15, 0, 0, 0, 0, 0}));
  times.config(modify_request("s", SCH_MODIFY_MONTHLY, tminfo{SCH_TM_MONTHLY, 23, 31, 0, 59, 0, 0, 0, 0, 0}));
  times.config(modify_request("s", SCH_MODIFY_START_REPEAT,
                              tminfo{SCH_TM_ONESHOT, 12, 1, 1, 0, 2030, 0, 0, 0, 0}));
  times.config(modify_request("s", SCH_MODIFY_JOB_NO_NAME, tminfo{}, "", true));
  times.config(schedule_request(SCH_REQ_DELETE_SCHEDULE, "s"));
  write("request", "times", times.bytes);
  Requests displays = everything();
  displays.display(display_request(SCH_REQ_GET_JOBS, "", -1))
      .display(display_request(SCH_REQ_GET_SCHEDULES, "alpha", -1))
      .display(header_request(SCH_REQ_GET_LOG_CONFIG))
      .simple(header_request(SCH_REQ_GET_EMAIL_TRANSPORT))
      .simple(header_request(SCH_REQ_GET_USER_CONFIG))
      .add(0x04, Bytes{ACFG_CFG_STARTUP, 0}, ACFG_OP_CONFIG_TEXT)
      .add(0x04, Bytes{0}, ACFG_OP_COPY_STARTUP)
      .add(0x04, Bytes{0}, ACFG_OP_MEMORY_STATS);
  write("request", "displays", displays.bytes);
  Requests removal = everything();
  removal.config(job_request(SCH_REQ_DELETE_JOB, "backup"))
      .config(credential_request(SCH_CREDENTIAL_DELETE, "alice"))
      .config(log_file_request(SCH_REQ_LOG_NAME, false, "logs:runs.dat"))
      .config(log_file_request(SCH_REQ_LOG_CLEAR, false))
      .config(transport_request(SCH_REQ_NO_EMAIL_SMTP, transport()))
      .add(0x03, feature(FM_FEATURE_DISABLE), FM_FEATURE_DISABLE)
      .add(0x03, feature(FM_FEATURE_ENABLE), FM_FEATURE_ENABLE);
  write("request", "removal", removal.bytes);
  // Frames that must be refused: a short header, a length word that disagrees, an unknown type.
  Requests refused;
  refused.add(0x00, Bytes{0, 0, 0})
      .add(0x00, schedule_request(SCH_REQ_CREATE_SCHEDULE, "x"))
      .config(header_request(99))
      .add(0x05, header_request(SCH_REQ_GET_JOBS));
  write("request", "refused", refused.bytes);
}

std::vector<std::pair<std::string, std::string>> records_of(pss2_handle store) {
  std::vector<std::pair<std::string, std::string>> records;
  sch::pss::walk_store(store, [&](pss2_datum key) {
    uint32_t status = 0;
    pss2_datum value = pss2_getvalue(store, &status);
    records.emplace_back(std::string(static_cast<const char *>(key.data), key.length),
                         std::string(static_cast<const char *>(value.data), value.length));
    return true;
  });
  return records;
}

// Stores as a configured daemon left them, and the replies it gives to the shell's commands.
void daemon_seeds() {
  std::string directory = fuzz::scratch_directory("seeds");
  schedd::Options options;
  options.state_dir = directory + "/s";
  options.runtime_dir = directory + "/r";
  options.enable_feature = true;
  schedd::ManualClock clock(std::time(nullptr));
  schedd::Daemon daemon(options, clock);
  std::string error;
  require(daemon.start(&error, schedd::StartParts{.socket = false, .runner = false, .wall_timer = false}), error.c_str());
  std::string configuration = everything().bytes;
  fuzz::Reader input(reinterpret_cast<const uint8_t *>(configuration.data()), configuration.size());
  while (!input.empty()) {
    input.byte();
    std::string_view request = input.bytes(input.u16());
    uint32_t status = daemon.handle(SCH_SERVICE_CONFIG, SCH_OPCODE_CONFIG,
                                    schedd::RequestBytes(reinterpret_cast<const uint8_t *>(request.data()), request.size()),
                                    kRoot)
                          .status;
    if (status != 0) std::fprintf(stderr, "request of type %u: status %#x\n", static_cast<unsigned>(request[3]), status);
    require(status == 0, "the seed configuration is taken");
  }

  std::string crash(1, '\0'), stateless(1, '\1');
  for (const auto &[key, value] : records_of(pss_running)) {
    for (std::string *seed : {&crash, &stateless}) {
      seed->push_back('\0');
      *seed += key;
      put_u16(seed, value.size());
      *seed += value;
    }
  }
  write("restore", "crash_restart", crash);
  write("restore", "stateless_restart", stateless);

  // The replies in the reply harness's form, command by command (its command byte first).
  auto reply = [](std::string *seed, const schedd::Reply &answer) {
    seed->push_back(2);
    put_u32(seed, answer.status);
    put_u16(seed, answer.payload.size());
    seed->append(answer.payload.begin(), answer.payload.end());
  };
  auto ask = [&](uint32_t service, uint32_t opcode, const Bytes &request) {
    return daemon.handle(service, opcode, request, kRoot);
  };
  for (auto [command, name] : {std::pair{0, ""}, std::pair{1, "backup"}}) {
    std::string seed(1, static_cast<char>(command));
    for (int32_t cursor = -1;;) {
      schedd::Reply answer = ask(SCH_SERVICE_DISPLAY, SCH_OPCODE_DISPLAY, display_request(SCH_REQ_GET_JOBS, name, cursor));
      reply(&seed, answer);
      if (answer.status != 0 || answer.payload.size() < sizeof(sch_job_reply) || *name) break;
      cursor = static_cast<int32_t>(decode_job(answer.payload).cursor);
    }
    write("reply", std::string("jobs_") + (*name ? "one" : "all"), seed);
  }
  std::string schedules(1, 3);
  reply(&schedules, ask(SCH_SERVICE_DISPLAY, SCH_OPCODE_DISPLAY, display_request(SCH_REQ_GET_SCHEDULES, "alpha", -1)));
  write("reply", "schedule_one", schedules);
  std::string text(1, 6);
  schedd::Reply running = ask(ACFG_SERVICE, ACFG_OP_CONFIG_TEXT, Bytes{ACFG_CFG_RUNNING, 0});
  text.push_back(1);
  put_u16(&text, running.payload.size());
  text.append(running.payload.begin(), running.payload.end());
  text.push_back(0);
  put_u16(&text, 0);
  write("reply", "running_text", text);
  std::string config(1, 4);
  reply(&config, ask(SCH_SERVICE_DISPLAY, SCH_OPCODE_DISPLAY, header_request(SCH_REQ_GET_LOG_CONFIG)));
  reply(&config, ask(SCH_SERVICE_DISPLAY, SCH_OPCODE_DISPLAY_SIMPLE, header_request(SCH_REQ_GET_EMAIL_TRANSPORT)));
  reply(&config, ask(SCH_SERVICE_DISPLAY, SCH_OPCODE_DISPLAY_SIMPLE, header_request(SCH_REQ_GET_USER_CONFIG)));
  write("reply", "config", config);
  daemon.stop();
}

// Run-log files the append wrote, in the run-log harness's form, and the stream they give.
void run_log_seeds() {
  std::string location = fuzz::scratch_directory("seeds") + "/log";
  schedd::runner::RunLogState state;
  schedd::runner::RunLogEntry first{"backup", "alpha", "root", 0, 1800000000, "done\n"};
  schedd::runner::RunLogEntry second{"rotate", "zeta", "alice", 256, 1800000060, std::string(300, 'x')};
  require(schedd::runner::append_run_log_entry(location, 4096, first, &state) == 0, "first entry");
  require(schedd::runner::append_run_log_entry(location, 4096, second, &state) == 0, "second entry");
  std::ifstream in(location, std::ios::binary);
  std::string file((std::istreambuf_iterator<char>(in)), {});

  std::string head;
  put_u16(&head, 4096 / 16);
  put_u16(&head, 200);
  head.push_back(6);
  head += "backup";
  for (const std::string *name : {&first.job, &first.schedule, &first.user}) {
    head.push_back(static_cast<char>(name->size()));
    head += *name;
  }
  put_u32(&head, 0);
  put_u32(&head, 1800000120);
  put_u16(&head, 3);
  head += "ok\n";
  std::string whole = head;
  whole.push_back(0);
  put_u16(&whole, file.size());
  whole += file;
  write("run_log", "two_entries", whole);
  std::string torn = head;
  torn.push_back(0);
  put_u16(&torn, file.size() - 7);
  torn += file.substr(0, file.size() - 7);
  write("run_log", "torn_tail", torn);

  // The stream `show scheduler logfile` receives for that file, as reply-harness answers.
  std::string stream(1, 8);
  auto messages = schedd::runner::RunLogMessages::open(location, "", 256);
  std::vector<uint8_t> payload;
  while (messages->next(&payload) == schedd::runner::RunLogMessages::Next::message) {
    stream.push_back(1);
    put_u16(&stream, payload.size());
    stream.append(payload.begin(), payload.end());
  }
  stream.push_back(0);
  put_u16(&stream, 0);
  write("reply", "log_stream", stream);
}

}  // namespace

int main(int argc, char **argv) {
  if (argc != 2) {
    std::fprintf(stderr, "usage: make_seeds CORPUS_DIRECTORY\n");
    return 2;
  }
  g_corpus = argv[1];
  request_seeds();
  daemon_seeds();
  run_log_seeds();
  return 0;
}
