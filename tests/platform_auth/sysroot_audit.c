/* Loader audit module for a 32-bit build run natively: pam_wrapper opens libpam by the fixed path
 * where the distribution installs it, which the host lacks; this sends loads from the target's
 * library folders to the same files in the unpacked tree SCHED_SYSROOT, as the emulator does for
 * the other targets. Other names pass unchanged. */
#define _GNU_SOURCE
#include <link.h>
#include <stdio.h>
#include <string.h>

static const char *const kFolders[] = {"/lib/" SCHED_MULTIARCH "/", "/usr/lib/" SCHED_MULTIARCH "/"};

unsigned int la_version(unsigned int version) { return version < LAV_CURRENT ? version : LAV_CURRENT; }

char *la_objsearch(const char *name, uintptr_t *cookie, unsigned int flag) {
  (void)cookie;
  /* The loader copies the name before the next search, so one buffer serves. */
  static char moved[4096];
  if (flag != LA_SER_ORIG) return (char *)name;
  for (size_t i = 0; i < sizeof kFolders / sizeof kFolders[0]; i++) {
    if (strncmp(name, kFolders[i], strlen(kFolders[i])) == 0 &&
        snprintf(moved, sizeof moved, "%s%s", SCHED_SYSROOT, name) < (int)sizeof moved) {
      return moved;
    }
  }
  return (char *)name;
}
