// Keeps a fuzzing run from writing anywhere but its own places. The harnesses drive code that
// writes files where its input says: the shell's copy commands write wherever they are told, and
// a daemon that trusted a store's log-file name once made files in the root directory. Run as
// root, a fuzzer emptied /etc/passwd that way. So before the first input a fuzzing run makes every
// file system read-only for itself, in a mount namespace of its own (inside a user namespace of its
// own when it is not root), except the temporary directories, the working directory and the
// directories libFuzzer writes to: its output corpus folder and the one of its findings. A run
// that would write into the tracked seed folders is refused.
#ifndef SCHEDCLI_TESTS_FUZZ_WRITE_CONFINEMENT_H
#define SCHEDCLI_TESTS_FUZZ_WRITE_CONFINEMENT_H

#include <fcntl.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

namespace fuzz {
namespace confinement {

namespace fs = std::filesystem;

// The corpus folder libFuzzer writes what it learns to: the first one it is given, and no other.
inline fs::path output_corpus(int argc, char **argv) {
  for (int i = 1; i < argc; i++) {
    if (argv[i][0] == '-') continue;
    std::error_code error;
    fs::path real = fs::canonical(argv[i], error);
    return !error && fs::is_directory(real, error) ? real : fs::path();
  }
  return {};
}

// The places the run may write: the temporary directories, the working directory, the output
// corpus folder, and the folder of -artifact_prefix and of -exact_artifact_path. Any further
// corpus folder (the seeds, in scripts/fuzz) is only read.
inline std::vector<fs::path> writable_places(int argc, char **argv) {
  std::vector<fs::path> named{"/tmp", "/dev/shm", fs::current_path()};
  for (int i = 1; i < argc; i++) {
    std::string_view argument = argv[i];
    for (std::string_view flag : {"-artifact_prefix=", "-exact_artifact_path="}) {
      if (argument.starts_with(flag)) named.push_back(fs::path(argument.substr(flag.size())).parent_path());
    }
  }
  std::vector<fs::path> places;
  for (const fs::path &place : named) {
    std::error_code error;
    fs::path real = fs::canonical(place.empty() ? fs::path(".") : place, error);
    if (!error && fs::is_directory(real, error)) places.push_back(real);
  }
  if (fs::path corpus = output_corpus(argc, argv); !corpus.empty()) places.push_back(corpus);
  return places;
}

inline bool within(const fs::path &path, const std::vector<fs::path> &places) {
  for (const fs::path &place : places) {
    fs::path relative = path.lexically_relative(place);
    if (!relative.empty() && *relative.begin() != "..") return true;
  }
  return false;
}

// Mount points as /proc/self/mountinfo lists them (its fifth field, with "\040" and the like
// decoded).
inline std::vector<fs::path> mount_points() {
  std::vector<fs::path> points;
  std::ifstream info("/proc/self/mountinfo");
  for (std::string line; std::getline(info, line);) {
    std::istringstream fields(line);
    std::string field;
    for (int i = 0; i < 5; i++) fields >> field;
    std::string decoded;
    for (size_t i = 0; i < field.size(); i++) {
      if (field[i] == '\\' && i + 3 < field.size()) {
        decoded += static_cast<char>(std::strtol(field.substr(i + 1, 3).c_str(), nullptr, 8));
        i += 3;
      } else {
        decoded += field[i];
      }
    }
    points.emplace_back(decoded);
  }
  return points;
}

inline bool write_file(const char *path, const std::string &text) {
  int descriptor = open(path, O_WRONLY | O_CLOEXEC);
  if (descriptor < 0) return false;
  bool written = write(descriptor, text.data(), text.size()) == static_cast<ssize_t>(text.size());
  return close(descriptor) == 0 && written;
}

// A mount made read-only keeps the flags it had: in a user namespace they may not be dropped.
inline unsigned long kept_flags(const fs::path &point) {
  struct statvfs status {};
  if (statvfs(point.c_str(), &status) != 0) return 0;
  unsigned long flags = 0;
  if (status.f_flag & ST_NOSUID) flags |= MS_NOSUID;
  if (status.f_flag & ST_NODEV) flags |= MS_NODEV;
  if (status.f_flag & ST_NOEXEC) flags |= MS_NOEXEC;
  if (status.f_flag & ST_NOATIME) flags |= MS_NOATIME;
  if (status.f_flag & ST_NODIRATIME) flags |= MS_NODIRATIME;
  if (status.f_flag & ST_RELATIME) flags |= MS_RELATIME;
  return flags;
}

// Empty when the confinement holds; otherwise what failed.
inline std::string confine(const std::vector<fs::path> &places) {
  uid_t user = geteuid();
  gid_t group = getegid();
  std::error_code error;
  fs::path working = fs::current_path(error);
  if (error) return "a working directory";
  if (unshare(CLONE_NEWNS | (user == 0 ? 0 : CLONE_NEWUSER)) != 0) return "a mount namespace of its own";
  if (user != 0 && (!write_file("/proc/self/setgroups", "deny") ||
                    !write_file("/proc/self/uid_map", std::to_string(user) + " " + std::to_string(user) + " 1") ||
                    !write_file("/proc/self/gid_map", std::to_string(group) + " " + std::to_string(group) + " 1"))) {
    return "its own user in a user namespace";
  }
  if (mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0) return "private mounts";
  // Each writable place becomes a mount of its own, which the read-only pass below leaves alone.
  for (const fs::path &place : places) {
    if (mount(place.c_str(), place.c_str(), nullptr, MS_BIND | MS_REC, nullptr) != 0) {
      return "a writable mount of " + place.string();
    }
  }
  for (const fs::path &point : mount_points()) {
    if (within(point, places)) continue;
    // A mount that cannot be reached or changed (one of the kernel's) is skipped; the root is not.
    if (mount(nullptr, point.c_str(), nullptr, MS_REMOUNT | MS_BIND | MS_RDONLY | kept_flags(point), nullptr) != 0 &&
        point == "/") {
      return "a read-only root";
    }
  }
  struct statvfs root {};
  if (statvfs("/", &root) != 0 || !(root.f_flag & ST_RDONLY)) return "a read-only root";
  // The process still stands in its working directory as reached before the mounts, on a mount now
  // read-only; entered again by name, it is the writable one, so that relative paths (a corpus
  // folder's, the shell's copy targets) can be written.
  if (chdir(working.c_str()) != 0) return "its working directory";
  return "";
}

// Whether the run would add what it learns to the tracked seed folders under `seeds`: they hold
// regression inputs only, chosen by hand. A replay (-runs=0) adds nothing, unless it merges.
inline bool writes_into_seeds(int argc, char **argv, const fs::path &seeds) {
  std::error_code error;
  fs::path corpus = output_corpus(argc, argv);
  fs::path seed_root = fs::canonical(seeds, error);
  if (corpus.empty() || error || !within(corpus, {seed_root})) return false;
  bool replay = false;
  bool merge = false;
  for (int i = 1; i < argc; i++) {
    std::string_view argument = argv[i];
    if (argument.starts_with("-runs=")) replay = argument == "-runs=0";  // the last one counts
    merge = merge || (argument.starts_with("-merge=") && argument != "-merge=0");
  }
  return !replay || merge;
}

}  // namespace confinement

// Confines a libFuzzer run's writes to its own places (see the top of this file). Where that is
// impossible, a run as root stops rather than go on unconfined; any other user's run is warned.
// A corpus replay in the test suite is left as it is: it runs the inputs it is given and keeps
// nothing.
inline void confine_writes([[maybe_unused]] int argc, [[maybe_unused]] char **argv) {
#ifdef SCHED_LIBFUZZER
  if (confinement::writes_into_seeds(argc, argv, SCHED_FUZZ_SEEDS)) {
    std::fprintf(stderr, "fuzz: %s holds the tracked seeds, which a run only reads: name a corpus folder of its own "
                 "first (scripts/fuzz uses build-fuzz/corpus/<area>)\n", confinement::output_corpus(argc, argv).c_str());
    std::exit(1);
  }
  std::vector<std::filesystem::path> places = confinement::writable_places(argc, argv);
  std::string failed = confinement::confine(places);
  if (failed.empty()) return;
  std::fprintf(stderr, "fuzz: cannot confine this run's writes (no %s)\n", failed.c_str());
  if (geteuid() == 0) {
    std::fprintf(stderr, "fuzz: refusing to fuzz as root unconfined\n");
    std::exit(1);
  }
#endif
}

}  // namespace fuzz

#endif
