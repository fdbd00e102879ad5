// tarvik-soak: radio processes that live through modem restarts. N child processes load the
// library, each with its instance id, and run a mix of real calls against one tarvik-modemd
// (--state DIR) while this controller injects faults: service restarts, restart orders sent
// through the library, the daemon killed with SIGKILL and started again on the same state
// directory, and (over qmux:) client id revocations. At the end it prints, per call kind, the
// calls, failures inside and outside fault windows, throughput and latency percentiles, and the
// checks: every acknowledged write read back, no failure outside a fault window, no call longer
// than its time-out plus one second, and the same file descriptors, threads, radio allocator
// blocks and resident memory in every child after the last fault as after the first.
//
//   tarvik-soak [--processes N] [--seconds S] [--transport unix|qmux] [--faults LIST]
//               [--bin DIR] [--dir DIR] [--quiet-ms MS] [--grace-ms MS]
//   tarvik-soak --scale 1,2,4,... [--seconds S]   aggregate throughput and p99 per process count
//
// Exit status: 0 every check passed, 1 a check failed, 2 bad arguments or the set-up failed.
#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/epoll.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cmath>
#include <condition_variable>
#include <fstream>
#include <map>
#include <mutex>
#include <random>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "../bench_modem.h"
#include "modemsim/socket_server.h"
#include "qcril_alloc_host.h"
#include "qmi_client.h"
#include "qmi_client_host.h"
#include "quiet_library.h"
#include "tarvik_extend_cmn.h"
#include "tarvik_extend_nvefs.h"
#include "tarvik_filter_control.h"
#include "tarvik_utils_cmn.h"

extern char **environ;

