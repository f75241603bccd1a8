// Reassembly of a job's command text from its fragments.
#include <algorithm>
#include <cstring>

#include "diag/trace.h"
#include "schedcli/db.h"
#include "schedcli/platform/mtrack.h"

namespace {

// Copies at most `wanted` bytes of a fragment: a damaged store may hold a fragment shorter than
// its job's length says, and the copy must not run past it (the rest stays as the caller set it).
void copy_fragment(char *out, const void *fragment, int wanted) {
  size_t held = mtrack_block_size(fragment);
  std::memcpy(out, fragment, std::min(static_cast<size_t>(wanted), held));
}

// Walks the fragments, copying `length` bytes; `per_piece` runs on each piece as copied.
template <typename PerPiece>
int concat(GList *fragments, char *buffer, int length, PerPiece per_piece) {
  int count = (length + SCH_FRAGMENT_SIZE - 1) / SCH_FRAGMENT_SIZE;
  sch::trace(sch::kTraceDetail, "length %d fragments %d", length, count);
  if (count < 1 || !fragments) return 0;
  GList *element = g_list_first(fragments);
  int remaining = length;
  while (remaining > SCH_FRAGMENT_SIZE) {
    copy_fragment(buffer, element->data, SCH_FRAGMENT_SIZE);
    per_piece(buffer, SCH_FRAGMENT_SIZE);
    buffer += SCH_FRAGMENT_SIZE;
    remaining -= SCH_FRAGMENT_SIZE;
    count--;
    sch::trace(sch::kTraceRecord, "fragment count %d %d", count, SCH_FRAGMENT_SIZE);
    element = element->next;
    // A list shorter than the length demands ends the copy early.
    if (count == 0 || !element) return 0;
  }
  copy_fragment(buffer, element->data, remaining);
  per_piece(buffer, remaining);
  sch::trace(sch::kTraceRecord, "fragment count %d %d", count, remaining);
  return 0;
}

}  // namespace

extern "C" {

int sch_concat_fragments(GList *fragments, char *buffer, int length) {
  return concat(fragments, buffer, length, [](char *, int) {});
}

int sch_show_run_concat_fragments(GList *fragments, char *buffer, int length) {
  return concat(fragments, buffer, length, sch_replace_newline_with_semicolon);
}

void sch_replace_newline_with_semicolon(char *buffer, int length) {
  // The last byte of the range is left alone on purpose: a trailing newline ends the text.
  for (int i = 0; i < length - 1; i++) {
    if (buffer[i] == '\n') buffer[i] = ';';
  }
}

}  // extern "C"
