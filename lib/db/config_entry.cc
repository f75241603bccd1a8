// The restore dispatcher: schedule and job records, as a store returns them, into a config set.
#include <algorithm>
#include <cstring>

#include "db/alloc_kinds.h"
#include "db/codec.h"
#include "schedcli/db.h"
#include "schedcli/diag.h"
#include "schedcli/platform/mtrack.h"

namespace {

std::span<const uint8_t> datum_bytes(const pss2_datum *datum) {
  if (!datum || !datum->data || datum->length <= 0) return {};
  return sch::codec::bytes(datum->data, static_cast<size_t>(datum->length));
}

}  // namespace

extern "C" int sch_add_config_entry(sch_config_set *db, const pss2_datum *key_datum, const pss2_datum *value_datum) {
  using namespace sch;
  auto *key = static_cast<sch_config_key *>(sch_malloc_check(sizeof(sch_config_key), alloc::kKeyCopy, 0,
                                                             alloc::kAddConfigEntry));
  if (!key) return -1;
  codec::decode(codec::kConfigKey, datum_bytes(key_datum), key, codec::ShortValue::kZeroFill);
  std::span<const uint8_t> value = datum_bytes(value_datum);

  if (key->type == SCH_REC_SCHEDULE) {
    auto *record = static_cast<sch_schedule_record *>(
        sch_malloc_check(sizeof(sch_schedule_record), alloc::kSchedule, 0, alloc::kAddScheduleEntry));
    if (!record) {
      mtrack_free(key);
      return -1;
    }
    codec::decode(codec::kScheduleRecord, value, record, codec::ShortValue::kZeroFill);
    sch_schedule_entry *entry = nullptr;
    if (sch_add_schedule_entry(db, key, record, &entry) != 0) {
      mtrack_free(key);
      mtrack_free(record);
    }
    return 0;
  }

  if (key->type == SCH_REC_JOB && key->sequence == 0) {
    auto *header = static_cast<sch_job_header *>(
        sch_malloc_check(sizeof(sch_job_header), alloc::kJobHeader, 0, alloc::kAddJobEntry));
    if (!header) {
      mtrack_free(key);
      return -1;
    }
    codec::decode(codec::kJobHeader, value, header, codec::ShortValue::kZeroFill);
    sch_job_slot *slot = nullptr;
    sch_add_job_hdr(db, key, header, &slot);  // an invalid id is dropped there; restore goes on
    return 0;
  }

  if (key->type == SCH_REC_JOB) {
    // A fragment is raw text bytes. Its buffer holds a whole fragment, zeros after the stored
    // bytes: every reader takes up to a whole fragment from it as the job's header length says,
    // and a damaged store can claim more text than it holds.
    size_t size = std::max<size_t>(value.size(), SCH_FRAGMENT_SIZE);
    void *fragment = sch_malloc_check(size, alloc::kJobFragment, 0, alloc::kAddJobEntry);
    if (!fragment) {
      mtrack_free(key);
      return -1;
    }
    std::memset(fragment, 0, size);
    if (!value.empty()) std::memcpy(fragment, value.data(), value.size());
    sch_job_slot *slot = nullptr;
    sch_add_job_data(db, key, fragment, &slot);  // a fragment of an unknown job is dropped there
    return 0;
  }

  // Other record types are restored by their own code before they could reach here.
  mtrack_free(key);
  return 0;
}
