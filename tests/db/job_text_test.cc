// Reassembly of a job's command text from its fragments, plain and for one-line display.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

#include "schedcli/db.h"
#include "schedcli/diag.h"
#include "schedcli/platform/mtrack.h"

namespace {

// Fragments of 1024 bytes, the last one holding the rest, as tracked blocks like the database's.
struct Fragments {
  explicit Fragments(const std::string &text) {
    for (size_t offset = 0; offset < text.size(); offset += SCH_FRAGMENT_SIZE) {
      size_t length = std::min<size_t>(SCH_FRAGMENT_SIZE, text.size() - offset);
      void *fragment = sch_malloc_check(length, 7, 0, "test");
      std::memcpy(fragment, text.data() + offset, length);
      list = g_list_append(list, fragment);
    }
  }
  ~Fragments() { g_list_free_full(list, mtrack_free); }
  GList *list = nullptr;
};

std::string text_of(size_t length) {
  std::string text;
  for (size_t i = 0; i < length; i++) text.push_back(static_cast<char>('a' + i % 26));
  return text;
}

std::string concat(GList *list, int length, bool for_display = false) {
  std::string out(static_cast<size_t>(length) + 2, '\0');
  int result = for_display ? sch_show_run_concat_fragments(list, out.data(), length)
                           : sch_concat_fragments(list, out.data(), length);
  EXPECT_EQ(result, 0);
  return out.substr(0, static_cast<size_t>(length));
}

TEST(JobText, AFragmentShorterThanTheLengthSaysIsNotReadPast) {
  // A damaged store: the header promises 1500 bytes, the second fragment holds 10.
  Fragments fragments(text_of(1034));
  std::string buffer(1502, '#');
  EXPECT_EQ(sch_concat_fragments(fragments.list, buffer.data(), 1500), 0);
  EXPECT_EQ(buffer.substr(0, 1034), text_of(1034));
  EXPECT_EQ(buffer[1034], '#');
}

TEST(JobText, DisplayKeepsTheLastNewlineOfTheText) {
  Fragments fragments(std::string("a\nb\n"));
  EXPECT_EQ(concat(fragments.list, 4, true), "a;b\n");
}

}  // namespace
