// The simulated modem's QMUX device: where it may put its link, what a control point sees of a
// service that restarts, and what a sync does.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "modemsim/modem.h"
#include "modemsim/qmux_server.h"
#include "qmux_frame.h"
#include "sar_v01.h"
#include "test_env.h"

namespace {

TEST(QmuxServerTest, TakesOnlyAFreePathOrAStaleTerminalLink) {
  struct Row {
    const char *name;
    const char *make;  // shell command run on $P first ("" leaves the path free)
    bool served;
  };
  const Row rows[] = {
      {"free", "", true},
      {"stale terminal link", "ln -s /dev/pts/4095 $P", true},
      {"regular file", "echo keep > $P", false},
      {"directory", "mkdir $P", false},
      {"link elsewhere", "ln -s /etc/hostname $P", false},
  };
  auto modem = modemsim::CreateStandardModem("");
  int n = 0;
  for (const Row &row : rows) {
    SCOPED_TRACE(row.name);
    const std::string path = tarvik_test::ScratchDir() + "/dev" + std::to_string(n++);
    if (*row.make != '\0') {
      ASSERT_EQ(system(("P=" + path + "; " + row.make).c_str()), 0);
    }
    struct stat before;
    const bool existed = lstat(path.c_str(), &before) == 0;
    modemsim::QmuxServer server(*modem);
    std::string error;
    ASSERT_EQ(server.Start(path, &error), row.served) << error;
    struct stat after;
    ASSERT_EQ(lstat(path.c_str(), &after), 0);
    if (row.served) {
      char target[64] = {};
      ASSERT_GT(readlink(path.c_str(), target, sizeof(target) - 1), 0);
      EXPECT_EQ(server.device(), target);
      server.Stop();
      EXPECT_NE(lstat(path.c_str(), &after), 0);  // the link goes with the server
    } else {
      EXPECT_TRUE(existed && after.st_ino == before.st_ino);  // left alone
      EXPECT_FALSE(error.empty());
    }
  }
}

// A control point on the device: sends frames, collects the frames the modem sends back within
// `wait_ms`.
class ControlPoint {
 public:
  explicit ControlPoint(const std::string &path) : fd_(open(path.c_str(), O_RDWR | O_NOCTTY)) {}
  ~ControlPoint() {
    if (fd_ >= 0) close(fd_);
  }
  void Send(uint8_t service, uint8_t client, uint16_t txn, uint16_t msg_id,
            const std::vector<uint8_t> &tlvs) {
    qmux::Frame f;
    f.service = service;
    f.client = client;
    f.txn = txn;
    f.msg_id = msg_id;
    f.tlv = tlvs.data();
    f.tlv_len = tlvs.size();
    std::vector<uint8_t> bytes;
    ASSERT_TRUE(qmux::AppendFrame(f, &bytes));
    ASSERT_EQ(write(fd_, bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size()));
  }
  // (service, msg_id, first byte of TLV 0x01 or 0xFF) of each frame received.
  std::vector<std::vector<uint8_t>> Receive(int wait_ms) {
    std::vector<std::vector<uint8_t>> got;
    uint8_t buf[4096];
    pollfd p{fd_, POLLIN, 0};
    while (poll(&p, 1, wait_ms) > 0) {
      const ssize_t n = read(fd_, buf, sizeof(buf));
      if (n <= 0) break;
      reader_.Append(buf, static_cast<size_t>(n));
      qmux::Frame f;
      while (reader_.Next(&f)) {
        const uint8_t *v = nullptr;
        uint16_t len = 0;
        const bool has = qmux::FindTlv(f.tlv, f.tlv_len, 0x01, &v, &len) && len >= 2;
        got.push_back({f.service, static_cast<uint8_t>(f.msg_id), has ? v[1] : uint8_t{0xFF}});
      }
    }
    return got;
  }
  bool ok() const { return fd_ >= 0; }

 private:
  int fd_;
  qmux::FrameReader reader_;
};

TEST(QmuxServerTest, ARestartingServiceRevokesItsClientIdsAndAnswersNothingUntilItIsBack) {
  auto modem = modemsim::CreateStandardModem("");
  modemsim::QmuxServer server(*modem);
  const std::string path = tarvik_test::ScratchDir() + "/qmux";
  ASSERT_TRUE(server.Start(path));
  ControlPoint cp(path);
  ASSERT_TRUE(cp.ok());
  constexpr uint8_t kSar = SAR_QMI_SERVICE_ID_V01;
  cp.Send(qmux::kControlService, 0, 1, qmux::kCtlAllocateClientId, {0x01, 0x01, 0x00, kSar});
  auto got = cp.Receive(500);
  ASSERT_EQ(got.size(), 1u);
  const uint8_t id = got[0][2];
  ASSERT_NE(id, 0xFF);
  cp.Send(kSar, id, 1, QMI_SAR_RF_GET_STATE_REQ_MSG_V01, {});
  EXPECT_EQ(cp.Receive(500).size(), 1u);

  ASSERT_EQ(modem->Restart(SAR_QMI_SERVICE_ID_V01, 1500), QMI_NO_ERR);
  using Frames = std::vector<std::vector<uint8_t>>;
  EXPECT_EQ(cp.Receive(300), (Frames{{qmux::kControlService, qmux::kCtlRevokeClientId, id}}));
  cp.Send(kSar, id, 2, QMI_SAR_RF_GET_STATE_REQ_MSG_V01, {});
  EXPECT_TRUE(cp.Receive(300).empty());  // down: silence
  cp.Send(qmux::kControlService, 0, 2, qmux::kCtlAllocateClientId, {0x01, 0x01, 0x00, kSar});
  got = cp.Receive(300);
  ASSERT_EQ(got.size(), 1u);
  EXPECT_EQ(got[0][2], 0xFF);  // refused: no client id while the service is away
  usleep(1500 * 1000);
  cp.Send(qmux::kControlService, 0, 3, qmux::kCtlAllocateClientId, {0x01, 0x01, 0x00, kSar});
  got = cp.Receive(500);
  ASSERT_EQ(got.size(), 1u);
  ASSERT_NE(got[0][2], 0xFF);
  cp.Send(kSar, got[0][2], 3, QMI_SAR_RF_GET_STATE_REQ_MSG_V01, {});
  EXPECT_EQ(cp.Receive(500).size(), 1u);
  EXPECT_EQ(modem->ReceivedBy(SAR_QMI_SERVICE_ID_V01).size(), 2u);
  // A sync releases every client id of the device.
  cp.Send(qmux::kControlService, 0, 4, qmux::kCtlSync, {});
  EXPECT_EQ(cp.Receive(300).size(), 1u);
  EXPECT_TRUE(modem->Clients(SAR_QMI_SERVICE_ID_V01).empty());
}

}  // namespace
