/* Persistent record stores: keyed records with ordered iteration, durable and crash-safe.
 *
 * A store is one file named by its URI (a path). Keys have the fixed size the store was created
 * with and sort by their bytes (memcmp order); values are at most the store's maximum value size.
 * Every store or delete is durable when it returns, unless a batch is open on that handle, in
 * which case the batch commit makes all of it durable at once.
 *
 * Handles are small non-zero integers; 0 is never a valid handle. Results are status words: 0 for
 * success, otherwise one of the PSS2_* codes below (syserr2str renders each).
 *
 * Descriptors returned by pss2_getkey, pss2_getvalue and pss2_fetch point into the store's own
 * memory: they stay valid until the next call on the same handle and must not be written to. */
#ifndef SCHEDCLI_PLATFORM_PSS_H
#define SCHEDCLI_PLATFORM_PSS_H

#include <stdint.h>

#include "schedcli/export.h"

SCHED_BEGIN_DECLS

typedef uint32_t pss2_handle;

/* A pointer and a length. A NULL data pointer stands for "no descriptor". */
typedef struct pss2_datum {
  void *data;
  int32_t length;
} pss2_datum;

/* The attributes record of a store created with PSS2_MODE_CREATE. */
typedef struct pss2_attributes {
  uint32_t key_size;        /* exact key length in bytes */
  uint32_t max_value_size;  /* largest value accepted, in bytes */
  uint32_t reserved3;       /* handed on unchanged */
  uint32_t flags;
  uint32_t reserved5;       /* handed on unchanged */
} pss2_attributes;

/* Open modes. */
#define PSS2_MODE_READ 0x1u
#define PSS2_MODE_UPDATE 0x3u
#define PSS2_MODE_CREATE 0x13u

/* Cursor positions for pss2_move2location. */
#define PSS2_LOCATION_FIRST 1
#define PSS2_LOCATION_NEXT 3

/* Status words. These values are returned across the product: never renumber. */
#define PSS2_OK 0u
#define PSS2_ERR_BAD_HANDLE 0x80480001u     /* not an open handle */
#define PSS2_ERR_BAD_ARGUMENT 0x80480002u   /* null pointer, bad mode or bad attributes */
#define PSS2_ERR_NO_KEY 0x40480003u         /* no record with that key */
#define PSS2_ERR_KEY_SIZE 0x80480004u       /* key length differs from the store's key size */
#define PSS2_ERR_VALUE_SIZE 0x80480005u     /* value longer than the store's maximum */
#define PSS2_ERR_READ_ONLY 0x80480006u      /* change through a handle opened for reading */
#define PSS2_ERR_END 0x40480007u            /* cursor past the last record, or not positioned */
#define PSS2_ERR_IO 0x80480008u             /* the file system refused an operation */
#define PSS2_ERR_FULL 0x80480009u           /* the store reached its size limit */
#define PSS2_ERR_TOO_MANY 0x8048000au       /* no free handle */
#define PSS2_ERR_CORRUPT 0x8048000bu        /* the file is not a store, or is damaged */
#define PSS2_ERR_NO_MEMORY 0x8048000cu
#define PSS2_ERR_NO_STORE 0x8048000du       /* open for read or update of a store that is absent */
#define PSS2_ERR_BUSY 0x8048000eu           /* the store is open elsewhere in this process */
#define PSS2_ERR_BATCH 0x8048000fu          /* batch already open, or none to commit */
#define PSS2_ERR_EXISTS 0x80480011u         /* create of a store that exists */

/* Opens the store at `uri`. Mode CREATE makes a new store with `attributes` (required) and fails
 * with PSS2_ERR_EXISTS when one is there; UPDATE and READ open an existing one (attributes
 * ignored, may be NULL). `permissions` and `flags` are accepted and not used. Returns the handle
 * with *status = 0, or 0 with *status set. */
SCHED_EXPORT pss2_handle pss2_open(const char *uri, uint32_t mode, uint32_t permissions, uint32_t flags,
                                   const pss2_attributes *attributes, uint32_t *status);
