// Stores and messages as portable byte dumps, so that scripts/endian-check can compare what two
// hosts write and hand the stores of one to the other (store files themselves are native).
//   store_images seed DIR       a configuration's records, built here, as DIR/config.dump and
//                               DIR/runtime.dump
//   store_images restore IN OUT loads IN's dumps into fresh stores, restores them through the
//                               library, saves the result through its writers into other fresh
//                               stores and dumps those to OUT; also dumps every wire record
//                               kind to OUT/messages.dump
// A dump has one line per record in store order: key and value in hexadecimal.
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <string>
#include <vector>

#include "db/codec.h"
#include "db/records.h"
#include "schedcli/db.h"
#include "schedcli/keys.h"
#include "schedcli/platform/pss.h"
#include "schedcli/pss.h"
#include "schedcli/wire.h"

namespace {

using Bytes = std::vector<uint8_t>;
struct Record {
  Bytes key;
  Bytes value;
};

std::string hex(const Bytes &bytes) {
  static const char digits[] = "0123456789abcdef";
  std::string text;
  for (uint8_t byte : bytes) {
    text += digits[byte >> 4];
    text += digits[byte & 15];
  }
  return text;
}

bool unhex(const std::string &text, Bytes *out) {
  if (text.size() % 2 != 0) return false;
  out->clear();
  for (size_t i = 0; i < text.size(); i += 2) {
    unsigned value;
    if (std::sscanf(text.c_str() + i, "%2x", &value) != 1) return false;
    out->push_back(static_cast<uint8_t>(value));
  }
  return true;
}

bool write_dump(const std::string &path, const std::vector<Record> &records) {
  std::ofstream out(path);
  for (const Record &record : records) out << hex(record.key) << ' ' << hex(record.value) << '\n';
  return static_cast<bool>(out);
}

bool write_dumps(const std::string &dir, const std::vector<Record> &config, const std::vector<Record> &runtime) {
  return write_dump(dir + "/config.dump", config) && write_dump(dir + "/runtime.dump", runtime);
}

bool read_dump(const std::string &path, std::vector<Record> *records) {
  std::ifstream in(path);
  for (std::string key, value; in >> key >> value;) {
    Record &record = records->emplace_back();
    if (!unhex(key, &record.key) || !unhex(value, &record.value)) {
      std::fprintf(stderr, "%s: unreadable record\n", path.c_str());
      return false;
    }
  }
  return in.eof();
}

Bytes config_key(uint32_t type, uint32_t sequence, const char *name) {
  sch_config_key key{};
  key.type = type;
  key.sequence = sequence;
  std::memcpy(key.name, name, std::min(std::strlen(name), sizeof key.name));
  sch_hton_config_key(&key);
  const auto *raw = reinterpret_cast<const uint8_t *>(&key);
  return Bytes(raw, raw + sizeof key);
}

Bytes image(const sch::codec::Layout &layout, const void *native) {
  Bytes out(layout.size);
  sch::codec::encode(layout, native, out.data());
  return out;
}

// A configuration that uses every record type, with words whose four bytes differ, the last job
// slot, a name that fills its field and a command text one byte past a fragment.
void seed(std::vector<Record> *config, std::vector<Record> *runtime) {
  const char *full_name = "abcdefghijklmnopqrstuvwxyz012345";
  sch_schedule_record nightly{};
  nightly.reserved0[0] = 0x01020304;
  nightly.jobs[0] = (1u << 0) | (1u << 2);
  nightly.jobs[7] = 1u << 31;
  nightly.reserved40 = 0x0a0b0c0d;
  nightly.time = tminfo{7, 2, 30, 15, 4, 1, 2024, 1700000000, 86400, 0};
  nightly.last_completion = 1700000123;
  nightly.job_count = 3;
  std::strcpy(nightly.user, "operator");
  nightly.last_execution = 1700000100;
  nightly.execution_count = 0x10203;
  config->push_back({config_key(SCH_REC_SCHEDULE, 0, "nightly"), image(sch::codec::kScheduleRecord, &nightly)});
  sch_schedule_record full{};
  full.jobs[7] = 1u << 31;
  full.time = tminfo{3, 23, 59, 0, 0, 0, 0, 0, 0, 0};
  full.job_count = 1;
  std::strcpy(full.user, "root");
  config->push_back({config_key(SCH_REC_SCHEDULE, 0, full_name), image(sch::codec::kScheduleRecord, &full)});

  struct Job {
    uint32_t id;
    const char *name;
    size_t length;
  };
  for (const Job &job : {Job{0, "backup", 1025}, Job{2, "clean", 5}, Job{255, full_name, 1024}}) {
    sch_job_header header{job.id, 0x11223344, static_cast<uint32_t>(job.length)};
    config->push_back({config_key(SCH_REC_JOB, 0, job.name), image(sch::codec::kJobHeader, &header)});
    std::string text;
    for (size_t i = 0; i < job.length; i++) text += (i % 16 == 15) ? '\n' : static_cast<char>('a' + i % 26);
    for (size_t at = 0, piece = 1; at < job.length; at += 1024, piece++) {
      const std::string part = text.substr(at, 1024);
      config->push_back({config_key(SCH_REC_JOB, static_cast<uint32_t>(piece), job.name), Bytes(part.begin(), part.end())});
    }
  }

  sch_condition_record enabled = 1;
  config->push_back({config_key(SCH_REC_CONDITION, 0, ""), image(sch::codec::kCondition, &enabled)});
  sch_log_file_record log{};
  for (size_t i = 0; i < sizeof log.writer_data; i++) log.writer_data[i] = static_cast<uint8_t>(i);
  log.size_limit = 65536;
  log.read_offset = 0x1234;
  log.reserved = 0x55667788;
  log.count = 42;
  for (size_t i = 0; i < sizeof log.writer_state; i++) log.writer_state[i] = static_cast<uint8_t>(255 - i);
  config->push_back({config_key(SCH_REC_LOG_FILE, 0, ""),
                     image(sch::codec::kLogFileValue, reinterpret_cast<uint8_t *>(&log) + SCH_LOG_FILE_STORED_OFFSET)});

  sch_email_transport_conf transport{};
  std::strcpy(transport.from, "scheduler@switch.example");
  std::strcpy(transport.reply_to, "noc@example.net");
  std::strcpy(transport.smtp_server, "192.0.2.25");
  transport.smtp_reserved = 0x01000002;
  transport.smtp_port = 587;
  std::strcpy(transport.vrf, "management");
  config->push_back({config_key(SCH_REC_EMAIL_FROM, 0, ""), image(sch::codec::kEmailAddressValue, transport.from)});
  config->push_back({config_key(SCH_REC_EMAIL_REPLY_TO, 0, ""), image(sch::codec::kEmailAddressValue, transport.reply_to)});
  config->push_back({config_key(SCH_REC_EMAIL_SMTP, 0, ""), image(sch::codec::kSmtpServerValue, transport.smtp_server)});

  sch_schedule_email_entry email{};
  std::strcpy(email.schedule, "nightly");
  email.count = 2;
  std::strcpy(email.slots[0].address, "ops@example.net");
  email.slots[0].in_use = 1;
  std::strcpy(email.slots[9].address, "last@example.net");
  email.slots[9].in_use = 1;
  config->push_back({config_key(SCH_REC_SCHEDULE_EMAIL, 0, "nightly"), image(sch::codec::kScheduleEmail, &email)});

  sch_user_config_record user{};
  std::strcpy(user.user, "alice");
  for (size_t i = 0; i < 64; i++) user.password[i] = static_cast<char>('A' + i % 26);
  user.word = 0x00010203;
  user.reserved = 0x04050607;
  config->push_back({config_key(SCH_REC_USER, user.word, "alice"), image(sch::codec::kUserRecord, &user)});

  const uint32_t result[2] = {0x100, 1700000200};
  for (uint32_t job : {0u, 2u}) {
    runtime->push_back({config_key(SCH_REC_RUNTIME_STATUS, job, "nightly"), image(sch::codec::kRunResultValue, result)});
  }
}

pss2_handle create_store(const std::string &uri) {
  pss2_handle store = sch_pss_create(uri.c_str(), 0, SCH_PSS_VALUE_SIZE, SCH_KEY_SIZE);
  if (store == 0) std::fprintf(stderr, "%s: cannot create the store\n", uri.c_str());
  return store;
}

bool fill(pss2_handle store, const std::vector<Record> &records) {
  for (const Record &record : records) {
    pss2_datum key{const_cast<uint8_t *>(record.key.data()), static_cast<int32_t>(record.key.size())};
    pss2_datum value{const_cast<uint8_t *>(record.value.data()), static_cast<int32_t>(record.value.size())};
    if (pss2_store(store, &key, &value) != PSS2_OK) return false;
  }
  return true;
}

bool dump(pss2_handle store, std::vector<Record> *records) {
  uint32_t out = 0;
  uint32_t status = pss2_move2location(&store, 0, PSS2_LOCATION_FIRST, &out);
  while (status == PSS2_OK) {
    pss2_datum key = pss2_getkey(store, &status);
    if (status != PSS2_OK) return false;
    pss2_datum value = pss2_getvalue(store, &status);
    if (status != PSS2_OK) return false;
    const auto *k = static_cast<const uint8_t *>(key.data);
    const auto *v = static_cast<const uint8_t *>(value.data);
    records->push_back({Bytes(k, k + key.length), Bytes(v, v + value.length)});
    status = pss2_move2location(&store, 0, PSS2_LOCATION_NEXT, &out);
  }
  return status == PSS2_ERR_END;
}

// Every wire record kind: a fixed byte pattern decoded here and encoded again. Hosts agree when
// each gives the same bytes back (or refuses the same kinds).
std::vector<Record> messages() {
  std::vector<Record> out;
  for (int kind = 0; kind < SCH_WIRE_RECORD_COUNT; kind++) {
    const auto record = static_cast<sch_wire_record>(kind);
    const size_t size = sch_wire_size(record);
    Bytes pattern(size), back(size);
    for (size_t i = 0; i < size; i++) pattern[i] = static_cast<uint8_t>(i * 7 + 1);
    std::vector<uint8_t> native(size + 64);
    const bool decoded = sch_wire_decode(record, pattern.data(), size, native.data()) == 0 &&
                         sch_wire_encode(record, native.data(), back.data()) == 0;
    out.push_back({Bytes{static_cast<uint8_t>(kind)}, decoded ? back : Bytes{}});
  }
  return out;
}

int restore(const std::string &in, const std::string &out) {
  std::vector<Record> config, runtime;
  if (!read_dump(in + "/config.dump", &config) || !read_dump(in + "/runtime.dump", &runtime)) return 1;
  pss2_handle config_in = create_store(out + "/config-in.mdb");
  pss2_handle runtime_in = create_store(out + "/runtime-in.mdb");
  if (config_in == 0 || runtime_in == 0 || !fill(config_in, config) || !fill(runtime_in, runtime)) return 1;

  sch_uname_q_init();
  sch_restore_config_from_pss(&sch_running_config, config_in, 0);
  sch_restore_db_from_pss(&sch_running_config, runtime_in);

  pss2_handle config_out = create_store(out + "/config-out.mdb");
  pss2_handle runtime_out = create_store(out + "/runtime-out.mdb");
  if (config_out == 0 || runtime_out == 0) return 1;
  sch_config_key condition{SCH_REC_CONDITION, 0, {}};
  sch_config_key log_file{SCH_REC_LOG_FILE, 0, {}};
  sch_log_file_key = log_file;
  bool saved = sch_save_config_to_pss(&sch_running_config, config_out) == 0 &&
               sch_save_condition_entry_to_pss(config_out, &condition, scheduler_enabled) == 0 &&
               sch_save_email_from_conf_to_pss(config_out, &email_transport_conf) == 0 &&
               sch_save_email_replyto_conf_to_pss(config_out, &email_transport_conf) == 0 &&
               sch_save_email_smtpserver_conf_to_pss(config_out, &email_transport_conf) == 0 &&
               sch_save_db_to_pss(&sch_running_config, runtime_out) == 0;
  for (GList *entry = sch_schedule_email_list; saved && entry != nullptr; entry = entry->next) {
    saved = sch_save_schedule_email_entry_to_pss(config_out, static_cast<sch_schedule_email_entry *>(entry->data)) == 0;
  }
  std::vector<Record> config_back, runtime_back;
  if (!saved || !dump(config_out, &config_back) || !dump(runtime_out, &runtime_back)) {
    std::fprintf(stderr, "store_images: saving the restored configuration failed\n");
    return 1;
  }
  return write_dumps(out, config_back, runtime_back) && write_dump(out + "/messages.dump", messages()) ? 0 : 1;
}

}  // namespace

int main(int argc, char **argv) {
  const std::string mode = argc > 1 ? argv[1] : "";
  if (mode == "seed" && argc == 3) {
    std::vector<Record> config, runtime;
    seed(&config, &runtime);
    // In the stores' own order: ascending keys, compared byte by byte.
    for (auto *records : {&config, &runtime}) {
      std::sort(records->begin(), records->end(), [](const Record &a, const Record &b) { return a.key < b.key; });
    }
    return write_dumps(argv[2], config, runtime) ? 0 : 1;
  }
  if (mode == "restore" && argc == 4) return restore(argv[2], argv[3]);
  std::fprintf(stderr, "usage: store_images seed DIR | store_images restore IN OUT\n");
  return 2;
}
