// Serves a modem as a QMI character device would: QMUX frames on a pseudo-terminal in raw mode,
// reached through a symbolic link to its slave side. The control service (0x00) allocates and
// releases client ids, reports versions and syncs (releasing every client id); every hosted service
// whose id fits in 8 bits is reached through the modem's qmi_host::Server interface. While a
// service is down its requests go unanswered, as on a real modem, and the client ids it had are
// revoked (control indication 0x0024 to each). A transport-error fault has no form on a device:
// the request goes unanswered. Used by tarvik-modemd --qmux and by the tests that run the library
// over QMUX.
#pragma once

#include <stdint.h>

#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "modemsim/modem.h"
#include "qmux_frame.h"

namespace modemsim {

class QmuxServer final : public qmi_host::ClientSink {
 public:
  explicit QmuxServer(Modem &modem);
  ~QmuxServer() override;  // Stop()
  QmuxServer(const QmuxServer &) = delete;
  QmuxServer &operator=(const QmuxServer &) = delete;

  // Sees every frame read from the control point and every frame written to it, as its bytes,
  // on the thread that reads or writes it. Set before Start.
  using FrameTap = std::function<void(const uint8_t *frame, size_t len)>;
  void SetFrameTap(FrameTap tap) { tap_ = std::move(tap); }

  // Opens the pseudo-terminal and links `path` to its slave side. Nothing may be at `path` but
  // a symbolic link into /dev/pts/ (left by an earlier server; replaced); anything else is
  // refused. False on failure with the reason in *error (may be null).
  bool Start(const std::string &path, std::string *error = nullptr);
  // Stops serving, closes every client it opened and removes the link if it is still its own.
  void Stop();
  // The slave side's device name ("/dev/pts/N"), empty before Start.
  const std::string &device() const { return device_; }
  // Frames of the control point that were not QMUX and were dropped.
  uint64_t dropped_bytes() const;

  // qmi_host::ClientSink
  void OnServiceUp(uint32_t service_id, uint32_t instance) override;
  void OnServiceDown(uint32_t service_id, uint32_t instance) override;
  void OnMessage(uint32_t client, const uint8_t *msg, size_t len) override;
  void OnTxnError(uint32_t client, uint16_t txn, int error) override;

 private:
  void ReadLoop();
  void HandleControl(const qmux::Frame &request);
  void HandleService(const qmux::Frame &request);
  void Write(const qmux::Frame &frame);

  Modem &modem_;
  std::string path_, device_;
  int master_ = -1;
  int slave_ = -1;  // kept open: the master sees no hang-up between control points
  int wake_[2] = {-1, -1};
  std::thread reader_;
  std::mutex write_mu_;
  mutable std::mutex mu_;
  uint64_t dropped_ = 0;
  FrameTap tap_;
  // (service, client id) <-> the modem's client.
  std::map<std::pair<uint8_t, uint8_t>, uint32_t> clients_;
  std::map<uint32_t, std::pair<uint8_t, uint8_t>> by_modem_client_;
};

}  // namespace modemsim
