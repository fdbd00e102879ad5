/*
 * Host-only side of the QMI client library stand-in: what a host program (tests, the tool, the
 * daemon) uses to choose the transport, and the server interface the transports hand messages
 * to. Library code never includes this header.
 *
 * Transport choice, made by the host program only:
 *   - explicitly with qmi_client_host_select_transport("inproc" | "unix:PATH" | "qmux:PATH" |
 *     "qmi-proxy:PATH"), or
 *   - on the first client call, from the environment variable TARVIK_QMI_TRANSPORT (same
 *     syntax); unset means "inproc".
 * "inproc" reaches the server registered with qmi_host::RegisterInprocServer (a simulated modem
 * in the same process); while none is registered no service is up. "unix:PATH" reaches
 * tarvik-modemd over a SOCK_SEQPACKET socket; when the daemon goes away every service goes down
 * and the transport reconnects in the background. "qmux:PATH" opens a QMI character device
 * (/dev/cdc-wdm0) or tarvik-modemd's --qmux link: client ids come from the device's control
 * service, the services up are those its version list names (ids above 0xFF never are), and a
 * read error or hang-up takes every service down until the device can be opened again.
 * "qmi-proxy:PATH" is "qmux:PATH" through libqmi's qmi-proxy, which shares the device with the
 * other processes that reach it so (ModemManager, qmicli -p): the proxy is started when none
 * listens (on the abstract socket TARVIK_QMI_PROXY_SOCKET names, default "qmi-proxy"), client ids
 * are released before the connection closes, and a proxy that closes the connection is a service
 * loss. The proxy passes no control indications on, so a client id that a service restart revoked
 * is not seen through it. Why an attempt failed is written to standard error.
 */
#ifndef TARVIK_PLATFORM_QMI_CLIENT_HOST_H
#define TARVIK_PLATFORM_QMI_CLIENT_HOST_H

#include <errno.h>
#include <stddef.h>
#include <stdint.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/uio.h>

#ifdef __cplusplus
#include <vector>
#endif

#include "qmi_client.h"

#ifdef __cplusplus
extern "C" {
#endif

/*
 * Selects the transport. Clients of the previous transport see their services go down (error
 * callbacks, QMI_SERVICE_ERR). Returns QMI_NO_ERR; QMI_CLIENT_PARAM_ERR for a transport that is
 * none of "inproc", "unix:PATH", "qmux:PATH", "qmi-proxy:PATH"; QMI_CLIENT_TRANSPORT_ERR when the
 * socket, device or proxy cannot be reached (the transport then keeps trying in the background).
 */
qmi_client_error_type qmi_client_host_select_transport(const char *choice);

/* Responses that matched no waiting request (late after a time-out, unknown transaction,
 * malformed header) and were dropped, since the process started. */
uint64_t qmi_client_host_dropped_responses(void);

/* Waits until every indication and error callback queued so far has run: 1 when none is left,
 * 0 when `timeout_ms` passed first or when called from a callback. For programs that drive the
 * library and the in-process modem in lockstep (tests, fuzz targets). */
int qmi_client_host_wait_callbacks(uint32_t timeout_ms);

#ifdef __cplusplus
} /* extern "C" */