SCHED_EXPORT uint32_t pss2_close(pss2_handle handle);
/* Removes the store file (and its lock file). A store that is absent is not an error. */
SCHED_EXPORT uint32_t pss2_destroy(const char *uri);

/* Stores or replaces one record. */
SCHED_EXPORT uint32_t pss2_store(pss2_handle handle, const pss2_datum *key, const pss2_datum *value);
/* Removes one record; `flags` is accepted and not used. PSS2_ERR_NO_KEY when absent. */
SCHED_EXPORT uint32_t pss2_delete(pss2_handle handle, const pss2_datum *key, int flags);
/* Looks one key up: the value's descriptor with *status = 0, or a NULL descriptor with *status
 * set (PSS2_ERR_NO_KEY when absent). */
SCHED_EXPORT pss2_datum pss2_fetch(pss2_handle handle, const pss2_datum *key, uint32_t *status);

/* Positions the handle's cursor: `location` PSS2_LOCATION_FIRST on the first record,
 * PSS2_LOCATION_NEXT on the one after the current. `unit` is accepted and not used. Returns 0
 * when the cursor is on a record, PSS2_ERR_END when there is none. `out` (may be NULL) is set to
 * the number of records visited so far in this walk. */
SCHED_EXPORT uint32_t pss2_move2location(pss2_handle *handle, int unit, int location, uint32_t *out);
/* The current record's key and value; a NULL descriptor with *status set when not positioned. */
SCHED_EXPORT pss2_datum pss2_getkey(pss2_handle handle, uint32_t *status);
SCHED_EXPORT pss2_datum pss2_getvalue(pss2_handle handle, uint32_t *status);

/* Copies the store of `handle` to its startup counterpart: a running store named
 * "scheduler_runtime" under the running prefix goes to "scheduler_startup" under the startup
 * prefix (likewise "scheduler_debug_runtime" to "scheduler_debug_startup" under the debug
 * prefix). When `debug_handle` is non-zero, that store is copied the same way too. The copy is
 * compacted, written beside the target, synced and renamed into place. */
SCHED_EXPORT uint32_t pss2_snapshot(pss2_handle handle, pss2_handle debug_handle);
/* Reclaimable space in bytes (free pages times the page size). */
SCHED_EXPORT uint32_t pss_free_space(pss2_handle handle, uint32_t *free_bytes);
/* Compacts the store in place (a copy beside it, synced, renamed over it) and returns the handle to
 * use from then on, with *status = 0. On failure returns 0 with *status set; the old handle is
 * then closed. */
SCHED_EXPORT pss2_handle pss_shrink(pss2_handle handle, uint32_t *status);

/* Batches: between begin and commit, stores and deletes on the handle are not made durable one by
 * one; commit makes them durable together. Abort drops them. */
SCHED_EXPORT uint32_t pss2_batch_begin(pss2_handle handle);
SCHED_EXPORT uint32_t pss2_batch_commit(pss2_handle handle);
SCHED_EXPORT uint32_t pss2_batch_abort(pss2_handle handle);

/* Test hook: the `nth` call (1 = the next) of `operation` fails with `status`; `persistent` makes
 * every later one fail too. nth = 0 disarms that operation's hook. */
typedef enum pss2_fault_operation {
  PSS2_FAULT_OPEN,
  PSS2_FAULT_STORE,
  PSS2_FAULT_DELETE,
  PSS2_FAULT_FETCH,
  PSS2_FAULT_MOVE,
  PSS2_FAULT_GETKEY,
  PSS2_FAULT_GETVALUE,
  PSS2_FAULT_SNAPSHOT,
  PSS2_FAULT_FREE_SPACE,
  PSS2_FAULT_SHRINK,
  PSS2_FAULT_COUNT
} pss2_fault_operation;
SCHED_EXPORT void pss2_fault_set(pss2_fault_operation operation, uint64_t nth, uint32_t status, int persistent);
SCHED_EXPORT void pss2_fault_clear_all(void);

SCHED_END_DECLS

#endif
