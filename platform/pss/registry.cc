// The environment registry: creating store files and sharing one LMDB environment per file.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "pss/store.h"
#include "schedcli/platform/codec.h"

namespace pss {
namespace {

// The store keeps its records in one named database and its attributes in another, so that
// iteration never sees the attributes.
constexpr char kMetaDatabase[] = "meta";
constexpr char kRecordsDatabase[] = "records";
constexpr char kAttributesKey[] = "attributes";

// Attributes record, stored big-endian (these bytes are stored: never reorder):
//   0  magic "SCHEDPSS"   8  format version   12 key size   16 maximum value size
//   20 reserved word 3    24 flags            28 reserved word 5
constexpr std::array<unsigned char, 8> kMagic = {'S', 'C', 'H', 'E', 'D', 'P', 'S', 'S'};
constexpr uint32_t kFormatVersion = 1;
constexpr size_t kAttributesRecordSize = 32;
constexpr unsigned int kOpenFlags = MDB_NOSUBDIR | MDB_NOTLS;  // read snapshots live on handles
constexpr mode_t kFileMode = 0600;  // the daemon's alone: users change records through it

using bigendian::get_u32;
using bigendian::put_u32;

std::array<unsigned char, kAttributesRecordSize> encode_attributes(const pss2_attributes &attributes) {
  std::array<unsigned char, kAttributesRecordSize> record{};
  std::copy(kMagic.begin(), kMagic.end(), record.begin());
  put_u32(&record[8], kFormatVersion);
  put_u32(&record[12], attributes.key_size);
  put_u32(&record[16], attributes.max_value_size);
  put_u32(&record[20], attributes.reserved3);
  put_u32(&record[24], attributes.flags);
  put_u32(&record[28], attributes.reserved5);
  return record;
}

bool decode_attributes(const MDB_val &value, pss2_attributes *attributes) {
  if (value.mv_size != kAttributesRecordSize) return false;
  const auto *record = static_cast<const unsigned char *>(value.mv_data);
  if (!std::equal(kMagic.begin(), kMagic.end(), record) || get_u32(record + 8) != kFormatVersion) return false;
  *attributes = pss2_attributes{get_u32(record + 12), get_u32(record + 16), get_u32(record + 20),
                                get_u32(record + 24), get_u32(record + 28)};
  return attributes_valid(*attributes);
}

struct EnvCloser {
  void operator()(MDB_env *env) const { mdb_env_close(env); }
};
using EnvPointer = std::unique_ptr<MDB_env, EnvCloser>;

int new_environment(EnvPointer *out) {
  MDB_env *env = nullptr;
  int rc = mdb_env_create(&env);
  if (rc != 0) return rc;
  out->reset(env);
  if ((rc = mdb_env_set_mapsize(env, kMapSize)) != 0) return rc;
  return mdb_env_set_maxdbs(env, 2);
}

// Writes an empty store with its attributes into `path`, which must not be in use.
uint32_t write_empty_store(const std::string &path, const pss2_attributes &attributes) {
  EnvPointer env;
  int rc = new_environment(&env);
  // Nobody else knows this file yet, so it needs no lock file.
  if (rc == 0) rc = mdb_env_open(env.get(), path.c_str(), MDB_NOSUBDIR | MDB_NOLOCK, kFileMode);
  if (rc != 0) return status_from_mdb(rc);
  MDB_txn *txn = nullptr;
  if ((rc = mdb_txn_begin(env.get(), nullptr, 0, &txn)) != 0) return status_from_mdb(rc);
  MDB_dbi meta = 0;
  MDB_dbi records = 0;
  auto record = encode_attributes(attributes);
  MDB_val key{sizeof kAttributesKey - 1, const_cast<char *>(kAttributesKey)};
  MDB_val value{record.size(), record.data()};
  rc = mdb_dbi_open(txn, kMetaDatabase, MDB_CREATE, &meta);
  if (rc == 0) rc = mdb_dbi_open(txn, kRecordsDatabase, MDB_CREATE, &records);
  if (rc == 0) rc = mdb_put(txn, meta, &key, &value, 0);
  if (rc != 0) {
    mdb_txn_abort(txn);
    return status_from_mdb(rc);
  }
  return status_from_mdb(mdb_txn_commit(txn));
}

// A file cut short would fault the process when LMDB touches a page past its end, so its length
// is checked against the last page the store claims before any page is read.
uint32_t check_length(MDB_env *env) {
  MDB_envinfo info;
  MDB_stat stat;
  int fd = -1;
  struct stat file;
  if (mdb_env_info(env, &info) != 0 || mdb_env_stat(env, &stat) != 0 || mdb_env_get_fd(env, &fd) != 0 ||
      fstat(fd, &file) != 0) {
    return PSS2_ERR_IO;
  }
  uint64_t needed = (uint64_t{info.me_last_pgno} + 1) * stat.ms_psize;
  return static_cast<uint64_t>(file.st_size) < needed ? PSS2_ERR_CORRUPT : PSS2_OK;
}

// Finds the two databases and the attributes; an LMDB file without them is not one of our stores.
uint32_t load_layout(MDB_env *env, Environment *environment) {
  MDB_txn *txn = nullptr;
  int rc = mdb_txn_begin(env, nullptr, MDB_RDONLY, &txn);
  if (rc != 0) return status_from_mdb(rc);
  MDB_dbi meta = 0;
  MDB_val key{sizeof kAttributesKey - 1, const_cast<char *>(kAttributesKey)};
  MDB_val value{0, nullptr};
  rc = mdb_dbi_open(txn, kMetaDatabase, 0, &meta);
  if (rc == 0) rc = mdb_dbi_open(txn, kRecordsDatabase, 0, &environment->records);
  if (rc == 0) rc = mdb_get(txn, meta, &key, &value);
  if (rc == 0 && !decode_attributes(value, &environment->attributes)) rc = MDB_INVALID;
  if (rc != 0) {
    mdb_txn_abort(txn);
    return rc == MDB_NOTFOUND ? PSS2_ERR_CORRUPT : status_from_mdb(rc);
  }
  // Committing (not aborting) keeps the database handles open for the environment's life.
  return status_from_mdb(mdb_txn_commit(txn));
}

Environment *find_identity(dev_t device, ino_t inode) {
  for (auto &environment : state().environments) {
    if (environment->device == device && environment->inode == inode) return environment.get();
  }
  return nullptr;
}

uint32_t open_lmdb(const std::string &path, unsigned int flags, EnvPointer *out) {
  int rc = new_environment(out);
  if (rc == 0) rc = mdb_env_open(out->get(), path.c_str(), flags, kFileMode);
  if (rc != 0) {
    out->reset();
    return rc;
  }
  // Stores made by earlier versions were open to the group: they are closed to it when next opened
  // for writing (a reader may not own them).
  if ((flags & MDB_RDONLY) == 0) {
    chmod(path.c_str(), kFileMode);
    chmod(lock_file_of(path).c_str(), kFileMode);
  }
  return 0;
}

}  // namespace

bool attributes_valid(const pss2_attributes &attributes) {
  return attributes.key_size >= 1 && attributes.key_size <= kMaxKeySize && attributes.max_value_size >= 1 &&
         attributes.max_value_size <= kMaxValueSize;
}

std::string lock_file_of(const std::string &path) { return path + "-lock"; }

uint32_t store_create_file(const std::string &path, const pss2_attributes &attributes) {
  struct stat existing;
  if (lstat(path.c_str(), &existing) == 0) return PSS2_ERR_EXISTS;
  if (errno != ENOENT) return status_from_errno(errno);

  // Built aside and moved into place, so that a crash never leaves a half-made store at `path`.
  std::string temporary = temporary_name_for(path);
  unlink(temporary.c_str());
  uint32_t status = write_empty_store(temporary, attributes);
  if (status == PSS2_OK &&
      renameat2(AT_FDCWD, temporary.c_str(), AT_FDCWD, path.c_str(), RENAME_NOREPLACE) != 0) {
    int error = errno;
    if (error == EINVAL || error == ENOSYS) {
      // File systems without an exclusive rename still give an exclusive link.
      error = link(temporary.c_str(), path.c_str()) == 0 ? 0 : errno;
    }
    if (error != 0) status = error == EEXIST ? PSS2_ERR_EXISTS : status_from_errno(error);
  }
  unlink(temporary.c_str());
  return status == PSS2_OK ? sync_directory_of(path) : status;
}

uint32_t environment_open(const std::string &path, bool need_write, Environment **out) {
  struct stat file;
  if (stat(path.c_str(), &file) != 0) {
    return errno == ENOENT || errno == ENOTDIR ? PSS2_ERR_NO_STORE : status_from_errno(errno);
  }
  if (!S_ISREG(file.st_mode) || file.st_size == 0) return PSS2_ERR_CORRUPT;
  if (Environment *shared = find_identity(file.st_dev, file.st_ino)) {
    if (need_write && !shared->writable) return PSS2_ERR_BUSY;
    shared->references++;
    *out = shared;
    return PSS2_OK;
  }

  std::string lock_file = lock_file_of(path);
  bool lock_existed = access(lock_file.c_str(), F_OK) == 0;
  auto environment = std::make_unique<Environment>();
  EnvPointer env;
  int rc = open_lmdb(path, kOpenFlags, &env);
  if (rc == EACCES && !need_write) {
    rc = open_lmdb(path, kOpenFlags | MDB_RDONLY, &env);
    environment->writable = false;
  }
  uint32_t status = rc == 0 ? PSS2_OK : status_from_mdb(rc);
  if (status == PSS2_OK) {
    int dead_readers = 0;
    mdb_reader_check(env.get(), &dead_readers);  // readers left by processes that died
    status = check_length(env.get());
  }
  if (status == PSS2_OK) status = load_layout(env.get(), environment.get());
  int fd = -1;
  if (status == PSS2_OK && (mdb_env_get_fd(env.get(), &fd) != 0 || fstat(fd, &file) != 0)) status = PSS2_ERR_IO;
  if (status != PSS2_OK) {
    env.reset();
    if (!lock_existed) unlink(lock_file.c_str());
    return status;
  }

  environment->env = env.release();
  environment->path = path;
  environment->device = file.st_dev;
  environment->inode = file.st_ino;
  environment->references = 1;
  *out = environment.get();
  state().environments.push_back(std::move(environment));
  return PSS2_OK;
}

void environment_release(Environment *environment) {
  if (--environment->references > 0) return;
  auto &environments = state().environments;
  auto found = std::find_if(environments.begin(), environments.end(),
                            [environment](const auto &entry) { return entry.get() == environment; });
  mdb_env_close(environment->env);
  if (found != environments.end()) environments.erase(found);
}

Environment *environment_of_file(const std::string &path) {
  struct stat file;
  if (stat(path.c_str(), &file) != 0) return nullptr;
  return find_identity(file.st_dev, file.st_ino);
}

}  // namespace pss
