// Visiting every record of a store once, in key order.
#ifndef SCHEDCLI_LIB_PSS_STORE_WALK_H
#define SCHEDCLI_LIB_PSS_STORE_WALK_H

#include "schedcli/platform/pss.h"

namespace sch::pss {

// Calls visit(key) for each record; visit returns false to end the walk early. A key read
// failure ends the walk; a key reported with a negative length is read again in place.
template <typename Visit>
void walk_store(pss2_handle store, Visit visit) {
  constexpr int kRereadLimit = 16;  // a store that keeps answering so is broken: stop, do not skip
  uint32_t visited = 0;
  uint32_t status = pss2_move2location(&store, 1, PSS2_LOCATION_FIRST, &visited);
  while (status == 0) {
    uint32_t key_status = 0;
    pss2_datum key = pss2_getkey(store, &key_status);
    for (int reread = 0; key_status == 0 && key.length < 0 && reread < kRereadLimit; reread++) {
      key = pss2_getkey(store, &key_status);
    }
    if (key_status != 0 || key.length < 0) return;
    if (!visit(key)) return;
    status = pss2_move2location(&store, 1, PSS2_LOCATION_NEXT, &visited);
  }
}

}  // namespace sch::pss

#endif
