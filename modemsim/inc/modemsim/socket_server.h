// Serves a modem over a SOCK_SEQPACKET Unix socket (the framing of qmi_host::wire): each
// connection is a client sink of the modem; kControl frames run control commands. Used by
// tarvik-modemd and by tests of the socket transport.
#pragma once

#include <sys/types.h>

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

  // Binds and listens at `path` and starts serving on a thread of its own. A stale socket at
  // `path` (one nobody answers on) is replaced; anything else there (a file, a directory, the
  // live socket of another server) is left alone and refused. False on failure, with errno set
  // and the reason in *error (may be null).
  bool Start(const std::string &path, std::string *error = nullptr);
  // Stops serving and removes the socket file, if it is still the one Start created.
  void Stop();

 private:
  class Connection;
  bool Listen(const std::string &path, std::string *error);
  void AcceptLoop();

  Modem &modem_;
  std::string path_;
  dev_t socket_dev_ = 0;  // the socket file Start created
  ino_t socket_ino_ = 0;
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
