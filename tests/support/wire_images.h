// Test support: wire images of the daemon's requests, built with the wire codec, and the display
// replies decoded, for tests that talk to a daemon over its socket or in-process.
#ifndef SCHEDCLI_TESTS_SUPPORT_WIRE_IMAGES_H
#define SCHEDCLI_TESTS_SUPPORT_WIRE_IMAGES_H

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

#include "cli/request.h"
#include "schedcli/tminfo.h"
#include "schedcli/wire.h"

namespace wire_images {

using Bytes = std::vector<uint8_t>;
using Names = std::vector<std::string>;

template <size_t N>
void set_text(char (&field)[N], const std::string &text) {
  std::memset(field, 0, N);
  std::memcpy(field, text.data(), std::min(text.size(), N));
}

// The record's wire image with its header filled in for `type`.
template <typename Native>
Bytes encode(sch_wire_record kind, uint32_t type, Native native, const std::string &tail = "") {
  native.header = {type, static_cast<uint32_t>(sizeof native - 8 + tail.size())};
  Bytes bytes(sizeof native);
  sch_wire_encode(kind, &native, bytes.data());
  bytes.insert(bytes.end(), tail.begin(), tail.end());
  return bytes;
}

inline Bytes job_request(uint32_t type, const std::string &name, const std::string &text = "") {
  sch_job_request request{};
  set_text(request.name, name);
  request.text_length = static_cast<uint32_t>(text.size());
  return encode(SCH_WIRE_JOB_REQUEST, type, request, text);
}

inline Bytes schedule_request(uint32_t type, const std::string &name) {
  sch_schedule_request request{};
  set_text(request.name, name);
  return encode(SCH_WIRE_SCHEDULE_REQUEST, type, request);
}

inline Bytes modify_request(const std::string &schedule, uint32_t code, const tminfo &time,
                            const std::string &job = "", bool no_form = false) {
  sch_modify_schedule_request request{};
  request.no_flag = no_form;
  request.code = code;
  set_text(request.schedule, schedule);
  set_text(request.job, job);
  request.time = time;
  return encode(SCH_WIRE_MODIFY_SCHEDULE_REQUEST, SCH_REQ_MODIFY_SCHEDULE, request);
}

inline Bytes assign_request(const std::string &schedule, const std::string &job, bool no_form = false) {
  return modify_request(schedule, SCH_MODIFY_JOB, tminfo{}, job, no_form);
}

inline tminfo daily(int hour, int minute) { return tminfo{SCH_TM_DAILY, hour, 0, 0, minute, 0, 0, 0, 0, 0}; }

inline Bytes email_request(uint8_t operation, const std::string &schedule, const std::string &address) {
  sch_schedule_email_request request{};
  request.operation = operation;
  set_text(request.schedule, schedule);
  set_text(request.address, address);
  return encode(SCH_WIRE_SCHEDULE_EMAIL_REQUEST, SCH_REQ_SCHEDULE_EMAIL, request);
}

inline Bytes credential_request(uint8_t operation, const std::string &user, const std::string &password = "") {
  sch_credential_request request{};
  request.operation = operation;
  set_text(request.user, user);
  set_text(request.password, password);
  return encode(SCH_WIRE_CREDENTIAL_REQUEST, SCH_REQ_USER_CREDENTIAL, request);
}

inline Bytes display_request(uint32_t type, const std::string &name, int32_t cursor) {
  sch_display_request request{};
  set_text(request.name, name);
  request.cursor = cursor;
  return encode(SCH_WIRE_DISPLAY_REQUEST, type, request);
}

inline Bytes log_file_request(uint32_t type, bool no_form, const std::string &path = "", uint32_t size = 0) {
  sch_log_file_request request{};
  request.no_flag = no_form;
  set_text(request.path, path);
  set_text(request.uri, path);
  request.size = size;
  return encode(SCH_WIRE_LOG_FILE_REQUEST, type, request);
}

inline Bytes transport_request(uint32_t type, const sch_email_transport_conf &conf) {
  sch_transport_request request{};
  request.conf = conf;
  return encode(SCH_WIRE_TRANSPORT_REQUEST, type, request);
}

inline Bytes header_request(uint32_t type) {
  sch_request_header header{type, 0};
  Bytes bytes(sizeof header);
  sch_wire_encode(SCH_WIRE_REQUEST_HEADER, &header, bytes.data());
  return bytes;
}

struct JobEntry {
  std::string name;
  uint32_t cursor;
  std::string text;
};

inline JobEntry decode_job(const Bytes &payload) {
  sch_job_reply head{};
  sch_wire_decode(SCH_WIRE_JOB_REPLY, payload.data(), payload.size(), &head);
  EXPECT_EQ(payload.size(), sizeof head + static_cast<size_t>(head.text_length));
  return {head.name, head.cursor, std::string(payload.begin() + std::min(sizeof head, payload.size()), payload.end())};
}

struct ScheduleEntry {
  sch_schedule_reply head{};
  std::vector<sch_schedule_reply_job> jobs;

  Names job_names() const {
    Names names;
    for (const auto &job : jobs) names.emplace_back(job.name);
    return names;
  }
  // The slots up to the last one in use; a free slot shows as "".
  Names addresses() const {
    Names found;
    for (const sch_email_slot &slot : head.emails) found.emplace_back(slot.in_use ? slot.address : "");
    while (!found.empty() && found.back().empty()) found.pop_back();
    return found;
  }
};

inline ScheduleEntry decode_schedule(const Bytes &payload) {
  ScheduleEntry entry;
  sch_wire_decode(SCH_WIRE_SCHEDULE_REPLY, payload.data(), payload.size(), &entry.head);
  EXPECT_EQ(payload.size(), sizeof entry.head + entry.head.job_count * sizeof(sch_schedule_reply_job));
  for (size_t at = sizeof entry.head; at + sizeof(sch_schedule_reply_job) <= payload.size(); at += 36) {
    entry.jobs.emplace_back();
    sch_wire_decode(SCH_WIRE_SCHEDULE_REPLY_JOB, payload.data() + at, 36, &entry.jobs.back());
  }
  return entry;
}

// The credential list as "user=password" texts.
inline Names decode_credentials(const Bytes &payload) {
  Names credentials;
  size_t count = payload.size() >= 2 ? sch_wire_get_u16(payload.data()) : 0;
  EXPECT_EQ(payload.size(), 2 + count * sizeof(sch_user_config_reply_entry));
  for (size_t at = 2; at + sizeof(sch_user_config_reply_entry) <= payload.size(); at += 264) {
    sch_user_config_reply_entry entry;
    sch_wire_decode(SCH_WIRE_USER_CONFIG_REPLY_ENTRY, payload.data() + at, sizeof entry, &entry);
    credentials.push_back(std::string(entry.user, strnlen(entry.user, 128)) + "=" +
                          std::string(entry.password, strnlen(entry.password, 136)));
  }
  return credentials;
}

}  // namespace wire_images

#endif
