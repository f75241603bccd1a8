// The email transport of job output: sender, reply-to address and SMTP server (types 13 to 18),
// and the whole transport for display (type 19).
#include "config/database.h"
#include "requests/permissions.h"
#include "requests/requests.h"
#include "schedcli/wire.h"

namespace schedd {

Reply email_transport(RequestBytes bytes, const RequestContext &context) {
  sch_transport_request request;
  sch_wire_decode(SCH_WIRE_TRANSPORT_REQUEST, bytes.data(), bytes.size(), &request);
  if (uint32_t refused = may_administer(context)) return status_reply(refused);
  Model &model = context.model;
  switch (request.header.type) {
    case SCH_REQ_EMAIL_FROM:
      return status_reply(model.set_transport(TransportPart::sender, request.conf));
    case SCH_REQ_NO_EMAIL_FROM:
      return status_reply(model.clear_transport(TransportPart::sender));
    case SCH_REQ_EMAIL_REPLY_TO:
      return status_reply(model.set_transport(TransportPart::reply_to, request.conf));
    case SCH_REQ_NO_EMAIL_REPLY_TO:
      return status_reply(model.clear_transport(TransportPart::reply_to));
    case SCH_REQ_EMAIL_SMTP:
      return status_reply(model.set_transport(TransportPart::server, request.conf));
    default:  // SCH_REQ_NO_EMAIL_SMTP
      return status_reply(model.clear_transport(TransportPart::server));
  }
}

Reply email_transport_config(RequestBytes, const RequestContext &) {
  Reply reply;
  reply.payload.resize(sch_wire_size(SCH_WIRE_TRANSPORT_CONF));
  sch_wire_encode(SCH_WIRE_TRANSPORT_CONF, &email_transport_conf, reply.payload.data());
  return reply;
}

}  // namespace schedd
