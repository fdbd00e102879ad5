// Serves a modem over a SOCK_SEQPACKET Unix socket (the framing of qmi_host::wire): each
// connection is a client sink of the modem; kControl frames run control commands; a kTrace
// frame turns the connection into a stream of the modem's trace. One thread reads and answers
// every connection, so that dozens of processes cost no thread each and their requests reach
// the modem in turn rather than as threads queuing on its locks; a trace stream gets a thread of
// its own, since it waits on its reader. Used by tarvik-modemd and by tests of the socket
// transport.
#pragma once

#include <stdint.h>
#include <sys/types.h>

#include <memory>
#include <string>
#include <thread>
#include <unordered_map>
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
  void Serve();
  void Accept();
  void Read(int fd);

  Modem &modem_;
  std::string path_;
  dev_t socket_dev_ = 0;  // the socket file Start created
  ino_t socket_ino_ = 0;
  int listen_fd_ = -1;
  int epoll_fd_ = -1;
  int wake_fd_ = -1;  // an eventfd: Stop wakes the serving thread with it
  std::thread thread_;
  // The serving thread's alone while it runs: the frame being read, the connections it reads
  // (by descriptor) and those that follow the trace on threads of their own.
  std::vector<uint8_t> buf_;
  std::unordered_map<int, std::unique_ptr<Connection>> connections_;
  std::vector<std::unique_ptr<Connection>> tracing_;
};

// Client side of the control frames: runs a control command in the daemon at `path`. Returns
// its exit status (output in *out), or -1 when the daemon cannot be reached (errno set).
int SendControlCommand(const std::string &path, const std::vector<std::string> &words,
                       std::string *out);

// Client side of a trace: follows the trace of the daemon at `path` (modemsim/trace.h).
class TraceFollower {
 public:
  TraceFollower() = default;
  ~TraceFollower();
  TraceFollower(const TraceFollower &) = delete;
  TraceFollower &operator=(const TraceFollower &) = delete;

  // Asks for the trace `words` name ("trace [SERVICE...]", "--json" first for JSON entries).
  // Returns the daemon's verdict as a control command's exit status (0: following; its text in
  // *out), or -1 when the daemon cannot be reached (errno set).
  int Start(const std::string &path, const std::vector<std::string> &words, std::string *out);
  // The next entry, waiting up to `timeout_ms`: 1 with *entry, 0 when none came, -1 when the
  // daemon ended the trace (it went away).
  int Next(std::string *entry, int timeout_ms);

 private:
  int fd_ = -1;
  std::vector<uint8_t> buf_;
};

}  // namespace modemsim
