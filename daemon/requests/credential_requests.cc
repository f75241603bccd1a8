// Stored job-execution credentials: fetch, store and delete one (type 22), and the list of all
// of them (type 23). Passwords arrive and leave in their encrypted form only.
#include <cstring>

#include "config/database.h"
#include "requests/requests.h"
#include "schedcli/platform/cmi.h"
#include "schedcli/wire.h"

namespace schedd {

namespace {

// A caller reaches only its own credential; root reaches every one.
bool may_reach(const Caller &caller, std::string_view user) { return caller.privileged() || caller.user == user; }

Reply fetch(const char *user) {
  // A user without a stored credential gets an empty password, which the shell reports.
  Reply reply;
  reply.payload.resize(SCH_USER_NAME_SIZE + SCH_PASSWORD_SIZE);
  std::memcpy(reply.payload.data(), user, strnlen(user, SCH_USER_NAME_SIZE));
  if (const sch_user_element *element = sch_find_user_info(&sch_uname_q, user)) {
    std::string_view password = field_text(element->record.password);
    std::memcpy(reply.payload.data() + SCH_USER_NAME_SIZE, password.data(),
                std::min<size_t>(password.size(), SCH_PASSWORD_SIZE - 1));
  }
  return reply;
}


}  // namespace

Reply user_credential(RequestBytes bytes, const RequestContext &context) {
  const Caller &caller = context.caller;
  sch_credential_request request;
  sch_wire_decode(SCH_WIRE_CREDENTIAL_REQUEST, bytes.data(), bytes.size(), &request);
  if (!terminated(request.user) || !terminated(request.password)) return status_reply(SCH_STATUS_BAD_REQUEST);
  if (request.operation != SCH_CREDENTIAL_FETCH && request.operation != SCH_CREDENTIAL_STORE &&
      request.operation != SCH_CREDENTIAL_DELETE) {
    return status_reply(SCH_STATUS_BAD_REQUEST);
  }
  if (request.user[0] == '\0') return status_reply(SCH_STATUS_NO_CREDENTIAL);
  if (!may_reach(caller, request.user)) return status_reply(SCH_STATUS_PERMISSION);
  switch (request.operation) {
    case SCH_CREDENTIAL_FETCH:
      return fetch(request.user);
    case SCH_CREDENTIAL_STORE:
      return status_reply(context.model.store_credential(field_text(request.user), field_text(request.password)));
    default:
      return status_reply(context.model.delete_credential(field_text(request.user)));
  }
}

Reply user_credential_list(RequestBytes, const RequestContext &context) {
  const Caller &caller = context.caller;
  constexpr size_t kEntrySize = sizeof(sch_user_config_reply_entry);
  Reply reply;
  reply.payload.resize(sizeof(uint16_t));
  uint16_t count = 0;
  for (auto *element = static_cast<sch_user_element *>(peek_head(&sch_uname_q)); element;
       element = static_cast<sch_user_element *>(element->link)) {
    if (!may_reach(caller, field_text(element->record.user))) continue;
    if (reply.payload.size() + kEntrySize > CMI_MAX_PAYLOAD || count == UINT16_MAX) break;
    sch_user_config_reply_entry entry{};
    copy_text(entry.user, field_text(element->record.user));
    copy_text(entry.password, field_text(element->record.password));
    size_t at = reply.payload.size();
    reply.payload.resize(at + kEntrySize);
    sch_wire_encode(SCH_WIRE_USER_CONFIG_REPLY_ENTRY, &entry, reply.payload.data() + at);
    count++;
  }
  sch_wire_put_u16(reply.payload.data(), count);
  return reply;
}

}  // namespace schedd
