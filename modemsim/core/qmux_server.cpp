// QMUX on a pseudo-terminal (framing in qmux_frame.h).
#include "modemsim/qmux_server.h"

#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <vector>

namespace modemsim {

namespace {

// Errors the control service answers with (QMI protocol error codes).
constexpr uint16_t kErrMissingArg = QMI_ERR_MISSING_ARG_V01;
constexpr uint16_t kErrInvalidServiceType = QMI_ERR_INVALID_SERVICE_TYPE_V01;
constexpr uint16_t kErrInvalidClientId = QMI_ERR_INVALID_CLIENT_ID_V01;
constexpr uint16_t kErrClientIdsExhausted = QMI_ERR_CLIENT_IDS_EXHAUSTED_V01;
constexpr uint8_t kResultTlv = 0x02;
// The version the control service reports for itself.
constexpr uint16_t kControlMajor = 1, kControlMinor = 5;

void AppendResult(std::vector<uint8_t> *tlvs, uint16_t error) {
  const uint8_t v[4] = {static_cast<uint8_t>(error != 0), 0, static_cast<uint8_t>(error & 0xFF),
                        static_cast<uint8_t>(error >> 8)};
  qmux::AppendTlv(tlvs, kResultTlv, v, sizeof(v));
}

// A control-service frame from the modem; `tlvs` must outlive it.
qmux::Frame ControlFrame(qmux::Kind kind, uint16_t txn, uint16_t msg_id,
                         const std::vector<uint8_t> &tlvs) {
  return qmux::ControlFrame(qmux::kFromModem, kind, txn, msg_id, tlvs.data(), tlvs.size());
}

// A control-service frame as a trace entry of the modem (`received`: from the control point).
void TraceControl(Modem &modem, const qmux::Frame &f, bool received) {
  if (!modem.tracing()) return;
  modem.Trace(qmi_trace::MessageEntry(qmi_trace::ControlService(), qmux::kControlService, f.client,
                                      received, qmux::MessageType(f.kind), f.msg_id, f.txn, f.tlv,
                                      f.tlv_len));
}

// Clears `path` for the link: nothing there, or a link into /dev/pts/ (removed).
bool ClaimLink(const std::string &path, std::string *error) {
  struct stat st;
  if (lstat(path.c_str(), &st) != 0) {
    if (errno == ENOENT) return true;
    *error = path + ": " + strerror(errno);
    return false;
  }
  char target[256];
  const ssize_t n = S_ISLNK(st.st_mode) ? readlink(path.c_str(), target, sizeof(target) - 1) : -1;
  if (n < 0 || strncmp(target, "/dev/pts/", 9) != 0 || static_cast<size_t>(n) < 9) {
    *error = path + " exists and is not a link to a pseudo-terminal; not replacing it";
    errno = EEXIST;
    return false;
  }
  if (unlink(path.c_str()) != 0) {
    *error = path + ": " + strerror(errno);
    return false;
  }
  return true;
}

}  // namespace

QmuxServer::QmuxServer(Modem &modem) : modem_(modem) {}

QmuxServer::~QmuxServer() {
  Stop();
}

bool QmuxServer::Start(const std::string &path, std::string *error) {
  std::string why;
  if (master_ >= 0) {
    why = "already serving on " + path_;
  } else if (ClaimLink(path, &why)) {
    master_ = posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
    const char *name = master_ >= 0 && grantpt(master_) == 0 && unlockpt(master_) == 0
                           ? ptsname(master_)
                           : nullptr;
    if (name != nullptr) {
      device_ = name;
      slave_ = open(name, O_RDWR | O_NOCTTY | O_CLOEXEC);
    }
    termios tio;
    if (slave_ < 0 || tcgetattr(slave_, &tio) != 0 || (cfmakeraw(&tio), false) ||
        tcsetattr(slave_, TCSANOW, &tio) != 0 || pipe2(wake_, O_CLOEXEC) != 0 ||
        fcntl(master_, F_SETFL, O_NONBLOCK) != 0 || symlink(name, path.c_str()) != 0) {
      why = path + ": " + strerror(errno);
      for (int *fd : {&master_, &slave_, &wake_[0], &wake_[1]}) {
        if (*fd >= 0) close(*fd);
        *fd = -1;
      }
      device_.clear();
    }
  }
  if (master_ < 0) {
    if (error != nullptr) *error = why;
    return false;
  }
  path_ = path;
  modem_.Attach(this);
  reader_ = std::thread([this] { ReadLoop(); });
  return true;
}

void QmuxServer::Stop() {
  if (master_ < 0) return;
  const char byte = 0;
  while (write(wake_[1], &byte, 1) < 0 && errno == EINTR) {
  }
  reader_.join();
  modem_.Detach(this);  // closes the clients opened through this server
  char target[256];
  const ssize_t n = readlink(path_.c_str(), target, sizeof(target) - 1);
  if (n >= 0 && device_ == std::string(target, static_cast<size_t>(n))) unlink(path_.c_str());
  for (int *fd : {&master_, &slave_, &wake_[0], &wake_[1]}) {
    close(*fd);
    *fd = -1;
  }
  std::lock_guard<std::mutex> lock(mu_);
  clients_.clear();
  by_modem_client_.clear();
}

uint64_t QmuxServer::dropped_bytes() const {
  std::lock_guard<std::mutex> lock(mu_);
  return dropped_;
}

void QmuxServer::ReadLoop() {
  qmux::FrameReader reader;
  std::vector<uint8_t> buf(4096);
  for (;;) {
    pollfd fds[2] = {{master_, POLLIN, 0}, {wake_[0], POLLIN, 0}};
    if (poll(fds, 2, -1) < 0) {
      if (errno == EINTR) continue;
      return;
    }
    if (fds[1].revents != 0) return;
    const ssize_t n = read(master_, buf.data(), buf.size());
    if (n <= 0) {
      if (n < 0 && (errno == EINTR || errno == EAGAIN)) continue;
      usleep(1000);  // no control point at the moment
      continue;
    }
    reader.Append(buf.data(), static_cast<size_t>(n));
    qmux::Frame f;
    while (reader.Next(&f)) {
      std::vector<uint8_t> bytes;
      if (tap_ && qmux::AppendFrame(f, &bytes)) tap_(bytes.data(), bytes.size());
      if (f.sender != qmux::kFromControlPoint || f.kind != qmux::Kind::kRequest) continue;
      if (f.service == qmux::kControlService) {
        HandleControl(f);
      } else {
        HandleService(f);
      }
    }
    std::lock_guard<std::mutex> lock(mu_);
    dropped_ = reader.dropped_bytes();
  }
}

void QmuxServer::HandleControl(const qmux::Frame &request) {
  TraceControl(modem_, request, true);
  std::vector<uint8_t> tlvs;
  uint16_t error = 0;
  const uint8_t *v = nullptr;
  uint16_t vlen = 0;
  switch (request.msg_id) {
    case qmux::kCtlGetVersionInfo: {
      std::vector<uint8_t> list{1};
      list.push_back(qmux::kControlService);
      qmi_host::wire::AppendU16(&list, kControlMajor);
      qmi_host::wire::AppendU16(&list, kControlMinor);
      for (const ServiceStatus &s : modem_.Status()) {
        const Service *service = modem_.FindService(s.id);
        if (s.id > 0xFF || !s.up || service == nullptr || service->object() == nullptr) continue;
        ++list[0];
        list.push_back(static_cast<uint8_t>(s.id));
        qmi_host::wire::AppendU16(&list, static_cast<uint16_t>(service->object()->idl_version));
        qmi_host::wire::AppendU16(&list,
                                  static_cast<uint16_t>(service->object()->idl_minor_version));
      }
      qmux::AppendTlv(&tlvs, 0x01, list.data(), static_cast<uint16_t>(list.size()));
      break;
    }
    case qmux::kCtlAllocateClientId: {
      if (!qmux::FindTlv(request.tlv, request.tlv_len, 0x01, &v, &vlen) || vlen < 1) {
        error = kErrMissingArg;
        break;
      }
      const uint8_t service = v[0];
      uint32_t modem_client = 0;
      if (service == qmux::kControlService ||
          modem_.Open(this, service, QMI_CLIENT_INSTANCE_ANY, &modem_client) != QMI_NO_ERR) {
        error = kErrInvalidServiceType;
        break;
      }
      std::unique_lock<std::mutex> lock(mu_);
      uint8_t id = 1;
      while (id < qmux::kBroadcastClient && clients_.count({service, id}) != 0) ++id;
      if (id == qmux::kBroadcastClient) {
        lock.unlock();
        modem_.Close(modem_client);
        error = kErrClientIdsExhausted;
        break;
      }
      clients_[{service, id}] = modem_client;
      by_modem_client_[modem_client] = {service, id};
      lock.unlock();
      // A service that went down between the open and the line above dropped the client before
      // this id could be revoked with the others: refuse it as if the service had been away.
      const std::vector<uint32_t> alive = modem_.Clients(service);
      if (std::find(alive.begin(), alive.end(), modem_client) == alive.end()) {
        lock.lock();
        if (by_modem_client_.erase(modem_client) != 0) clients_.erase({service, id});
        error = kErrInvalidServiceType;
        break;
      }
      const uint8_t out[2] = {service, id};
      qmux::AppendTlv(&tlvs, 0x01, out, sizeof(out));
      break;
    }
    case qmux::kCtlReleaseClientId: {
      if (!qmux::FindTlv(request.tlv, request.tlv_len, 0x01, &v, &vlen) || vlen < 2) {
        error = kErrMissingArg;
        break;
      }
      uint32_t modem_client = 0;
      {
        std::lock_guard<std::mutex> lock(mu_);
        auto it = clients_.find({v[0], v[1]});
        if (it != clients_.end()) {
          modem_client = it->second;
          by_modem_client_.erase(it->second);
          clients_.erase(it);
        }
      }
      if (modem_client == 0) {
        error = kErrInvalidClientId;
        break;
      }
      modem_.Close(modem_client);
      qmux::AppendTlv(&tlvs, 0x01, v, 2);
      break;
    }
    case qmux::kCtlSync: {
      // A control point starting afresh: every client id handed out on the device is released.
      std::vector<uint32_t> gone;
      {
        std::lock_guard<std::mutex> lock(mu_);
        for (const auto &c : clients_) gone.push_back(c.second);
        clients_.clear();
        by_modem_client_.clear();
      }
      for (uint32_t c : gone) modem_.Close(c);
      break;
    }
    default:
      error = 0x005E;  // not supported
      break;
  }
  AppendResult(&tlvs, error);
  const qmux::Frame response =
      ControlFrame(qmux::Kind::kResponse, request.txn, request.msg_id, tlvs);
  TraceControl(modem_, response, false);
  Write(response);
}

void QmuxServer::HandleService(const qmux::Frame &request) {
  uint32_t modem_client = 0;
  {
    std::lock_guard<std::mutex> lock(mu_);
    auto it = clients_.find({request.service, request.client});
    if (it == clients_.end()) return;  // unknown client id: a modem stays silent
    modem_client = it->second;
  }
  // A service frame's QMI message is the modem's own message format: header, then TLVs.
  const uint8_t *msg = request.tlv - qmux::kServiceQmiHeaderLen;
  (void)modem_.Deliver(modem_client, msg, qmux::kServiceQmiHeaderLen + request.tlv_len);
}

void QmuxServer::OnServiceUp(uint32_t, uint32_t) {}

void QmuxServer::OnServiceDown(uint32_t service_id, uint32_t) {
  // The modem dropped the service's clients: their ids are free again, and each control point
  // is told that its id was revoked, as a modem whose service restarts does.
  std::vector<std::pair<uint8_t, uint8_t>> revoked;
  {
    std::lock_guard<std::mutex> lock(mu_);
    for (auto it = clients_.begin(); it != clients_.end();) {
      if (it->first.first == service_id) {
        revoked.push_back(it->first);
        by_modem_client_.erase(it->second);
        it = clients_.erase(it);
      } else {
        ++it;
      }
    }
  }
  for (const auto &id : revoked) {
    const uint8_t value[2] = {id.first, id.second};
    std::vector<uint8_t> tlvs;
    qmux::AppendTlv(&tlvs, 0x01, value, sizeof(value));
    const qmux::Frame revoked =
        ControlFrame(qmux::Kind::kIndication, 0, qmux::kCtlRevokeClientId, tlvs);
    TraceControl(modem_, revoked, false);
    Write(revoked);
  }
}

void QmuxServer::OnMessage(uint32_t client, const uint8_t *msg, size_t len) {
  qmi_host::wire::QmiHeader h;
  if (!qmi_host::wire::ParseQmiHeader(msg, len, &h)) return;
  qmux::Frame frame;
  {
    std::lock_guard<std::mutex> lock(mu_);
    auto it = by_modem_client_.find(client);
    if (it == by_modem_client_.end()) return;
    frame.service = it->second.first;
    frame.client = it->second.second;
  }
  frame.sender = qmux::kFromModem;
  frame.kind =
      h.type == qmi_host::wire::kQmiIndication ? qmux::Kind::kIndication : qmux::Kind::kResponse;
  frame.txn = h.txn;
  frame.msg_id = h.msg_id;
  frame.tlv = msg + qmi_host::wire::kQmiHeaderLen;
  frame.tlv_len = h.len;
  Write(frame);
}

// A request the modem could not take (its service went down): a real modem says nothing.
void QmuxServer::OnTxnError(uint32_t, uint16_t, int) {}

void QmuxServer::Write(const qmux::Frame &frame) {
  std::vector<uint8_t> bytes;
  if (!qmux::AppendFrame(frame, &bytes)) return;
  if (tap_) tap_(bytes.data(), bytes.size());
  std::lock_guard<std::mutex> lock(write_mu_);
  size_t done = 0;
  while (done < bytes.size()) {
    const ssize_t n = write(master_, bytes.data() + done, bytes.size() - done);
    if (n > 0) {
      done += static_cast<size_t>(n);
      continue;
    }
    if (n < 0 && errno == EINTR) continue;
    // Nobody reads the device: wait a little, then drop the rest as a full device would.
    pollfd p = {master_, POLLOUT, 0};
    if (n < 0 && errno == EAGAIN && poll(&p, 1, 100) > 0) continue;
    return;
  }
}

}  // namespace modemsim