namespace qmi_host {

/* What a server reports back to the client library. Calls may come from any server thread;
 * implementations must not call back into the server from inside them. */
class ClientSink {
 public:
  virtual ~ClientSink() = default;
  virtual void OnServiceUp(uint32_t service_id, uint32_t instance) = 0;
  /* The service went away: its clients are gone on the server side. */
  virtual void OnServiceDown(uint32_t service_id, uint32_t instance) = 0;
  /* A response or indication for `client`: QMI header (7 bytes) then the TLV area. */
  virtual void OnMessage(uint32_t client, const uint8_t *msg, size_t len) = 0;
  /* The request `txn` of `client` failed in transport with `error` (a QMI_* client error). */
  virtual void OnTxnError(uint32_t client, uint16_t txn, int error) = 0;
};

/* A server: the simulated modem. Thread-safe. */
class Server {
 public:
  virtual ~Server() = default;
  /* From Attach on, the sink hears of every service going up or down; Attach itself reports
   * the services up at that moment. After Detach returns no call reaches the sink and its
   * clients are closed. */
  virtual void Attach(ClientSink *sink) = 0;
  virtual void Detach(ClientSink *sink) = 0;
  /* Opens a client of a service instance (QMI_CLIENT_INSTANCE_ANY: any) for an attached sink.
   * QMI_NO_ERR and *client, or QMI_SERVICE_ERR when no such service is up. */
  virtual int Open(ClientSink *sink, uint32_t service_id, uint32_t instance, uint32_t *client) = 0;
  virtual void Close(uint32_t client) = 0;
  /* Hands over one request (QMI header then TLVs; copied). QMI_NO_ERR once queued,
   * QMI_SERVICE_ERR for an unknown client, QMI_CLIENT_PARAM_ERR for a malformed header. */
  virtual int Deliver(uint32_t client, const uint8_t *msg, size_t len) = 0;
};

/* The in-process server the "inproc" transport talks to. Registering replaces the previous
 * one; Unregister waits for calls into the server in progress and reports its services down. */
void RegisterInprocServer(Server *server);
void UnregisterInprocServer(Server *server);

/* The QMI message header and the socket framing shared by the client library and
 * tarvik-modemd. All fields little-endian. */
namespace wire {

constexpr size_t kQmiHeaderLen = 7;
constexpr uint8_t kQmiRequest = 0;
constexpr uint8_t kQmiResponse = 2;
constexpr uint8_t kQmiIndication = 4;

struct QmiHeader {
  uint8_t type;
  uint16_t txn;
  uint16_t msg_id;
  uint16_t len; /* length of the TLV area that follows */
};

inline void PutU16(uint8_t *p, uint16_t v) {
  p[0] = (uint8_t)(v & 0xff);
  p[1] = (uint8_t)(v >> 8);
}
inline void PutU32(uint8_t *p, uint32_t v) {
  for (int i = 0; i < 4; ++i) p[i] = (uint8_t)(v >> (8 * i));
}
inline uint16_t GetU16(const uint8_t *p) {
  return (uint16_t)(p[0] | (p[1] << 8));
}
inline uint32_t GetU32(const uint8_t *p) {
  return (uint32_t)p[0] | ((uint32_t)p[1] << 8) | ((uint32_t)p[2] << 16) | ((uint32_t)p[3] << 24);
}
inline void AppendU16(std::vector<uint8_t> *out, uint16_t v) {
  out->push_back((uint8_t)(v & 0xff));
  out->push_back((uint8_t)(v >> 8));
}

inline void PutQmiHeader(uint8_t *p, const QmiHeader &h) {
  p[0] = h.type;
  PutU16(p + 1, h.txn);
  PutU16(p + 3, h.msg_id);
  PutU16(p + 5, h.len);
}

/* False when the message is shorter than a header or its length field disagrees with it. */
inline bool ParseQmiHeader(const uint8_t *msg, size_t len, QmiHeader *h) {
  if (msg == nullptr || len < kQmiHeaderLen) return false;
  h->type = msg[0];
  h->txn = GetU16(msg + 1);
  h->msg_id = GetU16(msg + 3);
  h->len = GetU16(msg + 5);
  return (size_t)h->len == len - kQmiHeaderLen;
}

/*
 * One socket frame: a 16-byte header (op, 3 zero bytes, service, arg, client) then a payload.
 * The connection starts with kHello from the client; the server answers with one kServiceUp per
 * service up and kHelloDone, and from then on pushes kServiceUp / kServiceDown as they happen.
 */
enum Op : uint8_t {
  kHello = 1,         /* c->s */
  kHelloDone = 2,     /* s->c */
  kServiceUp = 3,     /* s->c: service, arg = instance */
  kServiceDown = 4,   /* s->c: service, arg = instance */
  kOpen = 5,          /* c->s: service, arg = instance, client = cookie */
  kOpenResult = 6,    /* s->c: arg = status, client = cookie, payload u32 client id */
  kClose = 7,         /* c->s: client */
  kMessage = 8,       /* both: client, payload QMI header + TLVs */
  kTxnError = 9,      /* s->c: client, arg = error, payload u16 txn */
  kControl = 10,      /* c->s: payload = words separated by NUL (simulator control) */
  kControlReply = 11, /* s->c: arg = exit status, payload = text */
  kTrace = 12,        /* c->s: payload as kControl ("trace" and its words); answered with a
                         kControlReply, then from status 0 on one kTraceLine per entry */
  kTraceLine = 13     /* s->c: payload = one trace entry, rendered */
};

constexpr size_t kFrameHeaderLen = 16;
constexpr size_t kMaxFrameLen = kFrameHeaderLen + kQmiHeaderLen + 65535;

struct FrameHeader {
  uint8_t op;
  uint32_t service;
  uint32_t arg;
  uint32_t client;
};

inline void PutFrameHeader(uint8_t *p, const FrameHeader &h) {
  p[0] = h.op;
  p[1] = p[2] = p[3] = 0;
  PutU32(p + 4, h.service);
  PutU32(p + 8, h.arg);
  PutU32(p + 12, h.client);
}

/* Sends one frame (header then body) as one packet. False unless all of it went. */
inline bool SendFrame(int fd, const FrameHeader &h, const uint8_t *body, size_t body_len) {
  uint8_t head[kFrameHeaderLen];
  PutFrameHeader(head, h);
  iovec iov[2] = {{head, sizeof(head)}, {const_cast<uint8_t *>(body), body_len}};
  msghdr mh{};
  mh.msg_iov = iov;
  mh.msg_iovlen = body_len > 0 ? 2 : 1;
  ssize_t n;
  do {
    n = sendmsg(fd, &mh, MSG_NOSIGNAL);
  } while (n < 0 && errno == EINTR);
  return n == (ssize_t)(sizeof(head) + body_len);
}

inline bool ParseFrameHeader(const uint8_t *p, size_t len, FrameHeader *h) {
  if (len < kFrameHeaderLen) return false;
  h->op = p[0];
  h->service = GetU32(p + 4);
  h->arg = GetU32(p + 8);
  h->client = GetU32(p + 12);
  return true;
}

}  // namespace wire
}  // namespace qmi_host

#endif /* __cplusplus */

#endif /* TARVIK_PLATFORM_QMI_CLIENT_HOST_H */
