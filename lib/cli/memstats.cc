// Two small entries: the memory-statistics dump for support, and a configuration callback with
// nothing to generate.
#include <cstdio>

#include "schedcli/cli_config.h"
#include "schedcli/platform/sdwrap.h"

extern "C" {

int sch_cli_show_memstats(sch_cli_context *context) {
  sdwrap_debug_dump(context->session, stdout, "mtrack_dump_memstats");
  return 0;
}

int sch_cli_dummy_cfg_gen(void) { return 0; }

}  // extern "C"
