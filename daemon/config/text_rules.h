// What may be stored in a field that the configuration text prints: anything accepted must come
// back unchanged when that text is read again, so nothing in it may end a line, end a job, or split
// a word.
#ifndef SCHEDD_CONFIG_TEXT_RULES_H
#define SCHEDD_CONFIG_TEXT_RULES_H

#include <cstdint>
#include <span>
#include <string_view>

namespace schedd {

// A byte below 0x20 or DEL.
bool control_character(char c);

// One word of a command line: at least one character, no blank, no control character.
bool plain_word(std::string_view text);

// A job's command text as the job mode reads it back: empty, or lines each ended by a newline,
// none holding a control character, and none that reads as "end-job" once its blanks are
// trimmed (it would end the job there).
bool job_text_travels(std::span<const uint8_t> text);

// One address local@domain as the mail transport takes it (see valid_address).
bool address_travels(std::string_view address);

// A server host name the shell takes as one: dot-separated labels of 1 to 63 letters, digits and
// inner hyphens, the last not all digits (the shell's own rule; other text it refuses).
bool host_name_travels(std::string_view host);

}  // namespace schedd

#endif
