// One request round trip through each transport of the QMI client library, against a raw
// baseline in the same run: a condition-variable hand-off between two threads for the
// in-process transport, a SOCK_SEQPACKET ping-pong between two threads for the socket
// transport. The simulated modem answers an in-process request on the caller's thread, so that
// case has no hand-off at all; BM_InprocRoundTripHandOff has it answer on its own thread, the
// like-for-like comparison with the raw hand-off. The program prints the ratios at the end
// (target: at most 1.5).
#include <benchmark/benchmark.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <unistd.h>

#include <condition_variable>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "bench_ratio.h"
#include "modemsim/echo_service.h"
#include "modemsim/modem.h"
#include "modemsim/socket_server.h"
#include "qmi_client.h"
#include "qmi_client_host.h"

namespace {

namespace echo = modemsim::echo;

// The request every case carries: a value and 16 data bytes (37 bytes of TLVs).
constexpr size_t kPayload = 16;
// What a raw baseline moves each way: the same bytes as the framed request.
constexpr size_t kRawBytes = qmi_host::wire::kFrameHeaderLen + qmi_host::wire::kQmiHeaderLen + 37;

void BM_RawCondvarHandOff(benchmark::State &state) {
  std::mutex mu;
  std::condition_variable cv;
  uint8_t request[kRawBytes] = {1}, reply[kRawBytes];
  uint8_t mailbox[kRawBytes];
  int turn = 0;  // 0 idle, 1 request posted, 2 reply posted, 3 stop
  std::thread peer([&] {
    std::unique_lock<std::mutex> lock(mu);
    for (;;) {
      cv.wait(lock, [&] { return turn == 1 || turn == 3; });
      if (turn == 3) return;
      mailbox[0] ^= 1;  // the peer's "work": answer with the bytes it got
      turn = 2;
      cv.notify_all();
    }
  });
  for (auto _ : state) {
    std::unique_lock<std::mutex> lock(mu);
    memcpy(mailbox, request, sizeof(mailbox));
    turn = 1;
    cv.notify_all();
    cv.wait(lock, [&] { return turn == 2; });
    memcpy(reply, mailbox, sizeof(reply));
    turn = 0;
    benchmark::DoNotOptimize(reply);
  }
  {
    std::lock_guard<std::mutex> lock(mu);
    turn = 3;
  }
  cv.notify_all();
  peer.join();
}
BENCHMARK(BM_RawCondvarHandOff)->UseRealTime();

void BM_RawSeqpacketPingPong(benchmark::State &state) {
  int fds[2];
  if (socketpair(AF_UNIX, SOCK_SEQPACKET, 0, fds) != 0) {
    state.SkipWithError("socketpair failed");
    return;
  }
  std::thread peer([&] {
    uint8_t buf[qmi_host::wire::kMaxFrameLen];
    for (;;) {
      const ssize_t n = recv(fds[1], buf, sizeof(buf), 0);
      if (n <= 0 || send(fds[1], buf, (size_t)n, MSG_NOSIGNAL) != n) return;
    }
  });
  uint8_t request[kRawBytes] = {1};
  std::vector<uint8_t> reply(qmi_host::wire::kMaxFrameLen);
  for (auto _ : state) {
    if (send(fds[0], request, sizeof(request), MSG_NOSIGNAL) != (ssize_t)sizeof(request) ||
        recv(fds[0], reply.data(), reply.size(), 0) <= 0) {
      state.SkipWithError("ping-pong failed");
      break;
    }
  }
  shutdown(fds[0], SHUT_RDWR);
  peer.join();
  close(fds[0]);
  close(fds[1]);
}
BENCHMARK(BM_RawSeqpacketPingPong)->UseRealTime();

// A modem with the echo service and one client of it over the chosen transport.
struct Rig {
  modemsim::Modem modem;
  std::unique_ptr<modemsim::SocketServer> server;
  qmi_client_type client = nullptr;

  Rig(bool socket, bool on_worker) {
    echo::AddTo(modem);
    modem.SetAnswerOnWorker(on_worker);
    std::string choice = "inproc";
    if (socket) {
      const std::string path = "/tmp/tarvik-bench-transport-" + std::to_string(getpid());
      server = std::make_unique<modemsim::SocketServer>(modem);
      if (!server->Start(path)) return;
      choice = "unix:" + path;
    } else {
      modem.ServeInProcess();
    }
    if (qmi_client_host_select_transport(choice.c_str()) != QMI_NO_ERR) return;
    qmi_client_init_instance(echo::ServiceObject(), QMI_CLIENT_INSTANCE_ANY, nullptr, nullptr,
                             nullptr, 2000, &client);
  }
  ~Rig() {
    if (client != nullptr) qmi_client_release(client);
  }
};

void RoundTrips(benchmark::State &state, bool socket, bool on_worker = false) {
  Rig rig(socket, on_worker);
  if (rig.client == nullptr) {
    state.SkipWithError("no client");
    return;
  }
  auto req = std::make_unique<echo::EchoReq>();
  auto resp = std::make_unique<echo::EchoResp>();
  req->value = 42;
  req->data_valid = 1;
  req->data_len = kPayload;
  for (auto _ : state) {
    const int rc = qmi_client_send_msg_sync(rig.client, echo::kEcho, req.get(), sizeof(*req),
                                            resp.get(), sizeof(*resp), 2000);
    if (rc != QMI_NO_ERR || resp->value != 42) {
      state.SkipWithError("round trip failed");
      break;
    }
  }
}

void BM_InprocRoundTrip(benchmark::State &state) {
  RoundTrips(state, false);
}
BENCHMARK(BM_InprocRoundTrip)->UseRealTime();

void BM_SocketRoundTrip(benchmark::State &state) {
  RoundTrips(state, true);
}
BENCHMARK(BM_SocketRoundTrip)->UseRealTime();

// The in-process transport with the modem answering on its own thread: the same hand-off as the
// raw baseline, plus the library's and the modem's work.
void BM_InprocRoundTripHandOff(benchmark::State &state) {
  RoundTrips(state, false, true);
}
BENCHMARK(BM_InprocRoundTripHandOff)->UseRealTime();

}  // namespace

int main(int argc, char **argv) {
  return tarvik_bench::RunWithRatios(argc, argv, [](const tarvik_bench::RatioReporter &reporter) {
    reporter.PrintRatio("BM_InprocRoundTrip", "BM_RawCondvarHandOff", 1.5);
    reporter.PrintRatio("BM_InprocRoundTripHandOff", "BM_RawCondvarHandOff", 1.5);
    reporter.PrintRatio("BM_SocketRoundTrip", "BM_RawSeqpacketPingPong", 1.5);
  });
}
