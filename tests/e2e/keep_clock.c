// Preloaded after libfaketime into a daemon on a shifted clock: the daemon starts its jobs, and
// the program that waits for a job's instant, with an environment of its own making, which would
// drop the fake clock and let a job see another time than the daemon that fired it. Every execve
// passes the clock on: the variables named below, and LD_PRELOAD as KEEP_CLOCK_PRELOAD gives it.
#define _GNU_SOURCE
#include <dlfcn.h>
#include <stddef.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

extern char **environ;

typedef int (*execve_function)(const char *, char *const[], char *const[]);

static const char *const kPassedOn[] = {"KEEP_CLOCK_PRELOAD", "FAKETIME", "FAKETIME_DONT_FAKE_MONOTONIC",
                                        "DONT_FAKE_MONOTONIC", "ASAN_OPTIONS"};
enum { kPassedCount = sizeof kPassedOn / sizeof kPassedOn[0], kMostVariables = 1024 };

// True when `entry` ("NAME=value") sets `name`.
static int sets(const char *entry, const char *name) {
  size_t length = strlen(name);
  return strncmp(entry, name, length) == 0 && entry[length] == '=';
}

static int replaced(const char *entry) {
  if (sets(entry, "LD_PRELOAD")) return 1;
  for (size_t i = 0; i < kPassedCount; i++) {
    if (sets(entry, kPassedOn[i])) return 1;
  }
  return 0;
}

// Runs in a forked child of a threaded daemon: no allocation, only the stack.
__attribute__((visibility("default"))) int execve(const char *path, char *const argv[], char *const envp[]) {
  execve_function next = (execve_function)dlsym(RTLD_NEXT, "execve");
  const char *preload = getenv("KEEP_CLOCK_PRELOAD");
  if (!next) return -1;
  if (!preload) return next(path, argv, envp);
  char preload_entry[4096] = "LD_PRELOAD=";
  if (strlen(preload) >= sizeof preload_entry - sizeof "LD_PRELOAD=") return next(path, argv, envp);
  strcat(preload_entry, preload);
  char *merged[kMostVariables + 1];
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
  return next(path, argv, merged);
}
