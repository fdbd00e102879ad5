// Serves a modem over a SOCK_SEQPACKET Unix socket (the framing of qmi_host::wire): each
// connection is a client sink of the modem; kControl frames run control commands. Used by
// tarvik-modemd and by tests of the socket transport.
#pragma once

#include <atomic>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "modemsim/modem.h"

namespace modemsim {

class SocketServer {
 public:
  explicit SocketServer(Modem &modem);
  ~SocketServer();  // stops accepting, closes every connection
  SocketServer(const SocketServer &) = delete;
  SocketServer &operator=(const SocketServer &) = delete;

  // Binds and listens at `path` (an existing socket file is replaced) and starts serving on
  // a thread of its own. False with errno set on failure.
  bool Start(const std::string &path);
  void Stop();

 private:
  class Connection;
  void AcceptLoop();

  Modem &modem_;
  std::string path_;
  int listen_fd_ = -1;
  int wake_fd_[2] = {-1, -1};
  std::thread accept_thread_;
  std::mutex mu_;
  std::vector<std::unique_ptr<Connection>> connections_;
};

// Client side of the control frames: runs a control command in the daemon at `path`. Returns
// its exit status (output in *out), or -1 when the daemon cannot be reached (errno set).
int SendControlCommand(const std::string &path, const std::vector<std::string> &words,
                       std::string *out);

}  // namespace modemsim
