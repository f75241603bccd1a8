// The configuration word rule, and the explanation of a refused time string for every code and form.
#include <cstring>

#include "cli_testing.h"

namespace {

TEST(NameCheck, ConfigWordIsAsciiAndEndsInsideItsField) {
  for (const char *name : {"a", "9", "a_-9", "Z", "backup-2_daily"}) EXPECT_EQ(sch_name_is_config_word(name), 1) << name;
  for (const char *name : {"", "_a", "-a", "a.b", "a b", "a\n", "a;b", "caf\xc3\xa9", "\xe9t\xe9", "a{", "a`"}) {
    EXPECT_EQ(sch_name_is_config_word(name), 0) << name;
  }
  EXPECT_EQ(sch_name_is_config_word(nullptr), 0);
  // A 32-byte field: 31 characters and the terminator fit; 32 characters leave none.
  char field[SCH_NAME_SIZE + 1];
  std::memset(field, 'x', sizeof field);
  field[SCH_NAME_SIZE - 1] = '\0';
  EXPECT_EQ(sch_name_is_config_word(field), 1);
  field[SCH_NAME_SIZE - 1] = 'x';
  field[SCH_NAME_SIZE] = '\0';
  EXPECT_EQ(sch_name_is_config_word(field), 0);
}

TEST(TimeErrors, EveryCodeAndForm) {
  const std::string format = "Incorrect time format. Should be ", range = "Value out of range\nShould be ";
  const std::string hours = "    HH = {0..23}\n    MM = {0..59}\n";
  const std::tuple<uint32_t, int, std::string> cases[] = {
      {0x40bd000e, 3, "Specified time is in the past\n"},
      {0x40bd000b, 1, format + "yyyy:mmm:dd:HH:MM or +dd:HH:MM\n"},
      {0x40bd000c, 3, format + "HH:MM\n"},
      {0x40bd000b, 4, format + "dow:HH:MM\n"},
      {0x40bd000b, 5, format + "dm:HH:MM\n"},
      {0x40bd000c, 7, format + "dd:HH:MM\n"},
      {0x40bd000c, 2, "Incorrect time format. Error 1086128140. Format unknown\n"},
      {0x40bd000d, 1, range + "yyyy:mmm:dd:HH:MM or +dd:HH:MM\n    mmm = {1..12} or Jan, Feb...Dec\n"},
      {0x40bd000d, 3, range + "HH:MM.\n" + hours},
      {0x40bd000d, 4, range + "dow:HH:MM.\n    dow = {1..7} or Sun,Mon ... Sat\n" + hours},
      {0x40bd000d, 5, range + "dm:HH:MM\n    dm = {1..31}\n" + hours},  // no period: intended
      {0x40bd000d, 7, range + "dd:HH:MM.\n    dd,HH,MM = {1..99}\n"},
      {0x40bd000d, 0, "Value out of range\nError 1086128141. Format unknown.\n"},
      {0x40bd000f, 3, "Error 1086128143.\n"},
  };
  for (const auto &[code, kind, text] : cases) {
    EXPECT_EQ(cli_testing::capture([&] { sch_cli_disp_error(code, kind); }).err, text) << code << " " << kind;
  }
}

}  // namespace