namespace {

using std::chrono::milliseconds;

int64_t NowNs() {
  timespec ts;
  clock_gettime(CLOCK_MONOTONIC, &ts);  // one clock for every process of the machine
  return static_cast<int64_t>(ts.tv_sec) * 1000000000 + ts.tv_nsec;
}

// ---- call kinds ----------------------------------------------------------------------------

enum Kind {
  kNvWrite,
  kNvRead,
  kEfsWrite,
  kEfsRead,
  kUimOpen,
  kUimApdu,
  kSarSet,
  kSarGet,
  kNas,
  kNasInit,
  kDfsEnter,
  kDfsExit,
  kKinds
};

struct KindInfo {
  const char *name;
  int timeout_ms;  // the longest single wait the call's path may make
  bool extend;     // needs the extend service (not reachable over qmux:)
};

// Vendor channel: a 3000 ms send. UIM and NAS: the 4000 ms of creating the client. SAR: 30000 ms.
// Data filter: 3000 ms per request. Binding a new NAS client: 4000 ms to create it, then up to 10
// binding attempts of 3000 ms each with 500 ms between them.
constexpr KindInfo kKindInfo[kKinds] = {
    {"nv write", 3000, true},   {"nv read", 3000, true},    {"efs write", 3000, true},
    {"efs read", 3000, true},   {"uim open", 4000, false},  {"uim apdu", 4000, false},
    {"sar set", 30000, false},  {"sar get", 30000, false},  {"nas control", 4000, false},
    {"nas init", 39000, false}, {"dfs enter", 3000, false}, {"dfs exit", 3000, false},
};

// Latency histogram: buckets 5% wide from 1 microsecond.
constexpr int kBuckets = 420;
int BucketOf(int64_t ns) {
  const double us = std::max(1.0, static_cast<double>(ns) / 1000.0);
  return std::min(kBuckets - 1, static_cast<int>(std::log(us) / std::log(1.05)));
}
double BucketUpperMs(int b) {
  return std::pow(1.05, b + 1) / 1000.0;
}

struct KindStats {
  uint64_t calls = 0;
  uint64_t ok = 0;
  int64_t max_ns = 0;
  std::vector<uint64_t> hist = std::vector<uint64_t>(kBuckets);
  void Add(int64_t ns, bool success) {
    ++calls;
    ok += success ? 1 : 0;
    max_ns = std::max(max_ns, ns);
    ++hist[BucketOf(ns)];
  }
  void Merge(const KindStats &o) {
    calls += o.calls;
    ok += o.ok;
    max_ns = std::max(max_ns, o.max_ns);
    for (int i = 0; i < kBuckets; ++i) hist[i] += o.hist[i];
  }
  double PercentileMs(double p) const {
    if (calls == 0) return 0;
    const uint64_t want = static_cast<uint64_t>(std::ceil(p * static_cast<double>(calls)));
    uint64_t seen = 0;
    for (int i = 0; i < kBuckets; ++i) {
      seen += hist[i];
      if (seen >= want && hist[i] > 0) return std::min(BucketUpperMs(i), max_ns / 1e6);
    }
    return max_ns / 1e6;
  }
};

#if defined(__SANITIZE_ADDRESS__)
constexpr bool kRssGrowsByDesign = true;
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
constexpr bool kRssGrowsByDesign = true;
#else
constexpr bool kRssGrowsByDesign = false;
#endif
#else
constexpr bool kRssGrowsByDesign = false;
#endif

struct Failure {
  int kind;
  int64_t start_ns, end_ns;
  int status;
  int worker;
};

// What a process looks like between two calls.
struct Resources {
  long fds = 0, threads = 0, rss_kb = 0;
  int64_t alloc = 0;
};

long CountDir(const char *path) {
  DIR *d = opendir(path);
  if (d == nullptr) return -1;
  long n = 0;
  while (const dirent *e = readdir(d)) n += e->d_name[0] != '.' ? 1 : 0;
  closedir(d);
  return n - (strcmp(path, "/proc/self/fd") == 0 ? 1 : 0);  // the directory's own descriptor
}

Resources Sample() {
  Resources r;
  r.fds = CountDir("/proc/self/fd");
  r.threads = CountDir("/proc/self/task");
  long pages = 0, resident = 0;
  if (FILE *f = fopen("/proc/self/statm", "r")) {
    if (fscanf(f, "%ld %ld", &pages, &resident) != 2) resident = 0;
    fclose(f);
  }
  r.rss_kb = resident * (sysconf(_SC_PAGESIZE) / 1024);
  r.alloc = qcril_alloc_host_outstanding();
  return r;
}

// ---- shared between the controller and its children ----------------------------------------

struct Shared {
  std::atomic<int> stop;
  std::atomic<int> faults_done;  // fault windows closed so far
  std::atomic<int> ready;        // children that made their first round of calls
};

Shared *MapShared(const std::string &path, bool create) {
  const int fd = open(path.c_str(), O_RDWR | (create ? O_CREAT | O_TRUNC : 0), 0600);
  if (fd < 0) return nullptr;
  if (create && ftruncate(fd, sizeof(Shared)) != 0) {
    close(fd);
    return nullptr;
  }
  void *p = mmap(nullptr, sizeof(Shared), PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
  close(fd);
  return p == MAP_FAILED ? nullptr : static_cast<Shared *>(p);
}

struct Options {
  int processes = 4;
  double seconds = 10;
  std::string transport = "unix";
  std::string faults = "restart,order,kill";
  std::string bin, dir;
  int quiet_ms = 400;   // quiet time between two faults
  int grace_ms = 1000;  // a fault window lasts until the modem is back plus this
  std::string scale;    // process counts of a scaling run
  // child only
  int worker = -1;
  std::string endpoint;
  bool load_only = false;  // scaling run: one cheap call kind, no checks
};

// ---- a child: one radio process -------------------------------------------------------------

class Worker {
 public:
  Worker(const Options &o, Shared *shared)
      : o_(o), shared_(shared), rng_(0x5eed + o.worker), stats_(kKinds) {
    extend_ = o.transport == "unix";
    instance_ = static_cast<uint32_t>(o.worker % 2);
    snprintf(efs_path_, sizeof(efs_path_), "/soak/w%d.bin", o.worker);
    nv_item_ = 7000 + static_cast<uint32_t>(o.worker);
    snprintf(device_, sizeof(device_), "rmnet_data%d", o.worker % 64);
  }

  int Run() {
    tarvik_testing::SilenceLibraryLogging();
    tarvik_set_ril_process_instance_id(instance_);
    if (qmi_client_host_select_transport(o_.endpoint.c_str()) != QMI_NO_ERR) {
      fprintf(stderr, "worker %d: cannot reach %s\n", o_.worker, o_.endpoint.c_str());
    }
    const std::string path = o_.dir + "/worker-" + std::to_string(o_.worker) + ".txt";
    failures_ = fopen(path.c_str(), "w");
    if (failures_ == nullptr) return 2;
    if (o_.load_only) return RunLoad();
    std::vector<Kind> mix;
    for (int k = 0; k < kKinds; ++k) {
      if (!kKindInfo[k].extend || extend_) mix.push_back(static_cast<Kind>(k));
    }
    int seen = 0;
    bool announced = false;
    while (!shared_->stop.load()) {
      for (Kind k : mix) Call(k);
      if (!announced) {
        shared_->ready.fetch_add(1);
        announced = true;
      }
      const int done = shared_->faults_done.load();
      if (done != seen) {
        // One full round of calls after the window closed re-created every client: sample now.
        seen = done;
        for (Kind k : mix) Call(k);
        // Kept: after the first fault, after the 100th (or the first seen past it) and after
        // the last.
        const Resources r = Sample();
        if (samples_.size() < 2 || (samples_.size() == 2 && samples_.back().first >= 100)) {
          samples_.push_back({done, r});
        } else {
          samples_.back() = {done, r};
        }
      }
    }
    FinalCheck();
    return WriteResults();
  }

 private:
  // Scaling runs: NV reads (extend service) or SAR gets (qmux:) as fast as they go.
  // Scaling runs: reads of this child's own NV item, written first, as fast as they go (only the
  // transport's sockets: qmux: is one process).
  int RunLoad() {
    uint8_t buf[64] = {1, 2, 3, 4};
    if (tarvik_nv_write_ex(instance_, nv_item_, buf, 4) != 0) return 2;
    shared_->ready.fetch_add(1);
    while (!shared_->stop.load()) {
      const int64_t t0 = NowNs();
      uint32_t len = sizeof(buf);
      const int status = tarvik_nv_read(instance_, nv_item_, buf, &len);
      stats_[kNvRead].Add(NowNs() - t0, status == 0 && len == 4);
    }
    return WriteResults();
  }

  void Record(Kind k, int64_t t0, int status) {
    const int64_t t1 = NowNs();
    stats_[k].Add(t1 - t0, status == 0);
    // Failures go to a file as they come, so that this process's own memory does not grow with
    // them and blur what the library holds.
    if (status != 0 && failures_ != nullptr) {
      fprintf(failures_, "fail %d %lld %lld %d\n", k, static_cast<long long>(t0),
              static_cast<long long>(t1), status);
    }
  }

  std::vector<uint8_t> Random(size_t lo, size_t hi) {
    std::vector<uint8_t> v(std::uniform_int_distribution<size_t>(lo, hi)(rng_));
    for (auto &b : v) b = static_cast<uint8_t>(rng_());
    return v;
  }

  // A value read back must be the last acknowledged write or one written since whose answer
  // was lost; anything else was lost.
  struct Written {
    std::vector<uint8_t> acked;
    std::vector<std::vector<uint8_t>> unacked;
    bool empty() const { return acked.empty() && unacked.empty(); }
    void Wrote(std::vector<uint8_t> v, int status) {
      if (status == 0) {
        acked = std::move(v);
        unacked.clear();
      } else {
        unacked.push_back(std::move(v));
      }
    }
    bool Check(const std::vector<uint8_t> &got) {
      if (got == acked) return true;
      for (const auto &u : unacked) {
        if (got == u) {
          acked = got;
          unacked.clear();
          return true;
        }
      }
      return false;
    }
  };

  void Lost(const char *what, const Written &w, const std::vector<uint8_t> &got) {
    char line[200];
    snprintf(line, sizeof(line),
             "%s: read %zu bytes, last acknowledged write %zu bytes (%zu unanswered since)", what,
             got.size(), w.acked.size(), w.unacked.size());
    lost_.push_back(line);
  }

  void ReadBack(const char *what, Written *w, std::vector<uint8_t> got, uint32_t len, int status) {
    if (status != 0) return;
    got.resize(len);
    if (!w->Check(got)) Lost(what, *w, got);
  }

  void Call(Kind k) {
    int64_t t0 = NowNs();
    switch (k) {
      case kNvWrite: {
        auto v = Random(1, 64);
        const int s =
            tarvik_nv_write_ex(instance_, nv_item_, v.data(), static_cast<uint32_t>(v.size()));
        Record(k, t0, s);
        nv_.Wrote(std::move(v), s);
        break;
      }
      case kNvRead: {
        if (nv_.empty()) break;
        std::vector<uint8_t> buf(424);
        uint32_t len = static_cast<uint32_t>(buf.size());
        const int s = tarvik_nv_read(instance_, nv_item_, buf.data(), &len);
        Record(k, t0, s);
        ReadBack("nv item", &nv_, std::move(buf), len, s);
        break;
      }
      case kEfsWrite: {
        auto v = Random(1, 1500);
        const int s =
            tarvik_efs_write(instance_, efs_path_, static_cast<uint32_t>(strlen(efs_path_)),
                             v.data(), static_cast<uint32_t>(v.size()));
        Record(k, t0, s);
        efs_.Wrote(std::move(v), s);
        break;
      }
      case kEfsRead: {
        if (efs_.empty()) break;
        std::vector<uint8_t> buf(4096);
        uint32_t len = static_cast<uint32_t>(buf.size());
        const int s = tarvik_efs_read(instance_, efs_path_,
                                      static_cast<uint32_t>(strlen(efs_path_)), buf.data(), &len);
        Record(k, t0, s);
        ReadBack("modem file", &efs_, std::move(buf), len, s);
        break;
      }
      case kUimOpen: {
        if (channel_ != 0) break;
        tarvik_uim_open_channel_req_t req = {1, 0};
        uint8_t id = 0;
        const int s = tarvik_uim_open_channel(&req, &id);
        Record(k, t0, s);
        if (s == 0) channel_ = id;
        break;
      }
      case kUimApdu: {
        if (channel_ == 0) break;
        static const uint8_t kGetEid[] = {0x80, 0xE2, 0x91, 0x00, 0x06, 0xBF,
                                          0x3E, 0x03, 0x5C, 0x01, 0x5A};
        tarvik_uim_apdu_req_t req = {};
        req.slot = 1;
        req.channel_id = channel_;
        req.apdu_len = sizeof(kGetEid);
        memcpy(req.apdu, kGetEid, sizeof(kGetEid));
        std::vector<uint8_t> resp(TARVIK_UIM_APDU_RESP_BUF_LEN);
        int s = tarvik_uim_send_apdu(&req, resp.data());
        // The answer ends with the EID and 90 00.
        const size_t n = resp[0];
        if (s == 0 && (n < 18 || resp[n - 1] != 0x90 || resp[n] != 0x00 ||
                       memcmp(&resp[n - 17], kEid, sizeof(kEid)) != 0)) {
          s = 1000;  // a wrong answer counts as a failure
        }
        Record(k, t0, s);
        if (s != 0) channel_ = 0;  // a restart closed it: open another
        break;
      }
      case kSarSet:
        Record(k, t0, tarvik_set_sar_dsi(1 + static_cast<uint32_t>(rng_() % 20)));
        break;
      case kSarGet: {
        const int dsi = tarvik_get_sar_dsi();
        Record(k, t0, dsi >= 0 && dsi <= 20 ? 0 : (dsi < 0 ? dsi : 1000));
        break;
      }
      case kNas: {
        const uint32_t v = static_cast<uint32_t>(rng_() % 3);
        const int which = nas_turn_++ % 3;
        const int s = which == 0   ? tarvik_set_nr_mode(v)
                      : which == 1 ? tarvik_enable_endc(v)
                                   : tarvik_deprioritize_sa(v);
        Record(k, t0, s);
        // The controls keep their client for the life of the process, also one whose service
        // restarted: the radio layer binds a new one when a control reports the service gone.
        if (s == QMI_SERVICE_ERR) {
          t0 = NowNs();
          Record(kNasInit, t0, init_nas_qmi_client() ? 0 : -1);
        }
        break;
      }
      case kNasInit:
        break;
      case kDfsEnter:
      case kDfsExit: {
        if (k == kDfsExit && filters_ < 3) break;
        if (k == kDfsEnter && filters_ >= 3) break;
        char sport[16];
        snprintf(sport, sizeof(sport), "%d", 1000 + filters_);
        const std::vector<uint8_t> msg =
            k == kDfsEnter ? Blacklist(1, {"IPV4", "TCP", "10.0.0.1", "10.0.0.2", sport, "443"})
                           : Blacklist(0, {});
        uint32_t result = 0;
        t0 = NowNs();
        const int s = tarvik_filter_control_handle_msg(msg.data(),
                                                       static_cast<uint32_t>(msg.size()), &result);
        Record(k, t0, s != 0 ? s : static_cast<int>(result));
        filters_ = k == kDfsExit ? 0 : filters_ + 1;
        break;
      }
      case kKinds:
        break;
    }
  }

  std::vector<uint8_t> Blacklist(uint32_t mode, const std::vector<std::string> &fields) {
    return tarvik_bench::BlacklistCommand(mode, device_, fields);
  }

  // After the last fault: what this process wrote is still there.
  void FinalCheck() {
    if (!extend_) return;
    for (int attempt = 0; attempt < 3; ++attempt) {
      const size_t before = lost_.size();
      Call(kNvRead);
      Call(kEfsRead);
      if (lost_.size() == before) break;
    }
  }

  int WriteResults() {
    FILE *f = failures_;
    if (f == nullptr) return 2;
    failures_ = nullptr;
    for (int k = 0; k < kKinds; ++k) {
      const KindStats &s = stats_[k];
      fprintf(f, "kind %d %llu %llu %lld\n", k, static_cast<unsigned long long>(s.calls),
              static_cast<unsigned long long>(s.ok), static_cast<long long>(s.max_ns));
      for (int b = 0; b < kBuckets; ++b) {
        if (s.hist[b] != 0)
          fprintf(f, "hist %d %d %llu\n", k, b, static_cast<unsigned long long>(s.hist[b]));
      }
    }
    for (const std::string &l : lost_) fprintf(f, "lost %s\n", l.c_str());
    for (const auto &[which, r] : samples_) {
      fprintf(f, "sample %d %ld %ld %lld %ld\n", which, r.fds, r.threads,
              static_cast<long long>(r.alloc), r.rss_kb);
    }
    fclose(f);
    return 0;
  }

 public:
  static constexpr uint8_t kEid[16] = {0x89, 0x04, 0x90, 0x32, 0x00, 0x00, 0x00, 0x00,
                                       0x00, 0x00, 0x00, 0x00, 0x12, 0x34, 0x56, 0x78};

 private:
  const Options &o_;
  Shared *shared_;
  std::mt19937 rng_;
  std::vector<KindStats> stats_;
  FILE *failures_ = nullptr;  // the results file, failed calls written as they come
  std::vector<std::string> lost_;
  bool extend_ = true;
  uint32_t instance_ = 0;
  char efs_path_[32];
  uint32_t nv_item_ = 0;
  char device_[24];
  Written nv_, efs_;
  uint8_t channel_ = 0;
  int nas_turn_ = 0;
  int filters_ = 0;
  std::vector<std::pair<int, Resources>> samples_;  // (faults done, what the process held)
};

// ---- the floor of a scaling run: bare round trips of an NV read's sizes ----------------------

// An NV read's frames on the daemon's socket, request and answer (as strace shows them): the
// 16-byte frame header, then 574 bytes of QMI header and TLVs around the extend service's request
// or response record.
constexpr size_t kNvReadRequestFrame = 590;
constexpr size_t kNvReadAnswerFrame = 590;

enum class Echo { kThreadPerConnection, kEpoll };

// Answers one request on `fd` with an answer-sized packet. False when the peer is gone.
bool EchoOnce(int fd) {
  static thread_local std::vector<uint8_t> buf(kNvReadRequestFrame + kNvReadAnswerFrame);
  return recv(fd, buf.data(), buf.size(), 0) > 0 &&
         send(fd, buf.data(), kNvReadAnswerFrame, MSG_NOSIGNAL) > 0;
}

// An echo server's process, in one of the two shapes; it runs until it is killed.
[[noreturn]] void RunEcho(Echo shape, int listen_fd) {
  if (shape == Echo::kThreadPerConnection) {
    for (;;) {
      const int fd = accept4(listen_fd, nullptr, nullptr, SOCK_CLOEXEC);
      if (fd < 0) continue;
      std::thread([fd] {
        while (EchoOnce(fd)) {
        }
        close(fd);
      }).detach();
    }
  }
  const int ep = epoll_create1(EPOLL_CLOEXEC);
  epoll_event ev{};
  ev.events = EPOLLIN;
  ev.data.fd = listen_fd;
  epoll_ctl(ep, EPOLL_CTL_ADD, listen_fd, &ev);
  for (;;) {
    epoll_event ready[64];
    const int n = epoll_wait(ep, ready, 64, -1);
    for (int i = 0; i < n; ++i) {
      const int fd = ready[i].data.fd;
      if (fd == listen_fd) {
        ev.data.fd = accept4(listen_fd, nullptr, nullptr, SOCK_CLOEXEC);
        if (ev.data.fd >= 0) epoll_ctl(ep, EPOLL_CTL_ADD, ev.data.fd, &ev);
      } else if (!EchoOnce(fd)) {
        close(fd);  // which also takes it out of the epoll set
      }
    }
  }
}

struct RawShared {
  std::atomic<int> ready, go, stop;
  std::atomic<uint64_t> calls[64];
};

// How a client process waits for its answer: it reads the answer itself, or (as the QMI client
// library does for a synchronous request) a reader thread of the process takes the answer off
// the socket and wakes the caller.
enum class Waiter { kCaller, kReaderThread };

// One client process's round trips on `fd` until the controller says stop.
uint64_t ClientRoundTrips(Waiter waiter, int fd, const RawShared &shared) {
  std::vector<uint8_t> buf(kNvReadRequestFrame + kNvReadAnswerFrame);
  uint64_t calls = 0;
  if (waiter == Waiter::kCaller) {
    while (!shared.stop.load() && send(fd, buf.data(), kNvReadRequestFrame, 0) > 0 &&
           recv(fd, buf.data(), buf.size(), 0) > 0) {
      ++calls;
    }
    return calls;
  }
  std::mutex mu;
  std::condition_variable cv;
  uint64_t answered = 0;
  bool gone = false;
  std::thread reader([&] {
    std::vector<uint8_t> in(buf.size());
    while (recv(fd, in.data(), in.size(), 0) > 0) {
      std::lock_guard<std::mutex> lock(mu);
      ++answered;
      cv.notify_one();
    }
    std::lock_guard<std::mutex> lock(mu);
    gone = true;
    cv.notify_one();
  });
  while (!shared.stop.load() && send(fd, buf.data(), kNvReadRequestFrame, 0) > 0) {
    std::unique_lock<std::mutex> lock(mu);
    cv.wait(lock, [&] { return answered > calls || gone; });
    if (answered == calls) break;
    ++calls;
  }
  shutdown(fd, SHUT_RDWR);
  reader.join();
  return calls;
}

// Round trips per second of `n` client processes (at most 64), each sending a request-sized
// packet and waiting for the answer as `waiter` says, as fast as they go for `seconds`, against
// an echo server of `shape` listening at `path`. 0 when the set-up failed.
double RawRoundTrips(Echo shape, Waiter waiter, int n, double seconds, const std::string &path) {
  sockaddr_un addr{};
  addr.sun_family = AF_UNIX;
  snprintf(addr.sun_path, sizeof(addr.sun_path), "%s", path.c_str());
  const auto *sa = reinterpret_cast<const sockaddr *>(&addr);
  const int listen_fd = socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0);
  unlink(path.c_str());
  if (listen_fd < 0 || bind(listen_fd, sa, sizeof(addr)) != 0 || listen(listen_fd, 128) != 0) {
    if (listen_fd >= 0) close(listen_fd);
    return 0;
  }
  void *mem =
      mmap(nullptr, sizeof(RawShared), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  if (mem == MAP_FAILED) {
    close(listen_fd);
    return 0;
  }
  auto *shared = static_cast<RawShared *>(mem);  // zeroed by the kernel
  std::vector<pid_t> pids;
  const pid_t server = fork();
  if (server == 0) RunEcho(shape, listen_fd);
  close(listen_fd);
  for (int i = 0; i < n && server > 0; ++i) {
    const pid_t pid = fork();
    if (pid == 0) {
      const int fd = socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0);
      if (connect(fd, sa, sizeof(addr)) != 0) _exit(1);
      shared->ready.fetch_add(1);
      while (!shared->go.load()) std::this_thread::sleep_for(milliseconds(1));
      shared->calls[i] = ClientRoundTrips(waiter, fd, *shared);
      _exit(0);
    }
    if (pid > 0) pids.push_back(pid);
  }
  const int64_t until = NowNs() + 10'000'000'000LL;
  while (shared->ready.load() < n && static_cast<int>(pids.size()) == n && NowNs() < until) {
    std::this_thread::sleep_for(milliseconds(1));
  }
  const bool started = shared->ready.load() == n;
  const int64_t t0 = NowNs();
  shared->go.store(1);
  if (started) std::this_thread::sleep_for(milliseconds(static_cast<int>(seconds * 1000)));
  shared->stop.store(1);
  const double elapsed = (NowNs() - t0) / 1e9;
  bool ok = started;
  for (pid_t pid : pids) {
    int status = 0;
    waitpid(pid, &status, 0);
    ok = ok && WIFEXITED(status) && WEXITSTATUS(status) == 0;
  }
  if (server > 0) {
    kill(server, SIGKILL);
    waitpid(server, nullptr, 0);
  }
  uint64_t calls = 0;
  for (int i = 0; i < n; ++i) calls += shared->calls[i].load();
  munmap(mem, sizeof(RawShared));
  unlink(path.c_str());
  return ok ? calls / elapsed : 0;
}

// ---- the controller -------------------------------------------------------------------------

struct Window {
  int64_t start_ns, end_ns;
  std::string what;
};

std::string Hex(const uint8_t *p, size_t n) {
  std::string s;
  char b[3];
  for (size_t i = 0; i < n; ++i) {
    snprintf(b, sizeof(b), "%02x", p[i]);
    s += b;
  }
  return s;
}

// Starts a program; with `log`, its standard output and error go to the end of that file.
pid_t Spawn(const std::vector<std::string> &words, const std::string &log = "") {
  std::vector<char *> argv;
  std::vector<std::string> copy = words;
  for (std::string &w : copy) argv.push_back(w.data());
  argv.push_back(nullptr);
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  if (!log.empty()) {
    posix_spawn_file_actions_addopen(&actions, 1, log.c_str(), O_WRONLY | O_CREAT | O_APPEND, 0600);
    posix_spawn_file_actions_adddup2(&actions, 1, 2);
  }
  pid_t pid = -1;
  const int rc = posix_spawn(&pid, argv[0], &actions, nullptr, argv.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  return rc == 0 ? pid : -1;
}

class Controller {
 public:
  explicit Controller(Options o) : o_(std::move(o)) {}

  int Setup(int processes) {
    socket_ = o_.dir + "/modemd.sock";
    qmux_ = o_.dir + "/qmi0";
    state_ = o_.dir + "/state";
    if (mkdir(state_.c_str(), 0700) != 0 && errno != EEXIST) return Fail("cannot make " + state_);
    shared_ = MapShared(o_.dir + "/control", true);
    if (shared_ == nullptr) return Fail("cannot map the control file");
    if (!StartDaemon()) return Fail("tarvik-modemd did not come up (" + o_.bin + ")");
    std::string out;
    const std::string eid = Hex(Worker::kEid, sizeof(Worker::kEid));
    if (Control({"card", "1", "euicc", eid}, &out) != 0 ||
        Control({"set", "restart-down-ms", "300"}, &out) != 0) {
      return Fail("the daemon refused the set-up: " + out);
    }
    endpoint_ = (o_.transport == "qmux" ? "qmux:" + qmux_ : "unix:" + socket_);
    for (int i = 0; i < processes; ++i) {
      std::vector<std::string> words = {self_,        "--worker",   std::to_string(i),
                                        "--dir",      o_.dir,       "--transport",
                                        o_.transport, "--endpoint", endpoint_};
      if (!o_.scale.empty()) words.push_back("--load");
      const pid_t pid = Spawn(words);
      if (pid < 0) return Fail("cannot start a child");
      children_.push_back(pid);
    }
    const int64_t until = NowNs() + 60'000'000'000LL;
    while (shared_->ready.load() < processes) {
      if (NowNs() > until) return Fail("the children did not make their first calls in 60 s");
      std::this_thread::sleep_for(milliseconds(10));
    }
    return 0;
  }

  int Soak() {
    self_ = SelfPath();
    if (int rc = Setup(o_.processes); rc != 0) return rc;
    std::vector<std::string> faults;
    std::stringstream ss(o_.faults);
    for (std::string f; std::getline(ss, f, ',');) {
      if (o_.transport == "qmux" && f == "order") continue;  // no extend service over qmux:
      faults.push_back(f);
    }
    if (o_.transport == "unix") qmi_client_host_select_transport(endpoint_.c_str());
    tarvik_testing::SilenceLibraryLogging();
    const std::vector<std::string> services =
        o_.transport == "qmux" ? std::vector<std::string>{"0x0B", "0x03", "0x11", "0x30"}
                               : std::vector<std::string>{"0xFFE4", "0x0B", "0x03", "0x11", "0x30"};
    std::mt19937 rng(7);
    const int64_t t_begin = NowNs();
    const int64_t deadline = t_begin + static_cast<int64_t>(o_.seconds * 1e9);
    size_t turn = 0;
    while (!faults.empty() && NowNs() < deadline) {
      std::this_thread::sleep_for(milliseconds(o_.quiet_ms + static_cast<int>(rng() % 400)));
      const std::string &f = faults[turn % faults.size()];
      Window w{NowNs(), 0, f};
      bool ok = true;
      if (f == "restart" || f == "revoke") {
        const std::string &svc = services[(turn / faults.size()) % services.size()];
        w.what = f + " " + svc;
        std::string out;
        ok = Control({"restart", svc, "300"}, &out) == 0 && AllUp();
      } else if (f == "order") {
        tarvik_modem_ssr(0x80000010u);
        ok = AllUp();
      } else if (f == "kill") {
        kill(daemon_, SIGKILL);
        waitpid(daemon_, nullptr, 0);
        ok = StartDaemon();
      } else {
        fprintf(stderr, "tarvik-soak: unknown fault '%s'\n", f.c_str());
        Stop();
        return 2;
      }
      if (!ok) {
        fprintf(stderr, "tarvik-soak: the fault '%s' could not be injected\n", w.what.c_str());
        Stop();
        return 1;
      }
      std::this_thread::sleep_for(milliseconds(o_.grace_ms));
      w.end_ns = NowNs();
      windows_.push_back(w);
      shared_->faults_done.fetch_add(1);
      ++turn;
    }
    while (NowNs() < deadline) std::this_thread::sleep_for(milliseconds(50));
    std::this_thread::sleep_for(milliseconds(o_.quiet_ms));
    const double elapsed = (NowNs() - t_begin) / 1e9;
    if (!Stop()) return 1;
    return Report(elapsed);
  }

  // Throughput and p99 of cheap calls for each process count, all in one run.
  int Scale() {
    self_ = SelfPath();
    std::vector<int> counts;
    std::stringstream ss(o_.scale);
    for (std::string c; std::getline(ss, c, ',');) counts.push_back(atoi(c.c_str()));
    struct Row {
      int n;
      double per_s, p50, p99, max;
      double raw_threads, raw_epoll, raw_reader;  // the floor: bare round trips per second
    };
    std::vector<Row> rows;
    const std::string base = o_.dir;
    for (int n : counts) {
      o_.dir = base + "/n" + std::to_string(n);
      if (mkdir(o_.dir.c_str(), 0700) != 0) return Fail("cannot make " + o_.dir);
      if (int rc = Setup(n); rc != 0) return rc;
      const int64_t t0 = NowNs();
      std::this_thread::sleep_for(milliseconds(static_cast<int>(o_.seconds * 1000)));
      const double elapsed = (NowNs() - t0) / 1e9;
      if (!Stop()) return 1;
      KindStats all;
      for (int i = 0; i < n; ++i) {
        std::vector<KindStats> s(kKinds);
        std::vector<Failure> f;
        std::vector<std::string> lost;
        std::vector<std::pair<int, Resources>> samples;
        if (!Load(i, &s, &f, &lost, &samples)) return Fail("a child left no results");
        for (const auto &k : s) all.Merge(k);
      }
      if (all.ok != all.calls) {
        return Fail(std::to_string(all.calls - all.ok) + " of " + std::to_string(all.calls) +
                    " reads failed with " + std::to_string(n) + " processes");
      }
      const std::string raw = base + "/raw.sock";
      const double raw_threads =
          RawRoundTrips(Echo::kThreadPerConnection, Waiter::kCaller, n, o_.seconds, raw);
      const double raw_epoll = RawRoundTrips(Echo::kEpoll, Waiter::kCaller, n, o_.seconds, raw);
      const double raw_reader =
          RawRoundTrips(Echo::kEpoll, Waiter::kReaderThread, n, o_.seconds, raw);
      if (raw_threads == 0 || raw_epoll == 0 || raw_reader == 0) {
        return Fail("the raw round trips failed");
      }
      rows.push_back({n, all.calls / elapsed, all.PercentileMs(0.5), all.PercentileMs(0.99),
                      all.max_ns / 1e6, raw_threads, raw_epoll, raw_reader});
    }
    const auto peak = [&rows](double Row::*col) {
      double best = 0;
      for (const Row &r : rows) best = std::max(best, r.*col);
      return best;
    };
    // Collapse: a count whose throughput falls below 80% of the best of the smaller counts.
    const auto collapses = [&rows](double Row::*col) {
      double best = 0;
      bool collapse = false;
      for (const Row &r : rows) {
        collapse = collapse || r.*col < 0.8 * best;
        best = std::max(best, r.*col);
      }
      return collapse;
    };
    const double lib_peak = peak(&Row::per_s), threads_peak = peak(&Row::raw_threads),
                 epoll_peak = peak(&Row::raw_epoll), reader_peak = peak(&Row::raw_reader);
    printf("%9s  %8s  %7s  %7s  %7s  %7s  %9s  %9s  %7s  %9s  %7s  %9s  %7s  %7s  %7s  %7s\n",
           "processes", "calls/s", "p50 ms", "p99 ms", "max ms", "of peak", "p99/queue", "thread/s",
           "of peak", "epoll/s", "of peak", "reader/s", "of peak", "lib/thr", "lib/epl", "lib/rdr");
    // The queue: with one modem serving all, a call waits behind the other processes' calls, so
    // p99 should grow about as n / throughput; p99/queue staying within twice its value at the
    // smallest count with a queue (two processes or more: alone, a call waits for nobody and the
    // ratio is only its own tail) is growth the queue explains.
    bool beyond_queue = false;
    double first_ratio = 0;
    for (const Row &r : rows) {
      const double queue_ms = r.n * 1000.0 / r.per_s;
      const double ratio = r.p99 / queue_ms;
      if (first_ratio == 0 && r.n >= 2) first_ratio = ratio;
      printf(
          "%9d  %8.0f  %7.3f  %7.3f  %7.3f  %6.0f%%  %9.2f  %9.0f  %6.0f%%  %9.0f  %6.0f%%  %9.0f  "
          "%6.0f%%  %7.2f  %7.2f  %7.2f\n",
          r.n, r.per_s, r.p50, r.p99, r.max, 100 * r.per_s / lib_peak, ratio, r.raw_threads,
          100 * r.raw_threads / threads_peak, r.raw_epoll, 100 * r.raw_epoll / epoll_peak,
          r.raw_reader, 100 * r.raw_reader / reader_peak, r.per_s / r.raw_threads,
          r.per_s / r.raw_epoll, r.per_s / r.raw_reader);
      beyond_queue = beyond_queue || (first_ratio > 0 && ratio > 2 * first_ratio);
    }
    for (const Row &r : rows) {
      if (r.n != rows.front().n) {
        printf("ratio throughput %d / %d processes: %.2f\n", r.n, rows.front().n,
               r.per_s / rows.front().per_s);
      }
    }
    const bool collapse = collapses(&Row::per_s);
    const auto verdict = [&](double Row::*col) { return collapses(col) ? "MISSED" : "met"; };
    printf(
        "throughput never below 80%% of the best of fewer processes: %s (the floor: thread "
        "per connection %s, one epoll thread %s, one epoll thread and reader threads %s)\n",
        verdict(&Row::per_s), verdict(&Row::raw_threads), verdict(&Row::raw_epoll),
        verdict(&Row::raw_reader));
    printf(
        "p99 grows no faster than the queue (p99/queue within 2x of its value at 2+ processes): "
        "%s\n",
        beyond_queue ? "MISSED" : "met");
    return collapse || beyond_queue ? 1 : 0;
  }

 private:
  int Fail(const std::string &why) {
    fprintf(stderr, "tarvik-soak: %s\n", why.c_str());
    Stop();
    return 2;
  }

  static std::string SelfPath() {
    char buf[4096];
    const ssize_t n = readlink("/proc/self/exe", buf, sizeof(buf) - 1);
    return n > 0 ? std::string(buf, static_cast<size_t>(n)) : std::string();
  }

  int Control(const std::vector<std::string> &words, std::string *out) {
    return modemsim::SendControlCommand(socket_, words, out);
  }

  // Waits until the daemon reports every service up again (a restart order takes the services
  // down only once its answer is out: give it its 300 ms first). False after 10 s.
  bool AllUp() {
    std::this_thread::sleep_for(milliseconds(300));
    std::string out;
    for (int i = 0; i < 1000; ++i) {
      if (Control({"status"}, &out) == 0 && out.find(" down clients") == std::string::npos) {
        return true;
      }
      std::this_thread::sleep_for(milliseconds(10));
    }
    return false;
  }

  bool StartDaemon() {
    std::vector<std::string> words = {o_.bin + "/tarvik-modemd", "--socket", socket_, "--state",
                                      state_};
    if (o_.transport == "qmux") words.insert(words.end(), {"--qmux", qmux_});
    daemon_ = Spawn(words, o_.dir + "/modemd.log");
    if (daemon_ < 0) return false;
    std::string out;
    for (int i = 0; i < 1000; ++i) {
      if (Control({"status"}, &out) == 0) return true;
      std::this_thread::sleep_for(milliseconds(10));
    }
    return false;
  }

  // Stops the children (false when one had to be killed or failed) and the daemon.
  bool Stop() {
    bool ok = true;
    if (shared_ != nullptr) shared_->stop.store(1);
    const int64_t until = NowNs() + 120'000'000'000LL;
    for (pid_t pid : children_) {
      int status = 0;
      while (waitpid(pid, &status, WNOHANG) == 0) {
        if (NowNs() > until) {
          fprintf(stderr, "tarvik-soak: child %d did not stop in 120 s: killed\n", pid);
          kill(pid, SIGKILL);
          waitpid(pid, &status, 0);
          break;
        }
        std::this_thread::sleep_for(milliseconds(20));
      }
      if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) {
        fprintf(stderr, "tarvik-soak: child %d ended with status 0x%x\n", pid, status);
        ok = false;
      }
    }
    children_.clear();
    if (daemon_ > 0) {
      kill(daemon_, SIGTERM);
      waitpid(daemon_, nullptr, 0);
      daemon_ = -1;
    }
    if (shared_ != nullptr) {
      munmap(shared_, sizeof(Shared));
      shared_ = nullptr;
    }
    return ok;
  }

  bool Load(int worker, std::vector<KindStats> *stats, std::vector<Failure> *fails,
            std::vector<std::string> *lost, std::vector<std::pair<int, Resources>> *samples) {
    std::ifstream in(o_.dir + "/worker-" + std::to_string(worker) + ".txt");
    if (!in) return false;
    std::string word;
    while (in >> word) {
      if (word == "kind") {
        int k;
        unsigned long long calls, ok;
        long long max;
        in >> k >> calls >> ok >> max;
        if (k < 0 || k >= kKinds) return false;
        (*stats)[k].calls = calls;
        (*stats)[k].ok = ok;
        (*stats)[k].max_ns = max;
      } else if (word == "hist") {
        int k, b;
        unsigned long long n;
        in >> k >> b >> n;
        if (k < 0 || k >= kKinds || b < 0 || b >= kBuckets) return false;
        (*stats)[k].hist[b] = n;
      } else if (word == "fail") {
        Failure f{};
        long long a, b;
        in >> f.kind >> a >> b >> f.status;
        f.start_ns = a;
        f.end_ns = b;
        f.worker = worker;
        fails->push_back(f);
      } else if (word == "lost") {
        std::string line;
        std::getline(in, line);
        lost->push_back("child " + std::to_string(worker) + ": " + line);
      } else if (word == "sample") {
        int which;
        Resources r;
        long long alloc;
        in >> which >> r.fds >> r.threads >> alloc >> r.rss_kb;
        r.alloc = alloc;
        samples->push_back({which, r});
      } else {
        return false;
      }
    }
    return true;
  }

  int Report(double elapsed) {
    std::vector<KindStats> total(kKinds);
    std::vector<uint64_t> inside(kKinds), outside(kKinds);
    std::vector<Failure> outside_list;
    std::vector<std::string> lost;
    int blocked = 0;
    bool resources_ok = true;
    printf("%d processes over %s, %.0f s, %zu fault windows\n", o_.processes, o_.transport.c_str(),
           elapsed, windows_.size());
    std::vector<std::string> sample_lines;
    for (int i = 0; i < o_.processes; ++i) {
      std::vector<KindStats> s(kKinds);
      std::vector<Failure> fails;
      std::vector<std::pair<int, Resources>> samples;
      if (!Load(i, &s, &fails, &lost, &samples)) {
        fprintf(stderr, "tarvik-soak: child %d left no results\n", i);
        return 1;
      }
      for (int k = 0; k < kKinds; ++k) total[k].Merge(s[k]);
      for (const Failure &f : fails) {
        const bool in_window = std::any_of(windows_.begin(), windows_.end(), [&f](const Window &w) {
          return f.start_ns <= w.end_ns && f.end_ns >= w.start_ns;
        });
        (in_window ? inside : outside)[f.kind]++;
        if (!in_window && outside_list.size() < 20) outside_list.push_back(f);
      }
      if (samples.size() >= 2) {
        // Every later sample against the first. Resident memory may move by what the C
        // allocator keeps cached; more than 1 MB is growth. Under AddressSanitizer it is not
        // compared: its quarantine holds freed memory back (up to 256 MB) on purpose.
        const Resources &a = samples[0].second;
        std::string line = "child " + std::to_string(i) + " after fault";
        std::string faults, fds, threads, alloc, rss;
        bool same = true;
        for (const auto &[which, r] : samples) {
          const char *sep = faults.empty() ? " " : " / ";
          faults += sep + std::to_string(which);
          fds += sep + std::to_string(r.fds);
          threads += sep + std::to_string(r.threads);
          alloc += sep + std::to_string(r.alloc);
          rss += sep + std::to_string(r.rss_kb);
          same = same && r.fds == a.fds && r.threads == a.threads && r.alloc == a.alloc &&
                 (kRssGrowsByDesign || r.rss_kb <= a.rss_kb + 1024);
        }
        resources_ok = resources_ok && same;
        sample_lines.push_back(line + faults + ": fds" + fds + ", threads" + threads +
                               ", allocator blocks" + alloc + ", rss" + rss + " kB" +
                               (same ? "" : "  GREW"));
      }
    }
    printf("%-12s %9s %9s %8s %8s %9s %9s %9s %9s %9s %8s\n", "call", "calls", "ok", "fail in",
           "fail out", "calls/s", "p50 ms", "p99 ms", "max ms", "limit ms", "over");
    for (int k = 0; k < kKinds; ++k) {
      const KindStats &s = total[k];
      if (s.calls == 0) continue;
      const double limit = kKindInfo[k].timeout_ms + 1000.0;
      const bool over = s.max_ns / 1e6 > limit;
      blocked += over ? 1 : 0;
      printf("%-12s %9llu %9llu %8llu %8llu %9.1f %9.3f %9.3f %9.1f %9.0f %8s\n", kKindInfo[k].name,
             static_cast<unsigned long long>(s.calls), static_cast<unsigned long long>(s.ok),
             static_cast<unsigned long long>(inside[k]),
             static_cast<unsigned long long>(outside[k]), s.calls / elapsed, s.PercentileMs(0.5),
             s.PercentileMs(0.99), s.max_ns / 1e6, limit, over ? "OVER" : "-");
    }
    std::map<std::string, int> by_fault;
    for (const Window &w : windows_) by_fault[w.what.substr(0, w.what.find(' '))]++;
    printf("faults:");
    for (const auto &[what, n] : by_fault) printf(" %s %d", what.c_str(), n);
    printf("\n");
    for (const std::string &l : sample_lines) printf("%s\n", l.c_str());
    uint64_t out_total = 0;
    for (uint64_t n : outside) out_total += n;
    for (const Failure &f : outside_list) {
      printf("failure outside a fault window: child %d %s status %d after %.1f s, took %.1f ms\n",
             f.worker, kKindInfo[f.kind].name, f.status,
             (f.start_ns - windows_.front().start_ns) / 1e9, (f.end_ns - f.start_ns) / 1e6);
    }
    for (const std::string &l : lost) printf("lost write: %s\n", l.c_str());
    const bool enough_samples =
        windows_.size() < 2 || sample_lines.size() == static_cast<size_t>(o_.processes);
    printf("check acknowledged writes read back: %s\n", lost.empty() ? "ok" : "FAILED");
    printf("check no failure outside a fault window: %s (%llu)\n", out_total == 0 ? "ok" : "FAILED",
           static_cast<unsigned long long>(out_total));
    printf("check no call past its time-out plus 1 s: %s\n", blocked == 0 ? "ok" : "FAILED");
    printf("check resources after the last fault as after the first: %s%s\n",
           resources_ok && enough_samples ? "ok" : "FAILED",
           kRssGrowsByDesign ? " (resident memory not compared under AddressSanitizer)" : "");
    return lost.empty() && out_total == 0 && blocked == 0 && resources_ok && enough_samples ? 0 : 1;
  }

  Options o_;
  std::string self_, socket_, qmux_, state_, endpoint_;
  Shared *shared_ = nullptr;
  pid_t daemon_ = -1;
  std::vector<pid_t> children_;
  std::vector<Window> windows_;
};

int Usage(const char *problem) {
  fprintf(stderr,
          "tarvik-soak: %s\n"
          "usage: tarvik-soak [--processes N] [--seconds S] [--transport unix|qmux]\n"
          "                   [--faults restart,order,kill|revoke] [--bin DIR] [--dir DIR]\n"
          "                   [--quiet-ms MS] [--grace-ms MS]\n"
          "       tarvik-soak --scale 1,2,4,8 [--seconds S] [--bin DIR]\n",
          problem);
  return 2;
}

}  // namespace

