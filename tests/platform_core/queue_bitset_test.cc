// The intrusive queue: unlinking anywhere keeps the rest linked.
#include <gtest/gtest.h>

#include <vector>

#include "schedcli/platform/bitset.h"
#include "schedcli/platform/queue.h"

namespace {

struct Element {
  void *link;
  int value;
};

std::vector<int> drain(queue_header *queue) {
  std::vector<int> values;
  while (auto *element = static_cast<Element *>(dequeue_head(queue))) values.push_back(element->value);
  return values;
}

int by_value(const void *element, const void *key) {
  return static_cast<const Element *>(element)->value == *static_cast<const int *>(key) ? 0 : 1;
}

TEST(Queue, SearchUnlinksHeadMiddleAndTailKeepingTheRestLinked) {
  for (int victim : {1, 2, 3}) {
    queue_header queue{};
    Element a{nullptr, 1}, b{nullptr, 2}, c{nullptr, 3};
    enqueue_tail(&queue, &a);
    enqueue_tail(&queue, &b);
    enqueue_tail(&queue, &c);
    auto *removed = static_cast<Element *>(search_and_dequeue_elem(&queue, by_value, &victim));
    ASSERT_NE(removed, nullptr);
    EXPECT_EQ(removed->value, victim);
    Element d{nullptr, 4};
    enqueue_tail(&queue, &d);  // the tail must still be right
    std::vector<int> expected;
    for (int v : {1, 2, 3, 4}) {
      if (v != victim) expected.push_back(v);
    }
    EXPECT_EQ(drain(&queue), expected) << "victim " << victim;
  }
  queue_header empty{};
  int missing = 9;
  EXPECT_EQ(search_and_dequeue_elem(&empty, by_value, &missing), nullptr);
}

}  // namespace
