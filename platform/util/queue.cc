// The intrusive singly linked queue: the link is an element's first word.
#include "schedcli/platform/queue.h"

#include <cstring>

namespace {

void *next_of(const void *element) {
  void *next;
  std::memcpy(&next, element, sizeof next);
  return next;
}

void set_next(void *element, void *next) { std::memcpy(element, &next, sizeof next); }

}  // namespace

extern "C" {

void enqueue_tail(queue_header *queue, void *element) {
  if (!queue || !element) return;
  set_next(element, nullptr);
  if (queue->tail) {
    set_next(queue->tail, element);
  } else {
    queue->head = element;
  }
  queue->tail = element;
  queue->count++;
}

void *dequeue_head(queue_header *queue) {
  if (!queue || !queue->head) return nullptr;
  void *element = queue->head;
  queue->head = next_of(element);
  if (!queue->head) queue->tail = nullptr;
  queue->count--;
  set_next(element, nullptr);
  return element;
}

void *peek_head(const queue_header *queue) { return queue ? queue->head : nullptr; }

void *search_and_dequeue_elem(queue_header *queue, queue_compare compare, const void *key) {
  if (!queue || !compare) return nullptr;
  void *previous = nullptr;
  for (void *element = queue->head; element; previous = element, element = next_of(element)) {
    if (compare(element, key) != 0) continue;
    void *next = next_of(element);
    if (previous) {
      set_next(previous, next);
    } else {
      queue->head = next;
    }
    if (queue->tail == element) queue->tail = previous;
    queue->count--;
    set_next(element, nullptr);
    return element;
  }
  return nullptr;
}

}  // extern "C"
