/* Symbol visibility for the scheduler's shared libraries.
 *
 * Both libschedcli.so and libschedplat.so are built with hidden visibility; only what a header
 * marks with SCHED_EXPORT is part of their ABI. Every exported symbol has C linkage. */
#ifndef SCHEDCLI_EXPORT_H
#define SCHEDCLI_EXPORT_H

#define SCHED_EXPORT __attribute__((visibility("default")))

#ifdef __cplusplus
#define SCHED_BEGIN_DECLS extern "C" {
#define SCHED_END_DECLS }
#else
#define SCHED_BEGIN_DECLS
#define SCHED_END_DECLS
#endif

#endif
