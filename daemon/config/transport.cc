// The model's email transport: sender, reply-to address and SMTP server.
#include <arpa/inet.h>

#include <algorithm>
#include <cctype>

#include "config/database.h"
#include "config/fields.h"
#include "config/model.h"
#include "config/text_rules.h"
#include "schedcli/protocol.h"
#include "schedcli/status.h"

namespace schedd {

namespace {

constexpr uint32_t kLargestPort = 65535;

// Addresses, server names and VRF names become words of the configuration text: a blank or a
// control character would break the line when it is pasted back.
template <size_t N>
bool one_word(const char (&field)[N]) {
  if (!holds_text(field)) return false;
  std::string_view text = field_text(field);
  return std::all_of(text.begin(), text.end(), [](char c) { return std::isgraph(static_cast<unsigned char>(c)); });
}

bool server_matches_kind(const sch_email_transport_conf &conf) {
  unsigned char address[16];
  switch (conf.smtp_reserved) {
    case SCH_SMTP_SERVER_IPV4:
      return inet_pton(AF_INET, conf.smtp_server, address) == 1;
    case SCH_SMTP_SERVER_IPV6:
      return inet_pton(AF_INET6, conf.smtp_server, address) == 1;
    case SCH_SMTP_SERVER_HOST_NAME:
      return host_name_travels(field_text(conf.smtp_server));
    default:
      return false;
  }
}

// The server part of the transport as asked for, or a status.
uint32_t smtp_server(const sch_email_transport_conf &asked, sch_email_transport_conf *conf) {
  if (!one_word(asked.smtp_server) || !terminated(asked.vrf) || !server_matches_kind(asked)) {
    return SCH_STATUS_BAD_REQUEST;
  }
  if (asked.smtp_port == 0 || asked.smtp_port > kLargestPort) return SCH_STATUS_OUT_OF_RANGE;
  if (asked.vrf[0] != '\0' && !one_word(asked.vrf)) return SCH_STATUS_BAD_REQUEST;
  copy_text(conf->smtp_server, field_text(asked.smtp_server));
  conf->smtp_reserved = asked.smtp_reserved;
  conf->smtp_port = asked.smtp_port;
  // A server given without a VRF is reached through the default one.
  if (asked.vrf[0] == '\0') {
    copy_text(conf->vrf, default_transport().vrf);
  } else {
    copy_text(conf->vrf, field_text(asked.vrf));
  }
  return 0;
}

using TransportWriter = int (*)(pss2_handle, sch_email_transport_conf *);

TransportWriter writer_of(TransportPart part) {
  switch (part) {
    case TransportPart::sender:
      return sch_save_email_from_conf_to_pss;
    case TransportPart::reply_to:
      return sch_save_email_replyto_conf_to_pss;
    case TransportPart::server:
      break;
  }
  return sch_save_email_smtpserver_conf_to_pss;
}

}  // namespace

uint32_t Model::set_transport(TransportPart part, const sch_email_transport_conf &asked) {
  sch_email_transport_conf conf = email_transport_conf;
  switch (part) {
    case TransportPart::sender:
      if (!terminated(asked.from) || !address_travels(field_text(asked.from))) return SCH_STATUS_BAD_ADDRESS;
      copy_text(conf.from, field_text(asked.from));
      break;
    case TransportPart::reply_to:
      if (!terminated(asked.reply_to) || !address_travels(field_text(asked.reply_to))) {
        return SCH_STATUS_BAD_ADDRESS;
      }
      copy_text(conf.reply_to, field_text(asked.reply_to));
      copy_text(conf.reply_to_copy, field_text(asked.reply_to));
      break;
    case TransportPart::server:
      if (uint32_t status = smtp_server(asked, &conf)) return status;
      break;
  }
  return save_transport(part, conf);
}

uint32_t Model::clear_transport(TransportPart part) {
  sch_email_transport_conf conf = email_transport_conf;
  const sch_email_transport_conf defaults = default_transport();
  switch (part) {
    case TransportPart::sender:
      copy_text(conf.from, "");
      break;
    case TransportPart::reply_to:
      copy_text(conf.reply_to, "");
      copy_text(conf.reply_to_copy, "");
      break;
    case TransportPart::server:
      copy_text(conf.smtp_server, "");
      conf.smtp_reserved = defaults.smtp_reserved;
      conf.smtp_port = defaults.smtp_port;
      copy_text(conf.vrf, defaults.vrf);
      break;
  }
  return save_transport(part, conf);
}

uint32_t Model::save_transport(TransportPart part, const sch_email_transport_conf &conf) {
  sch_email_transport_conf staged = conf;
  TransportWriter write = writer_of(part);
  if (uint32_t status = durably(pss_running, [&] { return write(pss_running, &staged) == 0; })) return status;
  email_transport_conf = conf;
  announce(ChangeKind::transport_changed);
  return 0;
}

}  // namespace schedd
