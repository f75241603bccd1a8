// The live configuration's start and end: the stores opened, the configuration restored from
// them and made durable, and all of it released again.
#ifndef SCHEDD_CONFIG_STARTUP_H
#define SCHEDD_CONFIG_STARTUP_H

#include <string>

namespace schedd {

struct StartupMode {
  bool standby = false;
  // The runtime directory was missing (first start after boot), or the last start-up did not
  // complete: the configuration comes from the startup store.
  bool stateless = false;
  bool enable_feature = false;  // turn the feature on, as 'feature scheduler' does
};

// Opens the stores and restores the live database (nothing is restored on a standby). After a
// stateless restart, everything restored is written into the running store in one checked batch.
// False with `error` set when the configuration could not be had or made durable; the caller
// then releases what was opened with release_configuration.
bool restore_configuration(const StartupMode &mode, std::string *error);

// Frees the live database, closes every store and puts the library's globals back to their state
// before restore_configuration. Safe to call whatever restore_configuration got to.
void release_configuration();

// The running stores of the runtime directory, removed when a start-up that did not complete left
// them behind. 0 or the store's status.
uint32_t destroy_running_stores();

}  // namespace schedd

#endif
