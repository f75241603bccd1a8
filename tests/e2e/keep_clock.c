// Preloaded after libfaketime into a daemon on a shifted clock: the daemon starts its jobs, and
// the program that waits for a job's instant, with an environment of its own making, which would
// drop the fake clock and let a job see another time than the daemon that fired it. Every execve
// and fexecve passes the clock on: the variables named below, and LD_PRELOAD as KEEP_CLOCK_PRELOAD gives it.
#define _GNU_SOURCE
#include <dlfcn.h>
#include <stddef.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

extern char **environ;

typedef int (*execve_function)(const char *, char *const[], char *const[]);
typedef int (*fexecve_function)(int, char *const[], char *const[]);

static const char *const kPassedOn[] = {"KEEP_CLOCK_PRELOAD", "FAKETIME", "FAKETIME_DONT_FAKE_MONOTONIC",
                                        "DONT_FAKE_MONOTONIC", "ASAN_OPTIONS"};
enum { kPassedCount = sizeof kPassedOn / sizeof kPassedOn[0], kMostVariables = 1024 };

// True when `entry` ("NAME=value") sets `name`.
static int sets(const char *entry, const char *name) {
  size_t length = strlen(name);
  return strncmp(entry, name, length) == 0 && entry[length] == '=';
}

static int replaced(const char *entry) {
  for (size_t i = 0; i < kPassedCount; i++) {
    if (sets(entry, kPassedOn[i])) return 1;
  }
  return sets(entry, "LD_PRELOAD");
}

// `envp` with the clock passed on, in `merged` (kMostVariables + 1 entries), `preload_entry` its
// LD_PRELOAD. False when there is no clock to pass on. Runs in a forked child of a threaded
// daemon: no allocation, only the caller's stack.
static int merge(char *preload_entry, size_t size, char **merged, char *const envp[]) {
  const char *preload = getenv("KEEP_CLOCK_PRELOAD");
  if (!preload || strlen(preload) >= size - sizeof "LD_PRELOAD=") return 0;
  strcpy(preload_entry, "LD_PRELOAD=");
  strcat(preload_entry, preload);
  size_t count = 0;
  merged[count++] = preload_entry;
  for (size_t i = 0; i < kPassedCount; i++) {
    for (char **entry = environ; *entry; entry++) {
      if (sets(*entry, kPassedOn[i])) {
        merged[count++] = *entry;
        break;
      }
    }
  }
  for (char *const *entry = envp; entry && *entry && count < kMostVariables; entry++) {
    if (!replaced(*entry)) merged[count++] = *entry;
  }
  merged[count] = NULL;
  return 1;
}

__attribute__((visibility("default"))) int execve(const char *path, char *const argv[], char *const envp[]) {
  execve_function next = (execve_function)dlsym(RTLD_NEXT, "execve");
  if (!next) return -1;
  char preload_entry[4096];
  char *merged[kMostVariables + 1];
  return next(path, argv, merge(preload_entry, sizeof preload_entry, merged, envp) ? merged : envp);
}

// The daemon starts the program that waits for a job's instant by its descriptor.
__attribute__((visibility("default"))) int fexecve(int fd, char *const argv[], char *const envp[]) {
  fexecve_function next = (fexecve_function)dlsym(RTLD_NEXT, "fexecve");
  if (!next) return -1;
  char preload_entry[4096];
  char *merged[kMostVariables + 1];
  return next(fd, argv, merge(preload_entry, sizeof preload_entry, merged, envp) ? merged : envp);
}
