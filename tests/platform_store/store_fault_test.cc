// The failure seam: the Nth call fails with the chosen status, once or from then on, and changes
// nothing.
#include <functional>

#include "store_test_support.h"

namespace store_test {
namespace {

class StoreFault : public ::testing::Test {
 protected:
  void TearDown() override { pss2_fault_clear_all(); }
  TempDir dir_;
};

TEST_F(StoreFault, NthCallFailsOnceOrPersistentlyUntilCleared) {
  pss2_handle handle = open_store(dir_.file("s"), PSS2_MODE_CREATE);
  pss2_fault_set(PSS2_FAULT_STORE, 3, PSS2_ERR_FULL, 0);
  for (uint32_t i = 1; i <= 5; i++) EXPECT_EQ(put(handle, make_key(1, i), "v"), i == 3 ? PSS2_ERR_FULL : 0u);
  Records records = read_all(handle);
  ASSERT_EQ(records.size(), 4u);
  EXPECT_EQ(records[2].first, key_text(make_key(1, 4)));

  pss2_fault_set(PSS2_FAULT_DELETE, 2, PSS2_ERR_IO, 1);
  EXPECT_EQ(erase(handle, make_key(1, 1)), 0u);
  for (int i = 0; i < 3; i++) EXPECT_EQ(erase(handle, make_key(1, 2)), PSS2_ERR_IO);
  uint32_t status = 0;
  EXPECT_EQ(fetch(handle, make_key(1, 2), &status), "v");
  pss2_fault_set(PSS2_FAULT_DELETE, 0, 0, 0);
  EXPECT_EQ(erase(handle, make_key(1, 2)), 0u);

  // Read-side calls fail the same way, with a null descriptor.
  pss2_fault_set(PSS2_FAULT_GETVALUE, 1, PSS2_ERR_IO, 1);
  pss2_fault_set(PSS2_FAULT_FETCH, 1, PSS2_ERR_IO, 1);
  ASSERT_EQ(pss2_move2location(&handle, 1, PSS2_LOCATION_FIRST, nullptr), 0u);
  EXPECT_EQ(pss2_getvalue(handle, &status).data, nullptr);
  EXPECT_EQ(status, PSS2_ERR_IO);
  EXPECT_EQ(fetch(handle, make_key(1, 4), &status), "");
  EXPECT_EQ(status, PSS2_ERR_IO);
  pss2_fault_clear_all();
  EXPECT_EQ(text_of(pss2_getvalue(handle, &status)), "v");
  pss2_close(handle);
}

// A batch that lost a change must not commit the rest: whether the change failed in the hook, on
// the key size or on the value size, commit reports the first failure and keeps nothing.
TEST_F(StoreFault, RefusedChangeSpoilsTheOpenBatch) {
  pss2_handle handle = open_store(dir_.file("s"), PSS2_MODE_CREATE);
  ASSERT_EQ(put(handle, make_key(1, 0), "before"), 0u);
  const std::string too_long(kAttributes.max_value_size + 1, 'x');
  const std::array<unsigned char, 3> short_key{1, 2, 3};
  struct Refusal {
    const char *what;
    uint32_t expected;
    std::function<uint32_t()> change;
  };
  const Refusal refusals[] = {
      {"store hook", PSS2_ERR_FULL, [&] {
         pss2_fault_set(PSS2_FAULT_STORE, 1, PSS2_ERR_FULL, 0);
         return put(handle, make_key(1, 2), "lost");
       }},
      {"delete hook", PSS2_ERR_IO, [&] {
         pss2_fault_set(PSS2_FAULT_DELETE, 1, PSS2_ERR_IO, 0);
         return erase(handle, make_key(1, 0));
       }},
      {"value size", PSS2_ERR_VALUE_SIZE, [&] { return put(handle, make_key(1, 2), too_long); }},
      {"key size", PSS2_ERR_KEY_SIZE, [&] {
         pss2_datum key = datum(short_key), value = datum(too_long);
         return pss2_store(handle, &key, &value);
       }},
  };
  for (const Refusal &refusal : refusals) {
    SCOPED_TRACE(refusal.what);
    ASSERT_EQ(pss2_batch_begin(handle), 0u);
    EXPECT_EQ(put(handle, make_key(1, 1), "batched"), 0u);
    EXPECT_EQ(refusal.change(), refusal.expected);
    // Later changes report the spoiled batch, and the hook is spent, so nothing else fails.
    EXPECT_EQ(put(handle, make_key(1, 3), "after"), refusal.expected);
    EXPECT_EQ(pss2_batch_commit(handle), refusal.expected);
    EXPECT_EQ(read_all(handle), (Records{{key_text(make_key(1, 0)), "before"}}));
  }

  // A missing key is an answer, not a failure: the batch stays good.
  ASSERT_EQ(pss2_batch_begin(handle), 0u);
  EXPECT_EQ(erase(handle, make_key(9, 9)), PSS2_ERR_NO_KEY);
  EXPECT_EQ(put(handle, make_key(1, 1), "kept"), 0u);
  EXPECT_EQ(pss2_batch_commit(handle), 0u);
  EXPECT_EQ(read_all(handle).size(), 2u);
  pss2_close(handle);
}

}  // namespace
}  // namespace store_test