int main(int argc, char **argv) {
  Options o;
  for (int i = 1; i < argc; ++i) {
    const std::string a = argv[i];
    const bool has = i + 1 < argc;
    if (a == "--load") {
      o.load_only = true;
    } else if (!has) {
      return Usage(("missing value after " + a).c_str());
    } else if (a == "--processes") {
      o.processes = atoi(argv[++i]);
    } else if (a == "--seconds") {
      o.seconds = atof(argv[++i]);
    } else if (a == "--transport") {
      o.transport = argv[++i];
    } else if (a == "--faults") {
      o.faults = argv[++i];
    } else if (a == "--bin") {
      o.bin = argv[++i];
    } else if (a == "--dir") {
      o.dir = argv[++i];
    } else if (a == "--quiet-ms") {
      o.quiet_ms = atoi(argv[++i]);
    } else if (a == "--grace-ms") {
      o.grace_ms = atoi(argv[++i]);
    } else if (a == "--scale") {
      o.scale = argv[++i];
    } else if (a == "--worker") {
      o.worker = atoi(argv[++i]);
    } else if (a == "--endpoint") {
      o.endpoint = argv[++i];
    } else {
      return Usage(("unknown option " + a).c_str());
    }
  }
  if (o.transport != "unix" && o.transport != "qmux") return Usage("--transport is unix or qmux");
  // A QMUX device has one reader: processes that share a modem's device go through a proxy.
  if (o.transport == "qmux" && o.worker < 0 && (o.processes != 1 || !o.scale.empty())) {
    return Usage("over qmux one process at a time reads the device: --processes 1, no --scale");
  }
  if (o.worker >= 0) {
    Shared *shared = MapShared(o.dir + "/control", false);
    if (shared == nullptr) return 2;
    Worker w(o, shared);
    return w.Run();
  }
  if (o.processes < 1 || o.processes > 64 || o.seconds <= 0)
    return Usage("bad --processes or --seconds");
  if (o.bin.empty()) {
    const char *env = getenv("TARVIK_BIN_DIR");
    char self[4096];
    const ssize_t n = readlink("/proc/self/exe", self, sizeof(self) - 1);
    if (env != nullptr) {
      o.bin = env;
    } else if (n > 0) {
      self[n] = '\0';
      o.bin = std::string(self, static_cast<size_t>(n));
      o.bin = o.bin.substr(0, o.bin.rfind('/')) + "/../bin";
    }
  }
  bool made_dir = false;
  if (!o.dir.empty() && mkdir(o.dir.c_str(), 0700) != 0 && errno != EEXIST) {
    return Usage(("cannot make " + o.dir).c_str());
  }
  if (o.dir.empty()) {
    char tmpl[] = "/tmp/tarvik-soak-XXXXXX";
    if (mkdtemp(tmpl) == nullptr) return Usage("cannot make a directory in /tmp");
    o.dir = tmpl;
    made_dir = true;
  }
  // Every process of the run (children, daemon) shares one property store and knows 64 data
  // devices, one per child.
  setenv("TARVIK_PROPERTY_DIR", (o.dir + "/properties").c_str(), 1);
  setenv("TARVIK_RMNET_DATA_COUNT", "64", 1);
  signal(SIGPIPE, SIG_IGN);
  Controller c(o);
  const int rc = o.scale.empty() ? c.Soak() : c.Scale();
  if (made_dir && rc == 0) {
    const std::string rm = "rm -rf '" + o.dir + "'";
    if (system(rm.c_str()) != 0)
      fprintf(stderr, "tarvik-soak: could not remove %s\n", o.dir.c_str());
  } else if (made_dir) {
    fprintf(stderr, "tarvik-soak: kept %s\n", o.dir.c_str());
  }
  return rc;
}
