/* Status words of the platform and the scheduler, and their texts.
 *
 * A status word is 32 bits: the top two bits give its type (1 information, 2 error), bits 16 to 27
 * the facility (0x048 the record stores, 0x0bd the scheduler, 0x0c0 the platform's own services),
 * the low 12 bits the number. 0 is success. */
#ifndef SCHEDCLI_PLATFORM_SYSERR_H
#define SCHEDCLI_PLATFORM_SYSERR_H

#include <stdint.h>

#include "schedcli/export.h"

SCHED_BEGIN_DECLS

/* A text for any code: a fixed text for a known one, otherwise "unknown error 0x%08x" in a
 * buffer of the calling thread (valid until its next call). Never NULL. */
SCHED_EXPORT const char *syserr2str(uint32_t code);

SCHED_END_DECLS

#endif
