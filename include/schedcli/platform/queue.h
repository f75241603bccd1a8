/* An intrusive singly linked queue: an element's first word is its link to the next element
 * (NULL at the tail). The queue owns no element; callers allocate and release them. */
#ifndef SCHEDCLI_PLATFORM_QUEUE_H
#define SCHEDCLI_PLATFORM_QUEUE_H

#include <stdint.h>

#include "schedcli/export.h"

SCHED_BEGIN_DECLS

/* Three words, all zero when empty. */
typedef struct queue_header {
  void *head;
  void *tail;
  uintptr_t count;
} queue_header;

SCHED_EXPORT void enqueue_tail(queue_header *queue, void *element);
/* Unlinks and returns the head, or NULL when empty. */
SCHED_EXPORT void *dequeue_head(queue_header *queue);
/* The head without unlinking it, or NULL. */
SCHED_EXPORT void *peek_head(const queue_header *queue);
/* Unlinks and returns the first element for which compare(element, key) is 0, or NULL. */
typedef int (*queue_compare)(const void *element, const void *key);
SCHED_EXPORT void *search_and_dequeue_elem(queue_header *queue, queue_compare compare, const void *key);

SCHED_END_DECLS

#endif
