/* The job of the start-lateness benchmark: reads the clock first of all, then appends
 * "<name> <seconds>.<nanoseconds>" to the file named. */
#include <fcntl.h>
#include <stdio.h>
#include <time.h>
#include <unistd.h>

int main(int argc, char **argv) {
  struct timespec now;
  clock_gettime(CLOCK_REALTIME, &now);
  if (argc != 3) return 2;
  char line[256];
  int length = snprintf(line, sizeof line, "%s %lld.%09ld\n", argv[1], (long long)now.tv_sec, now.tv_nsec);
  int fd = open(argv[2], O_WRONLY | O_APPEND | O_CREAT, 0644);
  if (fd < 0 || length <= 0 || length >= (int)sizeof line) return 1;
  /* One append below the pipe and page limits lands whole beside the others'. */
  return write(fd, line, (size_t)length) == length ? 0 : 1;
}
