// The failure seam of the stores: tests make the Nth call of an operation fail with a chosen status.
#include <array>
#include <mutex>

#include "pss/store.h"

namespace {

struct Fault {
  uint64_t nth = 0;  // 0: disarmed
  uint64_t counted = 0;
  uint32_t status = 0;
  bool persistent = false;
};

struct Faults {
  std::mutex mutex;
  std::array<Fault, PSS2_FAULT_COUNT> operations;
};

Faults &faults() {
  static Faults instance;
  return instance;
}

}  // namespace

namespace pss {

bool fault_fires(pss2_fault_operation operation, uint32_t *status) {
  if (operation < 0 || operation >= PSS2_FAULT_COUNT) return false;
  Faults &all = faults();
  std::lock_guard lock(all.mutex);
  Fault &fault = all.operations[operation];
  if (fault.nth == 0) return false;
  fault.counted++;
  if (fault.counted < fault.nth || (fault.counted > fault.nth && !fault.persistent)) return false;
  *status = fault.status;
  return true;
}

}  // namespace pss

extern "C" {

void pss2_fault_set(pss2_fault_operation operation, uint64_t nth, uint32_t status, int persistent) {
  if (operation < 0 || operation >= PSS2_FAULT_COUNT) return;
  Faults &all = faults();
  std::lock_guard lock(all.mutex);
  all.operations[operation] = Fault{nth, 0, status, persistent != 0};
}

void pss2_fault_clear_all(void) {
  Faults &all = faults();
  std::lock_guard lock(all.mutex);
  all.operations.fill(Fault{});
}

}  // extern "C"
