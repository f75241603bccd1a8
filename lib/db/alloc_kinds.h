// Allocation kinds and purposes of the configuration database in the tracked allocator.
#ifndef SCHEDCLI_LIB_DB_ALLOC_KINDS_H
#define SCHEDCLI_LIB_DB_ALLOC_KINDS_H

namespace sch::alloc {

inline constexpr int kRunResult = 4;
inline constexpr int kKeyCopy = 5;
inline constexpr int kJobHeader = 6;
inline constexpr int kJobFragment = 7;
inline constexpr int kJobText = 12;
inline constexpr int kSchedule = 14;  // schedule records, entries and email entries
inline constexpr int kUser = 16;

inline constexpr const char *kRestoreDb = "restore db";
inline constexpr const char *kAddConfigEntry = "add config entry";
inline constexpr const char *kAddJobEntry = "add job entry";
inline constexpr const char *kCreateScriptFile = "create script file";
inline constexpr const char *kAddScheduleEntry = "add schedule entry";
inline constexpr const char *kAddScheduleEmailEntry = "add schedule email entry";
inline constexpr const char *kUserConfig = "malloc failed for user config";

}  // namespace sch::alloc

#endif
