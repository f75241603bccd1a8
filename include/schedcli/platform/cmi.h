/* Request/response between the shell and the daemon over the daemon's Unix-domain socket.
 *
 * The daemon listens on a SOCK_SEQPACKET socket (by default "<runtime dir>/schedd.sock", mode
 * 0660). Every message is one packet: a fixed header (version, kind, service, opcode, status,
 * token, payload length; big-endian) and the payload, at most CMI_MAX_PAYLOAD bytes. A request
 * is answered by one reply carrying a status word and a payload, or by a stream of reply
 * messages bound to the request's token and closed by an end marker.
 *
 * The daemon learns who calls from the socket's peer credentials (SO_PEERCRED); the user name
 * and session identity a client passes are never sent and never trusted.
 *
 * Results are status words: 0 for success, otherwise one of the CMI_* codes below (syserr2str
 * renders each) or, for a call that reached the daemon, the status the daemon answered with.
 * Nothing here blocks without bound on the client side: every call gives up after the session's
 * timeout. Buffers handed to the caller come from malloc and are the caller's to free. */
#ifndef SCHEDCLI_PLATFORM_CMI_H
#define SCHEDCLI_PLATFORM_CMI_H

#include <stdint.h>

#include "schedcli/export.h"

SCHED_BEGIN_DECLS

#define CMI_SOCKET_NAME "schedd.sock"   /* the daemon's socket in the runtime directory */
#define CMI_HEADER_SIZE 24u
/* Kept well under the send buffer an unprivileged process can get from a default kernel
 * (twice net.core.wmem_max), so that any message within it can be sent. */
#define CMI_MAX_MESSAGE (256u * 1024u)
#define CMI_MAX_PAYLOAD (CMI_MAX_MESSAGE - CMI_HEADER_SIZE)
#define CMI_DEFAULT_TIMEOUT_MS 30000u

/* Status words, numbers 0x001-0x0ff of the platform facility. These values are returned across the
 * product: never renumber. */
#define CMI_ERR_BAD_ARGUMENT 0x80c00001u    /* null pointer or a payload length that cannot be */
#define CMI_ERR_NO_DAEMON 0x80c00002u       /* no socket file, or nobody listens on it */
#define CMI_ERR_TIMEOUT 0x80c00003u         /* no connection or no answer within the timeout */
#define CMI_ERR_DAEMON_CLOSED 0x80c00004u   /* the daemon closed the connection before answering */
#define CMI_ERR_CLIENT_CLOSED 0x80c00005u   /* the client went away (server side) */
#define CMI_ERR_SHORT 0x80c00006u           /* a message shorter than the header */
#define CMI_ERR_TOO_LARGE 0x80c00007u       /* a message above CMI_MAX_MESSAGE */
#define CMI_ERR_LENGTH 0x80c00008u          /* payload length in the header differs from the message */
#define CMI_ERR_VERSION 0x80c00009u         /* unknown header version */
#define CMI_ERR_KIND 0x80c0000au            /* a request where a reply belongs, or the reverse */
#define CMI_ERR_TOKEN 0x80c0000bu           /* a reply bound to another request */
#define CMI_ERR_NO_MEMORY 0x80c0000cu
#define CMI_ERR_ACCESS 0x80c0000du          /* permission denied on the socket */
#define CMI_ERR_PATH 0x80c0000eu            /* socket path missing or too long */
#define CMI_ERR_IN_USE 0x80c0000fu          /* a live server already listens on the socket */
#define CMI_ERR_NOT_SOCKET 0x80c00010u      /* something other than a socket is at the path */
#define CMI_ERR_SOCKET 0x80c00011u          /* any other failed socket call */
#define CMI_ERR_NO_STREAM 0x80c00012u       /* no reply stream open for that token */
#define CMI_ERR_EMPTY 0x80c00013u           /* a reply message without data to parse */
#define CMI_STREAM_END 0x40c00014u          /* the reply stream ended normally */
#define CMI_NOTHING_WAITING 0x40c00015u     /* non-blocking descriptor with nothing to take */

