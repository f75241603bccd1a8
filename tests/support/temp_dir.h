// Test support: a temporary directory that is removed with everything in it, in memory when
// /dev/shm is there (the stores sync often), on disk otherwise.
#ifndef SCHEDCLI_TESTS_SUPPORT_TEMP_DIR_H
#define SCHEDCLI_TESTS_SUPPORT_TEMP_DIR_H

#include <stdlib.h>

#include <filesystem>
#include <string>

namespace sch::testing {

class TempDir {
 public:
  TempDir() {
    for (std::string pattern : {"/dev/shm/sdt-XXXXXX", "/tmp/sdt-XXXXXX"}) {
      if (!mkdtemp(pattern.data())) continue;
      path_ = pattern;
      break;
    }
  }
  TempDir(const TempDir &) = delete;
  TempDir &operator=(const TempDir &) = delete;
  ~TempDir() {
    std::error_code ignored;
    if (!path_.empty()) std::filesystem::remove_all(path_, ignored);
  }
  const std::string &path() const { return path_; }
  std::string file(const std::string &name) const { return path_ + "/" + name; }

 private:
  std::string path_;
};

}  // namespace sch::testing

#endif
