/* Persistent record stores: keyed records with ordered iteration, durable and crash-safe.
 *
 * A store is one file named by its URI (a path), with a lock file beside it (the path followed by
 * "-lock"). Keys have the fixed size the store was created with and sort by their bytes (memcmp
 * order), so big-endian numbers in keys sort numerically; values are at most the store's maximum
 * value size. Every store or delete is durable when it returns, unless a batch is open on that
 * handle, in which case the batch commit makes all of it durable at once.
 *
 * Handles are small non-zero integers; 0 is never a valid handle, and a closed handle stays
 * invalid (its number is not handed out again soon). One file may be open through several handles
 * of a process at once; they share the store. Handles do not survive fork: in a child process
 * every handle of the parent is invalid and stores must be opened anew.
 *
 * Results are status words: 0 for success, otherwise one of the PSS2_* codes below (syserr2str
 * renders each). Null pointers, wrong sizes and closed handles give a status, never a crash; a
 * NULL `status` out-pointer is allowed and simply not written.
 *
 * Descriptors returned by pss2_getkey, pss2_getvalue and pss2_fetch point into the store's own
 * memory and must not be written to. They stay valid until the next call on the same handle other
 * than pss2_getkey and pss2_getvalue (so a key and a value of one record can be held together).
 *
 * The stores are meant for one thread at a time per handle; a batch must be ended by the thread
 * that began it. */
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
#define PSS2_ERR_NO_DIRECTORY 0x80480010u   /* the service directories are not set (sysmgr.h) */
#define PSS2_ERR_EXISTS 0x80480011u         /* create of a store that exists */

/* Opens the store at `uri`. Mode CREATE makes a new store with `attributes` (required: key size
 * 1 to 511, maximum value size 1 to 64 MiB) and fails with PSS2_ERR_EXISTS when anything is at
 * that path; the new file appears whole or not at all. The created store is open for update.
 * UPDATE and READ open an existing one (attributes ignored, may be NULL): PSS2_ERR_NO_STORE when
 * it is absent, PSS2_ERR_CORRUPT when the file is not a store or is cut short. `permissions` and
 * `flags` are accepted and not used. Returns the handle with *status = 0, or 0 with *status set. */
SCHED_EXPORT pss2_handle pss2_open(const char *uri, uint32_t mode, uint32_t permissions, uint32_t flags,
                                   const pss2_attributes *attributes, uint32_t *status);
/* Closes the handle; a batch still open on it is dropped. */
SCHED_EXPORT uint32_t pss2_close(pss2_handle handle);
/* Removes the store file (and its lock file). A store that is absent is not an error; one that is
 * open in this process is refused with PSS2_ERR_BUSY. */
SCHED_EXPORT uint32_t pss2_destroy(const char *uri);

/* Stores or replaces one record. PSS2_ERR_READ_ONLY through a handle opened for reading;
 * PSS2_ERR_BUSY while another handle of the same store has a batch open. */
SCHED_EXPORT uint32_t pss2_store(pss2_handle handle, const pss2_datum *key, const pss2_datum *value);
/* Removes one record; `flags` is accepted and not used. PSS2_ERR_NO_KEY when absent. */
SCHED_EXPORT uint32_t pss2_delete(pss2_handle handle, const pss2_datum *key, int flags);
/* Looks one key up: the value's descriptor with *status = 0, or a NULL descriptor with *status
 * set (PSS2_ERR_NO_KEY when absent). */
SCHED_EXPORT pss2_datum pss2_fetch(pss2_handle handle, const pss2_datum *key, uint32_t *status);

/* Positions the handle's cursor: `location` PSS2_LOCATION_FIRST on the first record,
 * PSS2_LOCATION_NEXT on the one after the current, in ascending key order. `unit` is accepted and
 * not used. Returns 0 when the cursor is on a record, PSS2_ERR_END when there is none (the walk
 * is then over). `out` (may be NULL) is set to the number of records visited so far in this walk.
 *
 * A walk reads the store as it was at FIRST. A store or delete through the same handle during a
 * walk takes effect at once, and the walk goes on from its current key in the changed store: it
 * sees the later records as they now are and never visits a record twice; when the current record
 * itself was deleted, getkey and getvalue report PSS2_ERR_END until NEXT moves on to its
 * successor. Changes through other handles are seen from the next FIRST. A fetch through a
 * walking handle reads the walk's view. */
SCHED_EXPORT uint32_t pss2_move2location(pss2_handle *handle, int unit, int location, uint32_t *out);
/* The current record's key and value; a NULL descriptor with *status set when not positioned. */
SCHED_EXPORT pss2_datum pss2_getkey(pss2_handle handle, uint32_t *status);
SCHED_EXPORT pss2_datum pss2_getvalue(pss2_handle handle, uint32_t *status);

