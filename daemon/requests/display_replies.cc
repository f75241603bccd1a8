// The display cursors: one job (type 7) or one schedule (type 6) per reply. The cursor a reply
// carries is where the next request starts looking; a reply without payload ends the listing.
#include <algorithm>
#include <cstring>
#include <vector>

#include "config/database.h"
#include "requests/requests.h"
#include "schedcli/platform/bitset.h"
#include "schedcli/wire.h"

namespace schedd {

namespace {

constexpr int32_t kFirstRequest = -1;

// The name asked for (all entries when it is empty) matches an entry's stored name.
bool wanted(const char (&asked)[SCH_NAME_SIZE], const char (&stored)[SCH_NAME_SIZE]) {
  return asked[0] == '\0' || field_text(asked) == field_text(stored);
}

Reply job_reply(const sch_job_slot &job, int id) {
  sch_job_reply head{};
  copy_text(head.name, field_text(job.key->name));
  head.cursor = static_cast<uint32_t>(id + 1);
  // A damaged store could claim more text than the job holds; never reach past its fragments.
  size_t held = std::min<size_t>(g_list_length(job.fragments) * size_t{SCH_FRAGMENT_SIZE}, SCH_JOB_TEXT_MAX);
  auto length = static_cast<int32_t>(job.header ? std::min<size_t>(job.header->length, held) : 0);
  head.text_length = length;
  Reply reply;
  reply.payload.resize(sizeof head + static_cast<size_t>(length));
  sch_wire_encode(SCH_WIRE_JOB_REPLY, &head, reply.payload.data());
  sch_concat_fragments(job.fragments, reinterpret_cast<char *>(reply.payload.data() + sizeof head), length);
  return reply;
}

// The wait status of the job's latest run for this schedule; 0 when it never ran.
uint32_t last_status(const sch_job_slot &job, const char (&schedule)[SCH_NAME_SIZE]) {
  for (GList *element = g_list_last(job.run_results); element; element = element->prev) {
    auto *result = static_cast<const sch_runtime_job_status *>(element->data);
    if (std::strncmp(result->schedule, schedule, SCH_NAME_SIZE) == 0) return result->result[0];
  }
  return 0;
}

Reply schedule_reply(const sch_schedule_entry &schedule) {
  const sch_schedule_record &record = *schedule.value;
  sch_schedule_reply head{};
  head.cursor = listing_serial(schedule) + 1;
  copy_text(head.name, field_text(schedule.key->name));
  head.time = record.time;
  head.last_completion = static_cast<int32_t>(record.last_completion);
  copy_text(head.user, field_text(record.user));
  head.last_execution = static_cast<int32_t>(record.last_execution);
  head.execution_count = static_cast<int32_t>(record.execution_count);

  sch_schedule_email_entry *emails = nullptr;
  sch_find_schedule_email_entry(&sch_schedule_email_list, head.name, &emails);
  for (int i = 0; emails && i < SCH_MAX_EMAILS; i++) {
    if (!emails->slots[i].in_use) continue;
    copy_text(head.emails[i].address, field_text(emails->slots[i].address));
    head.emails[i].in_use = 1;
    head.any_email = 1;
  }

  // Bits of jobs that are gone are passed over.
  std::vector<sch_schedule_reply_job> jobs;
  for (int id = bitset_next_bit(record.jobs, SCH_MAX_JOBS, -1); id >= 0;
       id = bitset_next_bit(record.jobs, SCH_MAX_JOBS, id)) {
    const sch_job_slot &job = database()->jobs[id];
    if (!job.key) continue;
    sch_schedule_reply_job entry{};
    copy_text(entry.name, field_text(job.key->name));
    entry.status = last_status(job, schedule.key->name);
    jobs.push_back(entry);
  }
  head.job_count = static_cast<uint32_t>(jobs.size());

  Reply reply;
  reply.payload.resize(sizeof head + jobs.size() * sizeof(sch_schedule_reply_job));
  uint8_t *out = reply.payload.data();
  sch_wire_encode(SCH_WIRE_SCHEDULE_REPLY, &head, out);
  out += sizeof head;
  for (const sch_schedule_reply_job &entry : jobs) {
    sch_wire_encode(SCH_WIRE_SCHEDULE_REPLY_JOB, &entry, out);
    out += sizeof entry;
  }
  return reply;
}

// The display request, or false when its name field is not terminated.
bool decode_display_request(RequestBytes bytes, sch_display_request *request) {
  sch_wire_decode(SCH_WIRE_DISPLAY_REQUEST, bytes.data(), bytes.size(), request);
  return terminated(request->name);
}

}  // namespace

Reply job_display(RequestBytes bytes, const RequestContext &) {
  sch_display_request request;
  if (!decode_display_request(bytes, &request)) return status_reply(SCH_STATUS_BAD_REQUEST);
  // Any other negative cursor lies past the end, as one of 256 or more does.
  int from = request.cursor == kFirstRequest ? 0 : request.cursor;
  for (int id = from; id >= 0 && id < SCH_MAX_JOBS; id++) {
    sch_job_slot *job = sch_next_job(database(), &id);
    if (!job) break;
    if (wanted(request.name, job->key->name)) return job_reply(*job, id);
  }
  return {};
}

Reply schedule_display(RequestBytes bytes, const RequestContext &) {
  sch_display_request request;
  if (!decode_display_request(bytes, &request)) return status_reply(SCH_STATUS_BAD_REQUEST);
  if (request.cursor < kFirstRequest) return {};
  uint32_t from = request.cursor == kFirstRequest ? 0 : static_cast<uint32_t>(request.cursor);
  for (GList *element = g_list_first(*database()->schedules); element; element = element->next) {
    auto *schedule = static_cast<const sch_schedule_entry *>(element->data);
    if (listing_serial(*schedule) >= from && wanted(request.name, schedule->key->name)) {
      return schedule_reply(*schedule);
    }
  }
  return {};
}

}  // namespace schedd
