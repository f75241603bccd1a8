// The shell's side of the daemon's socket: one connection per request, or per reply stream.
#include <sys/socket.h>

#include <cerrno>
#include <cstddef>
#include <cstdlib>
#include <new>
#include <string>

#include "schedcli/platform/cmi.h"
#include "schedcli/platform/sysmgr.h"
#include "transport/channel.h"

// Callers clear a 40-byte receive context and put the token in its fourth word.
static_assert(sizeof(mts_stream_context) == 40);
static_assert(offsetof(mts_stream_context, token) == 12);

struct cmi_session {
  std::string socket_path;
  uint32_t timeout_ms = CMI_DEFAULT_TIMEOUT_MS;
  uint32_t last_token = 0;
  cmi::Fd stream;  // the open reply stream's connection, if any
  uint32_t stream_token = 0;
};

namespace {

using cmi::Io;

uint32_t client_status(Io io) {
  switch (io) {
    case Io::ok:
      return 0;
    case Io::closed:
      return CMI_ERR_DAEMON_CLOSED;
    case Io::timeout:
    case Io::nothing_waiting:
      return CMI_ERR_TIMEOUT;
    case Io::too_large:
      return CMI_ERR_TOO_LARGE;
    case Io::no_memory:
      return CMI_ERR_NO_MEMORY;
    case Io::failed:
      break;
  }
  return CMI_ERR_SOCKET;
}

uint32_t connect_status(int error) {
  switch (error) {
    case ENOENT:
    case ENOTDIR:
    case ECONNREFUSED:
      return CMI_ERR_NO_DAEMON;
    case EACCES:
    case EPERM:
      return CMI_ERR_ACCESS;
    case EAGAIN:  // the daemon's backlog stayed full for the whole send timeout
    case ETIMEDOUT:
      return CMI_ERR_TIMEOUT;
    default:
      return CMI_ERR_SOCKET;
  }
}

uint32_t next_token(cmi_session *session) {
  if (++session->last_token == 0) session->last_token = 1;  // 0 means "no token"
  return session->last_token;
}

cmi::Deadline reply_deadline(const cmi_session *session) {
  return cmi::Clock::now() + std::chrono::milliseconds(session->timeout_ms);
}

// Connects to the daemon and sends one request. Returns 0 with *connection open, or a status.
uint32_t open_and_send(cmi_session *session, uint32_t service, uint32_t opcode, uint32_t token,
                       const void *request, uint32_t length, cmi::Fd *connection) {
  if (length > CMI_MAX_PAYLOAD) return CMI_ERR_TOO_LARGE;
  sockaddr_un address;
  socklen_t address_length;
  if (!cmi::make_address(session->socket_path, &address, &address_length)) return CMI_ERR_PATH;
  cmi::Fd fd(socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0));
  if (!fd.valid()) return errno == ENOMEM || errno == ENOBUFS ? CMI_ERR_NO_MEMORY : CMI_ERR_SOCKET;
  cmi::prepare_socket(fd.get(), session->timeout_ms);
  while (connect(fd.get(), reinterpret_cast<sockaddr *>(&address), address_length) != 0) {
    if (errno == EINTR) continue;
    if (errno == EISCONN) break;
    return connect_status(errno);
  }
  cmi::wire::Header header;
  header.kind = cmi::wire::Kind::request;
  header.service = service;
  header.opcode = opcode;
  header.token = token;
  if (uint32_t status = client_status(cmi::send_message(fd.get(), header, request, length))) return status;
  *connection = std::move(fd);
  return 0;
}

void end_stream(cmi_session *session) {
  session->stream.reset();
  session->stream_token = 0;
}

}  // namespace