/* Copies the store of `handle` to its startup counterpart: a running store named
 * "scheduler_runtime" under the running prefix goes to "scheduler_startup" under the startup
 * prefix (likewise "scheduler_debug_runtime" to "scheduler_debug_startup" under the debug
 * prefix); a store of any other name goes to the same name under the startup prefix. When
 * `debug_handle` is non-zero, that store is copied the same way too, and both targets are replaced
 * as one step (pss2_copy_stores, with its commit record "scheduler_copy_intent" under the startup
 * prefix). Each copy is compacted, written beside its target and synced: a failure leaves every
 * old target whole, and a crash leaves the old pair or, after pss2_startup_recover, the new pair.
 * PSS2_ERR_NO_DIRECTORY when the prefixes are not set; PSS2_ERR_BUSY when a target is open in
 * this process. */
SCHED_EXPORT uint32_t pss2_snapshot(pss2_handle handle, pss2_handle debug_handle);

/* Copies the store of each `sources[i]` to the path `targets[i]` (count 1 to 16, distinct paths),
 * replacing every target as one step. Every copy is written beside its target and synced; then a
 * commit record is made durable at the path `intent`, naming each rename; then the renames; then
 * the record is removed. Returns 0 when every target is new. A failure before the record is in
 * place removes the copies and leaves every target as it was; a failure after it (or a crash at
 * any instant) leaves the record, and pss2_recover_copies (or the next pss2_copy_stores with the
 * same `intent`) completes the renames. PSS2_ERR_BUSY when a target is open in this process. */
SCHED_EXPORT uint32_t pss2_copy_stores(const pss2_handle *sources, const char *const *targets, uint32_t count,
                                       const char *intent);
/* Start-up side of pss2_copy_stores, to be called before any copy is made and while no other
 * process copies into `directories`: completes the copy that the record at `intent` commits, if
 * any, and removes the record; then removes every temporary file a crash left ("<name>.tmp.<pid>.
 * <n>", other than this process's own) in `directories` and in the record's own directory. A record
 * that is damaged, or names a target outside `directories`, is removed unused: PSS2_ERR_CORRUPT
 * (the temporaries are removed all the same). Otherwise 0, or the status of the first failure. */
SCHED_EXPORT uint32_t pss2_recover_copies(const char *intent, const char *const *directories, uint32_t count);
/* pss2_recover_copies for the copies pss2_snapshot makes: the record under the startup prefix, and
 * the running, startup and debug directories. PSS2_ERR_NO_DIRECTORY when the prefixes are not set. */
SCHED_EXPORT uint32_t pss2_startup_recover(void);
/* Reclaimable space in bytes (free pages times the page size), at most UINT32_MAX. */
SCHED_EXPORT uint32_t pss_free_space(pss2_handle handle, uint32_t *free_bytes);
/* Compacts the store in place (a copy beside it, synced, renamed over it) and returns the handle to
 * use from then on, with *status = 0; the old handle is closed. On failure returns 0 with *status
 * set; the old handle is then closed too, and the store file is either untouched or wholly
 * compacted. The handle must be the only one open on its store, with no batch
 * (PSS2_ERR_BUSY otherwise), and open for update (PSS2_ERR_READ_ONLY otherwise). */
SCHED_EXPORT pss2_handle pss_shrink(pss2_handle handle, uint32_t *status);

/* Batches: between begin and commit, stores and deletes on the handle are not made durable one by
 * one; commit makes them durable together, and a crash before it leaves none of them. Abort drops
 * them. Reads through the handle see the batch's changes. While a batch is open, changes through
 * other handles of the same store are refused with PSS2_ERR_BUSY. A failed change inside a batch
 * (other than a missing key) spoils the batch: later changes return that status and commit drops
 * the batch and returns it. A change refused before it is written (a size or argument error, or
 * the test hook) spoils the batch the same way. */
SCHED_EXPORT uint32_t pss2_batch_begin(pss2_handle handle);
SCHED_EXPORT uint32_t pss2_batch_commit(pss2_handle handle);
SCHED_EXPORT uint32_t pss2_batch_abort(pss2_handle handle);

/* Test hook: the `nth` call (1 = the next) of `operation` fails with `status`, changing nothing;
 * `persistent` makes every later one fail too. nth = 0 disarms that operation's hook. SNAPSHOT and
 * SHRINK count file copies and fail a copy after it is written and synced but before it replaces
 * its target; a copy of several stores counts its commit record as one more copy, after the stores
 * (so a snapshot with a debug handle counts three). */
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
