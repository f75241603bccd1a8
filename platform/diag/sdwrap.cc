// Debug levels, the bounded event history and buginf output.
#include "schedcli/platform/sdwrap.h"

#include <array>
#include <bitset>
#include <cstdarg>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <mutex>

#include "schedcli/platform/acfg.h"
#include "schedcli/platform/mtrack.h"

namespace {

struct HistoryRecord {
  uint32_t event_id = 0;
  size_t length = 0;
  unsigned char bytes[SDWRAP_HISTORY_RECORD] = {};
};

struct DebugState {
  std::mutex mutex;
  std::bitset<SDWRAP_MAX_LEVEL + 1> buginf_levels;
  std::bitset<SDWRAP_MAX_LEVEL + 1> history_dropped_levels;
  std::array<HistoryRecord, SDWRAP_HISTORY_EVENTS> ring;
  size_t next = 0;   // slot the next record goes to
  size_t count = 0;  // records held, at most the ring's size
  FILE *stream = nullptr;
};

DebugState &state() {
  static DebugState instance;
  return instance;
}

bool level_in_range(int level) { return level >= 0 && level <= SDWRAP_MAX_LEVEL; }

}  // namespace

extern "C" {

int sdwrap_hist_event(uint32_t event_id, const void *record, size_t length) {
  DebugState &s = state();
  std::lock_guard lock(s.mutex);
  HistoryRecord &slot = s.ring[s.next];
  slot.event_id = event_id;
  slot.length = record ? (length < SDWRAP_HISTORY_RECORD ? length : SDWRAP_HISTORY_RECORD) : 0;
  if (slot.length) std::memcpy(slot.bytes, record, slot.length);
  s.next = (s.next + 1) % s.ring.size();
  if (s.count < s.ring.size()) s.count++;
  return 0;
}

int sdwrap_hist_event_subtype_check(uint32_t /*event_id*/, int level) {
  DebugState &s = state();
  std::lock_guard lock(s.mutex);
  return level_in_range(level) ? static_cast<int>(s.history_dropped_levels.test(level)) : 1;
}

int sdwrap_chk_int(int level, int, int, int) {
  DebugState &s = state();
  std::lock_guard lock(s.mutex);
  return level_in_range(level) && s.buginf_levels.test(level) ? 1 : 0;
}

void sdwrap_debug_level_set(int level, int enabled) {
  DebugState &s = state();
  std::lock_guard lock(s.mutex);
  if (level == -1) {
    enabled ? s.buginf_levels.set() : s.buginf_levels.reset();
  } else if (level_in_range(level)) {
    s.buginf_levels.set(level, enabled != 0);
  }
}

void sdwrap_history_level_set(int level, int enabled) {
  DebugState &s = state();
  std::lock_guard lock(s.mutex);
  if (level == -1) {
    enabled ? s.history_dropped_levels.reset() : s.history_dropped_levels.set();
  } else if (level_in_range(level)) {
    s.history_dropped_levels.set(level, enabled == 0);
  }
}

void buginf(const char *format, ...) {
  char text[1024];
  va_list arguments;
  va_start(arguments, format);
  std::vsnprintf(text, sizeof text, format, arguments);
  va_end(arguments);
  DebugState &s = state();
  std::lock_guard lock(s.mutex);
  FILE *out = s.stream ? s.stream : stderr;
  size_t length = std::strlen(text);
  std::fprintf(out, "%s%s", text, (length > 0 && text[length - 1] == '\n') ? "" : "\n");
  std::fflush(out);
}

void sdwrap_buginf_stream_set(FILE *stream) {
  DebugState &s = state();
  std::lock_guard lock(s.mutex);
  s.stream = stream;
}

size_t sdwrap_history_walk(sdwrap_history_visitor visit, void *context) {
  DebugState &s = state();
  std::lock_guard lock(s.mutex);
  size_t first = (s.next + s.ring.size() - s.count) % s.ring.size();
  for (size_t i = 0; i < s.count; i++) {
    const HistoryRecord &record = s.ring[(first + i) % s.ring.size()];
    visit(record.event_id, record.bytes, record.length, context);
  }
  return s.count;
}

void sdwrap_history_dump(FILE *out) {
  sdwrap_history_walk(
      [](uint32_t, const void *record, size_t length, void *context) {
        FILE *file = static_cast<FILE *>(context);
        int32_t level = 0;
        if (length < sizeof level) return;
        std::memcpy(&level, record, sizeof level);
        const char *text = static_cast<const char *>(record) + sizeof level;
        size_t text_length = strnlen(text, length - sizeof level);
        while (text_length > 0 && text[text_length - 1] == '\n') text_length--;
        std::fprintf(file, "[%d] %.*s\n", level, static_cast<int>(text_length), text);
      },
      out);
}

int sdwrap_debug_dump(void *session, FILE *out, const char *what) {
  if (!what || std::strcmp(what, "mtrack_dump_memstats") != 0) return -1;
  out = out ? out : stdout;
  if (!session) {
    mtrack_dump_memstats(out);
    return 0;
  }
  // With a session the statistics wanted are the daemon's, which keeps the database.
  char *text = nullptr;
  size_t length = 0;
  if (acfg_request_memory_stats(static_cast<cmi_session *>(session), &text, &length) != 0) return -1;
  std::fwrite(text, 1, length, out);
  std::free(text);
  return 0;
}

int sdwrap_dbg_clean(void * /*context*/) {
  DebugState &s = state();
  std::lock_guard lock(s.mutex);
  s.buginf_levels.reset();
  return 0;
}

int sdwrap_sys_clean(void * /*context*/) {
  DebugState &s = state();
  std::lock_guard lock(s.mutex);
  s.count = 0;
  s.next = 0;
  return 0;
}

}  // extern "C"
