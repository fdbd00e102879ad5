// How the QMUX transport reaches its device: a link hands it a descriptor that carries QMUX
// frames both ways. "qmux:PATH" opens the character device itself; "qmi-proxy:PATH" reaches it
// through libqmi's proxy, which shares the device between the processes that use it.
#pragma once

#include <sys/types.h>
#include <unistd.h>

#include <memory>
#include <string>

#include "cci_internal.h"

namespace qmi_cci {

class QmuxLink {
 public:
  virtual ~QmuxLink() = default;
  // A descriptor carrying QMUX frames, or -1 (the transport tries again a little later). Runs on
  // the transport's reader thread; `wake` turns readable when the transport stops, and a link
  // that waits for something gives up then.
  virtual int Open(int wake) = 0;
  // As write(2) on a descriptor Open returned.
  virtual ssize_t Write(int fd, const void *data, size_t len) { return write(fd, data, len); }
  // The descriptor failed or hung up while the transport was running.
  virtual void Lost() {}
  // The descriptor was open but nothing answered the version list while the selection waited
  // (called on the selecting thread).
  virtual void Unanswered() {}
  // Whether the client ids still open are released before the transport closes the descriptor
  // when it stops (a proxy keeps the ids of a connection that goes).
  virtual bool ReleaseOnClose() const { return false; }
};

// The QMUX transport over `link`; *error as for MakeQmuxTransport(sink, path, error).
std::unique_ptr<Transport> MakeQmuxTransport(qmi_host::ClientSink *sink,
                                             std::unique_ptr<QmuxLink> link, int *error);

// "qmi-proxy:PATH": the QMUX transport through libqmi's proxy, which opens PATH for it. *error
// gets QMI_CLIENT_TRANSPORT_ERR when the first attempt (proxy started if none listens, device
// opened, services listed) failed; the transport keeps trying.
std::unique_ptr<Transport> MakeQmiProxyTransport(qmi_host::ClientSink *sink,
                                                 const std::string &path, int *error);

}  // namespace qmi_cci
