// Test support: the time the library's time() gives (0: the real one again).
#ifndef SCHEDCLI_TESTS_DAEMON_CORE_FAKE_TIME_H
#define SCHEDCLI_TESTS_DAEMON_CORE_FAKE_TIME_H

#include <ctime>

void set_fake_time(std::time_t now);

#endif
