// Records: fetch, replace and delete; walks in key order and changes during a walk; batches.
#include <algorithm>
#include <random>

#include "store_test_support.h"

namespace store_test {
namespace {

class StoreRecords : public ::testing::Test {
 protected:
  void SetUp() override { handle_ = open_store(dir_.file("s"), PSS2_MODE_CREATE); }
  void TearDown() override { pss2_close(handle_); }
  TempDir dir_;
  pss2_handle handle_ = 0;
};

TEST_F(StoreRecords, FetchReplaceAndDeleteWithTheMissingKeyStatus) {
  uint32_t status = 0;
  EXPECT_EQ(fetch(handle_, make_key(0, 0), &status), "");
  EXPECT_EQ(status, 0x40480003u);
  EXPECT_EQ(put(handle_, make_key(0, 0), "first"), 0u);
  EXPECT_EQ(put(handle_, make_key(0, 0), "second"), 0u);
  EXPECT_EQ(fetch(handle_, make_key(0, 0), &status), "second");
  EXPECT_EQ(erase(handle_, make_key(0, 0)), 0u);
  EXPECT_EQ(erase(handle_, make_key(0, 0)), 0x40480003u);
  EXPECT_EQ(fetch(handle_, make_key(0, 0), &status), "");
  EXPECT_EQ(status, 0x40480003u);
}

TEST_F(StoreRecords, WalkVisitsKeysInBigEndianOrderWithHeadersFirst) {
  std::vector<Key> keys;
  for (uint32_t sequence = 0; sequence <= 300; sequence++) keys.push_back(make_key(1, sequence, "alpha"));
  keys.push_back(make_key(1, 0, "beta"));
  keys.push_back(make_key(0, 7, "zulu"));
  std::vector<Key> shuffled = keys;
  std::shuffle(shuffled.begin(), shuffled.end(), std::mt19937(7));
  for (const Key &key : shuffled) put(handle_, key, key_text(key));

  std::sort(keys.begin(), keys.end());  // bytewise: the schedule (type 0) first, 256 after 255
  Records records = read_all(handle_);
  ASSERT_EQ(records.size(), keys.size());
  for (size_t i = 0; i < keys.size(); i++) EXPECT_EQ(records[i].first, key_text(keys[i])) << i;
  EXPECT_EQ(records[1].first, key_text(make_key(1, 0, "alpha")));
  uint32_t status = 0;
  EXPECT_EQ(pss2_getkey(handle_, &status).data, nullptr);  // the walk is over
  EXPECT_EQ(status, PSS2_ERR_END);
}

TEST_F(StoreRecords, ChangesThroughTheWalkingHandleAreSeenAheadAndNeverRevisited) {
  for (uint32_t sequence = 0; sequence < 10; sequence++) put(handle_, make_key(1, sequence), "old");
  std::vector<int> seen;
  uint32_t status = 0, moved = pss2_move2location(&handle_, 1, PSS2_LOCATION_FIRST, nullptr);
  for (; moved == 0; moved = pss2_move2location(&handle_, 1, PSS2_LOCATION_NEXT, nullptr)) {
    pss2_datum key = pss2_getkey(handle_, &status);
    std::string value = text_of(pss2_getvalue(handle_, &status));
    int sequence = static_cast<const unsigned char *>(key.data)[7];  // still valid after getvalue
    seen.push_back(sequence);
    EXPECT_EQ(value, sequence == 5 ? "new" : "old");
    if (sequence == 3) {
      put(handle_, make_key(1, 3), "new");               // the current record, replaced
      put(handle_, make_key(1, 5), "new");               // ahead: seen changed
      put(handle_, make_key(1, 20), "old");              // ahead: seen
      EXPECT_EQ(erase(handle_, make_key(1, 7)), 0u);     // ahead: never seen
      EXPECT_EQ(text_of(pss2_getvalue(handle_, &status)), "new");
    } else if (sequence == 8) {
      EXPECT_EQ(erase(handle_, make_key(1, 8)), 0u);
      EXPECT_EQ(pss2_getkey(handle_, &status).data, nullptr);
      EXPECT_EQ(status, PSS2_ERR_END);
    }
  }
  EXPECT_EQ(moved, PSS2_ERR_END);
  EXPECT_EQ(seen, (std::vector<int>{0, 1, 2, 3, 4, 5, 6, 8, 9, 20}));
}

TEST_F(StoreRecords, BatchIsSeenByItsHandleAloneUntilCommitAndAbortDropsIt) {
  pss2_handle other = open_store(dir_.file("s"), PSS2_MODE_UPDATE);
  uint32_t status = 0;
  EXPECT_EQ(pss2_batch_commit(handle_), PSS2_ERR_BATCH);
  ASSERT_EQ(pss2_batch_begin(handle_), 0u);
  EXPECT_EQ(pss2_batch_begin(handle_), PSS2_ERR_BATCH);
  for (uint32_t i = 0; i < 1000; i++) put(handle_, make_key(1, i), "batched");
  EXPECT_EQ(fetch(handle_, make_key(1, 999), &status), "batched");
  EXPECT_EQ(read_all(handle_).size(), 1000u);
  EXPECT_EQ(fetch(other, make_key(1, 999), &status), "");
  EXPECT_EQ(put(other, make_key(2, 0), "x"), PSS2_ERR_BUSY);  // the writer is taken by the batch
  EXPECT_EQ(pss2_batch_commit(handle_), 0u);
  EXPECT_EQ(read_all(other).size(), 1000u);

  ASSERT_EQ(pss2_batch_begin(other), 0u);
  EXPECT_EQ(erase(other, make_key(1, 0)), 0u);
  EXPECT_EQ(pss2_batch_abort(other), 0u);
  ASSERT_EQ(pss2_batch_begin(other), 0u);
  put(other, make_key(3, 1), "dropped by close");
  pss2_close(other);
  EXPECT_EQ(read_all(handle_).size(), 1000u);
  EXPECT_EQ(put(handle_, make_key(3, 2), "after"), 0u);
}

}  // namespace
}  // namespace store_test