extern "C" {

cmi_session *cmi_session_open(const char *socket_path) {
  std::string path;
  if (socket_path) {
    path = socket_path;
  } else if (const char *runtime = sysmgr_runtime_dir()) {
    path = std::string(runtime) + "/" CMI_SOCKET_NAME;
  } else {
    return nullptr;
  }
  sockaddr_un address;
  socklen_t address_length;
  if (!cmi::make_address(path, &address, &address_length)) return nullptr;
  auto *session = new (std::nothrow) cmi_session;
  if (session) session->socket_path = std::move(path);
  return session;
}

void cmi_session_close(cmi_session *session) { delete session; }

void cmi_session_timeout_set(cmi_session *session, uint32_t milliseconds) {
  if (session) session->timeout_ms = milliseconds ? milliseconds : CMI_DEFAULT_TIMEOUT_MS;
}

uint32_t cmi_req_resp(uint32_t service, uint32_t opcode, const void *request, void **reply, uint32_t *length,
                      const char *, const void *, uint32_t, cmi_session *session, uint32_t) {
  if (reply) *reply = nullptr;
  if (!session || !reply || !length) return CMI_ERR_BAD_ARGUMENT;
  uint32_t request_length = *length;
  *length = 0;
  if (!request && request_length > 0) return CMI_ERR_BAD_ARGUMENT;

  uint32_t token = next_token(session);
  cmi::Fd connection;
  if (uint32_t status = open_and_send(session, service, opcode, token, request, request_length, &connection)) {
    return status;
  }
  cmi::Received answer;
  if (uint32_t status = client_status(cmi::receive_message(connection.get(), reply_deadline(session), &answer))) {
    return status;
  }
  if (answer.check != 0) return answer.check;
  if (answer.header.kind != cmi::wire::Kind::reply || answer.header.token != token) {
    std::free(answer.payload);
    return answer.header.kind != cmi::wire::Kind::reply ? CMI_ERR_KIND : CMI_ERR_TOKEN;
  }
  *reply = answer.payload;
  *length = answer.header.payload_length;
  return answer.header.status;
}

uint32_t cmi_send_request(uint32_t service, uint32_t opcode, const void *request, uint32_t length, const char *,
                          const void *, const cmi_send_options *, cmi_session *session,
                          cmi_token_source *token_source) {
  if (token_source) token_source->token = 0;
  if (!session || !token_source || (!request && length > 0)) return CMI_ERR_BAD_ARGUMENT;
  end_stream(session);
  uint32_t token = next_token(session);
  cmi::Fd connection;
  if (uint32_t status = open_and_send(session, service, opcode, token, request, length, &connection)) {
    return status;
  }
  session->stream = std::move(connection);
  session->stream_token = token;
  token_source->token = token;
  return 0;
}

uint32_t mts_rr_token_get(const cmi_token_source *token_source) { return token_source ? token_source->token : 0; }

uint32_t mts_recv(cmi_session *session, cmi_message *message, const mts_stream_context *context) {
  if (message) *message = cmi_message{};
  if (!session || !message || !context) return CMI_ERR_BAD_ARGUMENT;
  if (!session->stream.valid() || context->token != session->stream_token) return CMI_ERR_NO_STREAM;

  cmi::Received part;
  uint32_t status = client_status(cmi::receive_message(session->stream.get(), reply_deadline(session), &part));
  if (status == 0) status = part.check;
  if (status == 0 && part.header.token != session->stream_token) status = CMI_ERR_TOKEN;
  if (status == 0) {
    switch (part.header.kind) {
      case cmi::wire::Kind::stream_part:
        message->token = part.header.token;
        message->length = part.header.payload_length;
        message->payload = part.payload;
        return 0;
      case cmi::wire::Kind::stream_end:
      case cmi::wire::Kind::reply:  // a daemon that refuses the stream answers once
        status = part.header.status ? part.header.status : CMI_STREAM_END;
        break;
      case cmi::wire::Kind::request:
        status = CMI_ERR_KIND;
        break;
    }
  }
  std::free(part.payload);
  end_stream(session);
  return status;
}

uint32_t cmi_parse_response(cmi_message *message, uint32_t *length, void **payload) {
  if (payload) *payload = nullptr;
  if (length) *length = 0;
  if (!message || !length || !payload) {
    cmi_message_release(message);
    return CMI_ERR_BAD_ARGUMENT;
  }
  if (!message->payload || message->length == 0) {
    cmi_message_release(message);
    return CMI_ERR_EMPTY;
  }
  *payload = message->payload;
  *length = message->length;
  *message = cmi_message{};
  return 0;
}

void cmi_message_release(cmi_message *message) {
  if (!message) return;
  std::free(message->payload);
  *message = cmi_message{};
}

}  // extern "C"
