/* The floor of the start-lateness benchmark: the least any scheduler can do. Started long before
 * its instant, it sleeps until then and execs the interpreter with the job's command, as a job
 * made ready ahead does, but with nothing else around it.
 *     floor SECONDS INTERPRETER COMMAND */
#include <errno.h>
#include <stdlib.h>
#include <time.h>
#include <unistd.h>

int main(int argc, char **argv) {
  if (argc != 4) return 2;
  struct timespec at = {.tv_sec = (time_t)strtoll(argv[1], NULL, 10), .tv_nsec = 0};
  while (clock_nanosleep(CLOCK_REALTIME, TIMER_ABSTIME, &at, NULL) == EINTR) {
  }
  execl(argv[2], argv[2], "-c", argv[3], (char *)NULL);
  return 127;
}
