// Everything between the command line and serving: the directories, the instance lock, the
// stores and the database restored from them; and the release of it all at exit.
#ifndef SCHEDD_STARTUP_H
#define SCHEDD_STARTUP_H

#include <cstdio>
#include <string>

#include "options.h"

namespace schedd {

class Service {
 public:
  Service() = default;
  Service(const Service &) = delete;
  Service &operator=(const Service &) = delete;
  // Closes the stores and frees the database, if they were opened.
  ~Service();

  // Sets the directories, takes the instance lock, opens the stores and restores the database
  // (nothing is restored on a standby), and makes sure the log file exists. False with `error`
  // set when the daemon cannot start.
  bool start(const Options &options, std::string *error);

 private:
  bool lock_instance(const std::string &runtime_dir, std::string *error);

  int lock_fd_ = -1;
  std::FILE *debug_stream_ = nullptr;
  bool stores_opened_ = false;
};

}  // namespace schedd

#endif
