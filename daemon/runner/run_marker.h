// The marker of a job run, a small file in the runtime directory that lives as long as the run: a
// daemon that stops while the job runs leaves it behind, and its next start reports the run and
// ends what is left of the job. Its first line is one letter that says whether the job started:
// a job made ready ahead of its instant claims the start when the instant comes, the runner may
// cancel it before that, and exactly one of the two wins, also across a crash of the daemon.
#ifndef SCHEDD_RUNNER_RUN_MARKER_H
#define SCHEDD_RUNNER_RUN_MARKER_H

#include <sys/types.h>

#include <ctime>
#include <memory>
#include <optional>
#include <string>

namespace schedd::runner {

struct RunMarkerFacts {
  std::string schedule;
  int job_id = -1;
  std::string job;
  std::string user;
  std::time_t started = 0;
  bool job_started = false;  // false: made ready, and neither started nor cancelled (or cancelled)
  pid_t session = 0;          // the job's session, once known
  unsigned long long session_started = 0;  // its start in clock ticks since boot
};

class RunMarker {
 public:
  // Writes the marker at `path`: started already, or waiting to start when `waiting`. Null when
  // it cannot be written.
  static std::unique_ptr<RunMarker> create(const std::string &path, const RunMarkerFacts &facts, bool waiting);
  // What a marker left behind says; nullopt when it is not one.
  static std::optional<RunMarkerFacts> read(const std::string &path);

  RunMarker(const RunMarker &) = delete;
  RunMarker &operator=(const RunMarker &) = delete;
  ~RunMarker();  // the file stays: remove() deletes it

  // In the job's child when its instant has come: true when the job may start (nobody cancelled
  // it). Only an atomic operation on shared memory, so safe between fork and exec.
  bool claim_start();
  // The same, through a descriptor of the marker file (in a process that no longer has the
  // marker's mapping).
  static bool claim_start(int fd);
  const std::string &path() const { return path_; }
  // In the daemon: true when the job will never start; false when it started already.
  bool cancel();
  bool started() const;
  // Adds the job's session, so that a later start can end what is left of it.
  void note_session(pid_t session, unsigned long long session_started);
  void remove();

 private:
  // The first line of a marker.
  static constexpr char kWaiting = 'w';
  static constexpr char kStarted = 'r';
  static constexpr char kCancelled = 'c';

  static bool claim(char *state);
  RunMarker(std::string path, char *state) : path_(std::move(path)), state_(state) {}

  std::string path_;
  char *state_;  // the first byte of the file, mapped shared
};

}  // namespace schedd::runner

#endif
