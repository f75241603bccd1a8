// The run marker: a text file whose first byte is mapped shared, so that the job's child and the
// daemon agree on whether the job started.
#include "runner/run_marker.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <sstream>

#include "schedcli/platform/file_sync.h"

namespace schedd::runner {

std::unique_ptr<RunMarker> RunMarker::create(const std::string &path, const RunMarkerFacts &facts, bool waiting) {
  std::ostringstream text;
  text << (waiting ? kWaiting : kStarted) << '\n'
       << facts.schedule << '\n' << facts.job_id << '\n' << facts.job << '\n' << facts.user << '\n'
       << facts.started << '\n';
  int fd = open(path.c_str(), O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
  if (fd < 0) return nullptr;
  const std::string contents = text.str();
  void *mapped = MAP_FAILED;
  if (file_write_all(fd, contents.data(), contents.size()) == 0) {
    mapped = mmap(nullptr, 1, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
  }
  close(fd);
  if (mapped == MAP_FAILED) {
    unlink(path.c_str());
    return nullptr;
  }
  return std::unique_ptr<RunMarker>(new RunMarker(path, static_cast<char *>(mapped)));
}

RunMarker::~RunMarker() { munmap(state_, 1); }

void RunMarker::note_session(pid_t session, unsigned long long session_started) {
  std::ofstream(path_, std::ios::app) << session << '\n' << session_started << '\n';
}

void RunMarker::remove() { unlink(path_.c_str()); }

std::optional<RunMarkerFacts> RunMarker::read(const std::string &path) {
  std::ifstream in(path);
  std::string state;
  RunMarkerFacts facts;
  if (!std::getline(in, state) || state.size() != 1 || !std::getline(in, facts.schedule) || !(in >> facts.job_id)) {
    return std::nullopt;
  }
  in.ignore();
  std::getline(in, facts.job);
  std::getline(in, facts.user);
  in >> facts.started;
  long session = 0;
  if (in >> session >> facts.session_started) facts.session = static_cast<pid_t>(session);
  facts.job_started = state[0] == kStarted;
  if (facts.schedule.empty() || facts.job_id < 0) return std::nullopt;
  return facts;
}

}  // namespace schedd::runner