/* ---- Client side (the shell) ---- */

typedef struct cmi_session cmi_session;

/* A session with the daemon at `socket_path`, or at "<runtime dir>/schedd.sock" when it is NULL
 * (sysmgr_dirs_set must have run). Nothing is connected yet: each call makes its own connection,
 * so a restarted daemon is simply reached by the next call. One thread uses a session at a time.
 * Returns NULL when no path can be had, the path does not fit a socket address, or memory is
 * short. */
SCHED_EXPORT cmi_session *cmi_session_open(const char *socket_path);
/* Closes an open reply stream and frees the session. NULL does nothing. */
SCHED_EXPORT void cmi_session_close(cmi_session *session);
/* How long one call may wait to connect, to send, and for each reply message; 0 restores
 * CMI_DEFAULT_TIMEOUT_MS. */
SCHED_EXPORT void cmi_session_timeout_set(cmi_session *session, uint32_t milliseconds);

/* Sends `request` (*length bytes) to `service`/`opcode` and waits for the one reply.
 * On return *reply is the reply's payload (malloc'ed, the caller frees it) or NULL when the reply
 * carries none, and *length is the payload's length (0 with NULL). *reply is NULL after every
 * failure. The result is 0, a CMI_* code when the daemon could not be asked or answered with a
 * broken message, or the non-zero status the daemon answered with (its payload, if any, is still
 * handed over). `user_name`, `identity`, `identity_size` and `flags` are accepted for the
 * callers' sake and not used: the daemon identifies the caller by the socket. */
SCHED_EXPORT uint32_t cmi_req_resp(uint32_t service, uint32_t opcode, const void *request, void **reply,
                                   uint32_t *length, const char *user_name, const void *identity,
                                   uint32_t identity_size, cmi_session *session, uint32_t flags);

/* What a streaming request hands back: the token its reply messages carry. */
typedef struct cmi_token_source {
  uint32_t token;
} cmi_token_source;

/* Eight bytes of send options, accepted for the callers' sake and not interpreted. */
typedef struct cmi_send_options {
  uint8_t bytes[8];
} cmi_send_options;

/* Sends a request whose answer is a stream of reply messages, and returns without waiting for
 * any. The session keeps the stream's connection (closing any earlier stream) until the stream
 * ends, fails, or the session is closed. *token_source identifies the stream. `options` may be
 * NULL; `user_name` and `identity` are not used (see cmi_req_resp). */
SCHED_EXPORT uint32_t cmi_send_request(uint32_t service, uint32_t opcode, const void *request, uint32_t length,
                                       const char *user_name, const void *identity,
                                       const cmi_send_options *options, cmi_session *session,
                                       cmi_token_source *token_source);
/* The token of a stream, for its receive context; 0 (never a token) for NULL. */
SCHED_EXPORT uint32_t mts_rr_token_get(const cmi_token_source *token_source);

/* Receive context of a stream, 40 bytes: the caller clears it, sets `mode` to 1 and `token` to
 * mts_rr_token_get's answer. The reserved words are not used. */
typedef struct mts_stream_context {
  uint32_t mode;
  uint32_t reserved1;
  uint32_t reserved2;
  uint32_t token;
  uint32_t reserved[6];
} mts_stream_context;

/* One received reply message; it owns its payload until cmi_parse_response takes it or
 * cmi_message_release frees it. */
typedef struct cmi_message {
  uint32_t token;
  uint32_t length;   /* payload bytes */
  void *payload;     /* NULL when length is 0 */
} cmi_message;

/* Waits (up to the session's timeout) for the stream's next reply message. Returns 0 with
 * *message filled (whatever it held before is overwritten, not freed). Otherwise *message is
 * empty and the result is CMI_STREAM_END when the daemon ended the stream with status 0, the
 * daemon's status when it ended it with another, CMI_ERR_NO_STREAM when the token is not the
 * session's open stream (which is left open), or a CMI_* failure; after any other of these the
 * stream is closed. */
