// Writes the seed corpora of the daemon, restore, reply and run-log harnesses from the tests' own
// byte images: the request records of wire_images.h, the stores and replies of an in-process
// daemon configured with them, and run-log files written by the append. Run it again when a
// layout changes:  build-fuzz/tests/fuzz/make_seeds tests/fuzz/corpus
// (the shell's seeds are the end-to-end transcripts' command files, copied).
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>
#include <tuple>
#include <vector>

#include "fuzz_support.h"
#include "pss/store_walk.h"
#include "runner/run_log.h"
#include "schedcli/platform/feature.h"
#include "schedcli/platform/pss.h"
#include "schedcli/pss.h"
#include "support/wire_images.h"

namespace {

using namespace wire_images;
using fuzz::require;

std::filesystem::path g_corpus;

// A seed in the harnesses' field form: words big-endian, as fuzz::Reader takes them.
struct Seed : std::string {
  explicit Seed(std::initializer_list<char> head = {}) : std::string(head) {}
  Seed &u16(size_t value) { return push(value >> 8 & 0xFF).push(value & 0xFF); }
  Seed &u32(uint32_t value) { return u16(value >> 16).u16(value & 0xFFFF); }
  Seed &push(size_t byte) { push_back(static_cast<char>(byte)); return *this; }
  // A u16 length and the bytes.
  template <typename Range>
  Seed &sized(const Range &bytes) {
    u16(bytes.size());
    append(bytes.begin(), bytes.end());
    return *this;
  }
  // A reply-harness answer: a reply with its status, or (status < 0) a message of a stream.
  template <typename Range>
  Seed &answer(int64_t status, const Range &payload) {
    if (status < 0) return push(1).sized(payload);
    return push(2).u32(static_cast<uint32_t>(status)).sized(payload);
  }
  Seed &stream_end() { return push(0).u16(0); }
  void write(const char *area, const std::string &name) const {
    std::filesystem::create_directories(g_corpus / area);
    std::ofstream(g_corpus / area / name, std::ios::binary) << *this;
  }
};

// A sequence of requests in the daemon harness's form; configuration and display requests get
// their length word set by the harness (bit 7 of the selector).
struct Requests : Seed {
  Requests &add(uint8_t selector, const Bytes &request, int opcode = -1) {
    push(selector);
    if (opcode >= 0) push(opcode);
    sized(request);
    return *this;
  }
  Requests &config(const Bytes &request) { return add(0x80, request); }
  Requests &display(const Bytes &request) { return add(0x81, request); }
  Requests &simple(const Bytes &request) { return add(0x82, request); }
};

Bytes feature(uint8_t action) { return {action, 's', 'c', 'h', 'e', 'd', 'u', 'l', 'e', 'r', 0}; }

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
std::vector<Bytes> everything() {
  std::vector<Bytes> r{job_request(SCH_REQ_CREATE_JOB, "backup"),
                       job_request(SCH_REQ_DEFINE_JOB, "backup", "tar czf /tmp/backup.tgz /etc\necho done\n"),
                       job_request(SCH_REQ_CREATE_JOB, "rotate"),
                       job_request(SCH_REQ_DEFINE_JOB, "rotate", "logrotate -f /etc/rotate.conf\n")};
  for (const char *name : {"zeta", "alpha"}) {
    r.insert(r.end(), {schedule_request(SCH_REQ_CREATE_SCHEDULE, name), modify_request(name, SCH_MODIFY_DAILY, daily(2, 30)),
                       assign_request(name, "backup"), email_request(SCH_EMAIL_ADD, name, "ops@example.com")});
  }
  r.insert(r.end(), {assign_request("alpha", "rotate"), credential_request(SCH_CREDENTIAL_STORE, "alice", "7$secret"),
                     log_file_request(SCH_REQ_LOG_SIZE, false, "", 4096),
                     transport_request(SCH_REQ_EMAIL_FROM, transport()),
                     transport_request(SCH_REQ_EMAIL_REPLY_TO, transport()),
                     transport_request(SCH_REQ_EMAIL_SMTP, transport())});
  return r;
}

Requests configured() {
  Requests r;
  for (const Bytes &request : everything()) r.config(request);
  return r;
}

void request_seeds() {
  configured().write("request", "everything");
  Requests times;
  times.config(schedule_request(SCH_REQ_CREATE_SCHEDULE, "s"))
      .config(modify_request("s", SCH_MODIFY_WEEKLY, tminfo{SCH_TM_WEEKLY, 4, 3, 0, 15, 0, 0, 0, 0, 0}))
      .config(modify_request("s", SCH_MODIFY_MONTHLY, tminfo{SCH_TM_MONTHLY, 23, 31, 0, 59, 0, 0, 0, 0, 0}))
      .config(modify_request("s", SCH_MODIFY_START_REPEAT, tminfo{SCH_TM_ONESHOT, 12, 1, 1, 0, 2030, 0, 0, 0, 0}))
      .config(modify_request("s", SCH_MODIFY_JOB_NO_NAME, tminfo{}, "", true))
      .config(schedule_request(SCH_REQ_DELETE_SCHEDULE, "s"))
      .write("request", "times");
  configured()
      .display(display_request(SCH_REQ_GET_JOBS, "", -1))
      .display(display_request(SCH_REQ_GET_SCHEDULES, "alpha", -1))
      .display(header_request(SCH_REQ_GET_LOG_CONFIG))
      .simple(header_request(SCH_REQ_GET_EMAIL_TRANSPORT))
      .simple(header_request(SCH_REQ_GET_USER_CONFIG))
      .add(0x04, Bytes{ACFG_CFG_STARTUP, 0}, ACFG_OP_CONFIG_TEXT)
      .add(0x04, Bytes{0}, ACFG_OP_COPY_STARTUP)
      .add(0x04, Bytes{0}, ACFG_OP_MEMORY_STATS)
      .write("request", "displays");
  configured()
      .config(job_request(SCH_REQ_DELETE_JOB, "backup"))
      .config(credential_request(SCH_CREDENTIAL_DELETE, "alice"))
      .config(log_file_request(SCH_REQ_LOG_NAME, false, "logs:runs.dat"))
      .config(log_file_request(SCH_REQ_LOG_CLEAR, false))
      .config(transport_request(SCH_REQ_NO_EMAIL_SMTP, transport()))
      .add(0x03, feature(FM_FEATURE_DISABLE), FM_FEATURE_DISABLE)
      .add(0x03, feature(FM_FEATURE_ENABLE), FM_FEATURE_ENABLE)
      .write("request", "removal");
  // Frames that must be refused: a short header, a length word that disagrees, an unknown type.
  Requests()
      .add(0x00, Bytes{0, 0, 0})
      .add(0x00, schedule_request(SCH_REQ_CREATE_SCHEDULE, "x"))
      .config(header_request(99))
      .add(0x05, header_request(SCH_REQ_GET_JOBS))
      .write("request", "refused");
}

// Stores as a configured daemon left them, and the replies it gives to the shell's commands.
void daemon_seeds() {
  fuzz::LocalDaemon local("seeds", true);
  std::string error;
  require(local.start(&error), error.c_str());
  for (const Bytes &request : everything()) {
    uint32_t status = local.ask(SCH_SERVICE_CONFIG, SCH_OPCODE_CONFIG, request).status;
    if (status != 0) std::fprintf(stderr, "request of type %u: status %#x\n", unsigned{request[3]}, status);
    require(status == 0, "the seed configuration is taken");
  }

  Seed crash{0}, stateless{1};
  sch::pss::walk_store(pss_running, [&](pss2_datum key) {
    uint32_t status = 0;
    pss2_datum value = pss2_getvalue(pss_running, &status);
    for (Seed *seed : {&crash, &stateless}) {
      seed->push(0).append(static_cast<const char *>(key.data), key.length);
      seed->sized(std::string_view(static_cast<const char *>(value.data), value.length));
    }
    return true;
  });
  crash.write("restore", "crash_restart");
  stateless.write("restore", "stateless_restart");

  // The replies in the reply harness's form, command by command (its command byte first).
  auto display = [&](uint32_t opcode, const Bytes &request) {
    schedd::Reply reply = local.ask(SCH_SERVICE_DISPLAY, opcode, request);
    return std::pair{reply.status, reply.payload};
  };
  for (auto [command, name] : {std::pair{0, ""}, std::pair{1, "backup"}}) {
    Seed seed{static_cast<char>(command)};
    for (int32_t cursor = -1;;) {
      auto [status, payload] = display(SCH_OPCODE_DISPLAY, display_request(SCH_REQ_GET_JOBS, name, cursor));
      seed.answer(status, payload);
      if (status != 0 || payload.size() < sizeof(sch_job_reply) || *name) break;
      cursor = static_cast<int32_t>(decode_job(payload).cursor);
    }
    seed.write("reply", std::string("jobs_") + (*name ? "one" : "all"));
  }
  auto [status, payload] = display(SCH_OPCODE_DISPLAY, display_request(SCH_REQ_GET_SCHEDULES, "alpha", -1));
  Seed{3}.answer(status, payload).write("reply", "schedule_one");
  Seed{6}.answer(-1, local.running_text()).stream_end().write("reply", "running_text");
  Seed config{4};
  for (auto [opcode, type] : {std::pair{SCH_OPCODE_DISPLAY, SCH_REQ_GET_LOG_CONFIG},
                              std::pair{SCH_OPCODE_DISPLAY_SIMPLE, SCH_REQ_GET_EMAIL_TRANSPORT},
                              std::pair{SCH_OPCODE_DISPLAY_SIMPLE, SCH_REQ_GET_USER_CONFIG}}) {
    std::tie(status, payload) = display(opcode, header_request(type));
    config.answer(status, payload);
  }
  config.write("reply", "config");
  local.daemon->stop();
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

  // Limit, message bound, filter, then the entry to append: first's names, status, time, output.
  Seed head;
  head.u16(4096 / 16).u16(200);
  for (const std::string &text : {std::string("backup"), first.job, first.schedule, first.user}) {
    head.push(text.size()).append(text);
  }
  head.u32(0).u32(1800000120).sized(std::string("ok\n"));
  (Seed(head).push(0).sized(file)).write("run_log", "two_entries");
  (Seed(head).push(0).sized(file.substr(0, file.size() - 7))).write("run_log", "torn_tail");

  // The stream `show scheduler logfile` receives for that file, as reply-harness answers.
  Seed stream{8};
  auto messages = schedd::runner::RunLogMessages::open(location, "", 256);
  std::vector<uint8_t> payload;
  while (messages->next(&payload) == schedd::runner::RunLogMessages::Next::message) stream.answer(-1, payload);
  stream.stream_end().write("reply", "log_stream");
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
