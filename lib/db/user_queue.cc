// User credential queues, the user-name hash and the bounded copy.
#include <cstring>

#include "schedcli/db.h"
#include "schedcli/platform/mtrack.h"

extern "C" {

void sch_uname_q_init(void) {
  sch_uname_q = queue_header{};
  sch_uname_acfg_q = queue_header{};
}

void sch_add_user_info(queue_header *queue, sch_user_element *element) { enqueue_tail(queue, element); }

sch_user_element *sch_find_user_info(queue_header *queue, const char *name) {
  if (!name) return nullptr;
  for (auto *element = static_cast<sch_user_element *>(peek_head(queue)); element;
       element = static_cast<sch_user_element *>(element->link)) {
    if (strncmp(element->record.user, name, sizeof element->record.user) == 0) return element;
  }
  return nullptr;
}

int sch_cmp_user_info(const void *a, const void *b) { return a == b ? 0 : 1; }

void sch_delete_user_info(queue_header *queue, sch_user_element *element) {
  void *removed = search_and_dequeue_elem(queue, sch_cmp_user_info, element);
  mtrack_free(removed);
}

void sch_free_user_config(queue_header *queue) {
  while (void *element = dequeue_head(queue)) mtrack_free(element);
}

unsigned int sch_uname_to_hash(const char *name) {
  // Each position multiplies everything before it: an odd weighting, kept on purpose because
  // stored data may depend on the buckets it gives.
  uint32_t hash = 0;
  for (uint32_t i = 0; name && name[i]; i++) {
    hash = i * hash + static_cast<unsigned char>(name[i]);
  }
  return hash % 33;
}

void sch_strcpy(char *destination, const char *source, int length) {
  if (!destination) return;
  if (!source) {
    *destination = '\0';
    return;
  }
  if (length <= 0) return;
  strncpy(destination, source, static_cast<size_t>(length));
  if (strnlen(source, static_cast<size_t>(length)) == static_cast<size_t>(length)) {
    destination[length - 1] = '\0';
  }
}

}  // extern "C"