SCHED_EXPORT uint32_t mts_recv(cmi_session *session, cmi_message *message, const mts_stream_context *context);
/* Moves a received message's payload to the caller: *payload (free it) and *length. Returns 0,
 * or CMI_ERR_EMPTY for a message without payload and CMI_ERR_BAD_ARGUMENT for a NULL pointer,
 * with *payload NULL and *length 0. The message is empty afterwards either way. */
SCHED_EXPORT uint32_t cmi_parse_response(cmi_message *message, uint32_t *length, void **payload);
/* Frees a received message's payload and empties it. */
SCHED_EXPORT void cmi_message_release(cmi_message *message);

/* ---- Server side (the daemon) ----
 *
 * Plain descriptors, close-on-exec, so that the daemon can watch them in its main loop. The
 * calls block when their descriptor is blocking and has nothing to take; on a non-blocking one
 * they return CMI_NOTHING_WAITING instead. Sending on a connection waits at most the server's
 * send timeout for a client that does not read. */

/* Who is at the other end of a connection, from the kernel. */
typedef struct cmi_peer {
  int32_t pid;
  uint32_t uid;
  uint32_t gid;
} cmi_peer;

typedef struct cmi_request {
  uint32_t service;
  uint32_t opcode;
  uint32_t token;    /* binds the replies to this request */
  uint32_t length;   /* payload bytes */
  void *payload;     /* owned by the request (cmi_request_release); NULL when length is 0 */
  cmi_peer peer;
} cmi_request;

/* Creates the socket at `socket_path` (NULL: "<runtime dir>/schedd.sock") with mode 0660 and
 * listens on it; *listen_fd is then the caller's. A socket file whose server is gone is replaced.
 * CMI_ERR_IN_USE when a live server listens there, CMI_ERR_NOT_SOCKET when another kind of file
 * is there (it is left alone), CMI_ERR_PATH for a path that cannot be used. */
SCHED_EXPORT uint32_t cmi_server_listen(const char *socket_path, int *listen_fd);
/* Takes one waiting connection: *connection_fd is the caller's to close. */
SCHED_EXPORT uint32_t cmi_server_accept(int listen_fd, int *connection_fd);
/* Takes one request from a connection, with the peer's credentials. On success *request owns the
 * payload. A message that is short, too large, inconsistent or not a request is consumed and
 * reported (CMI_ERR_SHORT, _TOO_LARGE, _LENGTH, _VERSION, _KIND) without a payload; for _LENGTH
 * and _KIND the header's service, opcode and token are kept so that the caller can answer with
 * an error. The peer is filled whenever a message was taken, and the connection stays usable.
 * CMI_ERR_CLIENT_CLOSED when the client has gone. */
SCHED_EXPORT uint32_t cmi_server_receive(int connection_fd, cmi_request *request);
/* Frees a request's payload (length 0 after); its header fields and peer stay. */
SCHED_EXPORT void cmi_request_release(cmi_request *request);
/* Answers the request with `token`: the status becomes the client's result. */
SCHED_EXPORT uint32_t cmi_server_reply(int connection_fd, uint32_t token, uint32_t status, const void *payload,
                                       uint32_t length);
/* One message of a reply stream, and the end marker that closes it with `status`. */
SCHED_EXPORT uint32_t cmi_server_stream_send(int connection_fd, uint32_t token, const void *payload,
                                             uint32_t length);
SCHED_EXPORT uint32_t cmi_server_stream_end(int connection_fd, uint32_t token, uint32_t status);
/* Send timeout of connections accepted from now on; 0 restores the default of 5000 ms. */
SCHED_EXPORT void cmi_server_send_timeout_set(uint32_t milliseconds);

SCHED_END_DECLS

#endif
