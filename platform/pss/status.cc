// Translation of LMDB and system error codes into the stores' status words.
#include <cerrno>

#include "pss/store.h"

namespace pss {

uint32_t status_from_errno(int error) {
  switch (error) {
    case 0:
      return PSS2_OK;
    case ENOMEM:
      return PSS2_ERR_NO_MEMORY;
    case ENOSPC:
    case EDQUOT:
    case EFBIG:
      return PSS2_ERR_FULL;
    case EBUSY:
    case EAGAIN:
      return PSS2_ERR_BUSY;
    case EMFILE:
    case ENFILE:
      return PSS2_ERR_TOO_MANY;
    case ENAMETOOLONG:
      return PSS2_ERR_BAD_ARGUMENT;
    default:
      return PSS2_ERR_IO;
  }
}

uint32_t status_from_mdb(int rc) {
  switch (rc) {
    case MDB_SUCCESS:
      return PSS2_OK;
    case MDB_NOTFOUND:
      return PSS2_ERR_NO_KEY;
    case MDB_MAP_FULL:
    case MDB_TXN_FULL:
    case MDB_PAGE_FULL:
      return PSS2_ERR_FULL;
    case MDB_INVALID:
    case MDB_VERSION_MISMATCH:
    case MDB_CORRUPTED:
    case MDB_PAGE_NOTFOUND:
    case MDB_INCOMPATIBLE:
    case MDB_BAD_DBI:
      return PSS2_ERR_CORRUPT;
    case MDB_READERS_FULL:
    case MDB_DBS_FULL:
    case MDB_CURSOR_FULL:
    case MDB_TLS_FULL:
      return PSS2_ERR_TOO_MANY;
    case MDB_BAD_VALSIZE:
      return PSS2_ERR_BAD_ARGUMENT;
    default:
      return rc > 0 ? status_from_errno(rc) : PSS2_ERR_IO;
  }
}

}  // namespace pss
