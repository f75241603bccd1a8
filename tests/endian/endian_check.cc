// Stored and wire images are the same bytes on every host. Built natively and for a big-endian
// target (scripts/endian-check runs it under emulation); it needs nothing but the codec.
#include <bit>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <vector>

#include "cli/request.h"
#include "db/codec.h"
#include "schedcli/keys.h"
#include "schedcli/wire.h"

namespace {

int passed = 0;
int failed = 0;

void check(bool ok, const char *what) {
  if (ok) {
    passed++;
  } else {
    failed++;
    std::printf("FAILED: %s\n", what);
  }
}

bool bytes_are(const uint8_t *data, std::vector<uint8_t> expected) {
  return std::memcmp(data, expected.data(), expected.size()) == 0;
}

constexpr bool kBigEndianHost = std::endian::native == std::endian::big;

void keys() {
  sch_config_key key{1, 0x01020304, "backup"};
  sch_config_key before = key;
  sch_hton_config_key(&key);
  const auto *raw = reinterpret_cast<const uint8_t *>(&key);
  check(bytes_are(raw, {0, 0, 0, 1, 1, 2, 3, 4, 'b', 'a', 'c', 'k', 'u', 'p', 0}), "stored key bytes");
  check(kBigEndianHost == (std::memcmp(&key, &before, sizeof key) == 0),
        "key conversion is the identity exactly on a big-endian host");
  sch_ntoh_config_key(&key);
  check(key.type == 1 && key.sequence == 0x01020304, "key converts back");
}

void schedule_record() {
  sch_schedule_record record{};
  record.jobs[0] = 1;
  record.jobs[7] = 0x80000000u;
  record.time = tminfo{7, 2, 1, -1, 30, -1, -1, 1700000000, 0, 0};
  record.job_count = 2;
  std::strcpy(record.user, "operator");
  record.execution_count = 9;
  uint8_t image[SCH_SCHEDULE_RECORD_SIZE];
  sch::codec::encode(sch::codec::kScheduleRecord, &record, image);
  check(bytes_are(image + 8, {0, 0, 0, 1}), "bit set word 0");
  check(bytes_are(image + 36, {0x80, 0, 0, 0}), "bit set word 7");
  check(bytes_are(image + 44, {0, 0, 0, 7, 0, 0, 0, 2, 0, 0, 0, 1, 0xff, 0xff, 0xff, 0xff}), "tminfo words");
  check(bytes_are(image + 72, {0x65, 0x53, 0xf1, 0x00}), "start time");
  check(bytes_are(image + 92, {0, 0, 0, 2, 'o', 'p'}), "job count and user");
  check(bytes_are(image + 140, {0, 0, 0, 9}), "execution count");
  sch_schedule_record back{};
  sch::codec::decode(sch::codec::kScheduleRecord, image, &back, sch::codec::ShortValue::kZeroFill);
  check(std::memcmp(&back, &record, sizeof record) == 0, "schedule record round trip");
}

void requests() {
  sch_modify_schedule_request request{};
  request.header = {SCH_REQ_MODIFY_SCHEDULE, sizeof request - 8};
  request.code = SCH_MODIFY_DAILY;
  std::strcpy(request.schedule, "nightly");
  request.time = tminfo{3, 2, 0, 0, 30, 0, 0, 0, 0, 0};
  uint8_t wire[sizeof request];
  sch_wire_encode(SCH_WIRE_MODIFY_SCHEDULE_REQUEST, &request, wire);
  check(bytes_are(wire, {0, 0, 0, 4, 0, 0, 0, 120, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 3, 'n', 'i'}), "modify request head");
  check(bytes_are(wire + 88, {0, 0, 0, 3, 0, 0, 0, 2}), "modify request tminfo");
  sch_credential_request credential{};
  credential.header = {SCH_REQ_USER_CREDENTIAL, sizeof credential - 8};
  credential.operation = SCH_CREDENTIAL_STORE;
  std::strcpy(credential.user, "alice");
  uint8_t packed[sizeof credential];
  sch_wire_encode(SCH_WIRE_CREDENTIAL_REQUEST, &credential, packed);
  check(bytes_are(packed, {0, 0, 0, 22, 0, 0, 1, 1, 3, 'a', 'l', 'i', 'c', 'e', 0}), "packed credential request");
  sch_modify_schedule_request back{};
  check(sch_wire_decode(SCH_WIRE_MODIFY_SCHEDULE_REQUEST, wire, sizeof wire, &back) == 0 &&
            std::memcmp(&back, &request, sizeof request) == 0,
        "modify request round trip");
}

}  // namespace

int main() {
  keys();
  schedule_record();
  requests();
  std::printf("%s host\n", kBigEndianHost ? "big-endian" : "little-endian");
  std::printf("%d passed, %d failed\n", passed, failed);
  return failed == 0 ? 0 : 1;
}
