// efs: files of the modem's file system, by subscription. A transfer of more than one chunk shows
// its progress on stderr (not with --json): redrawn with carriage returns on a terminal, a line
// a second otherwise.
#include <stdio.h>
#include <string.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <fstream>
#include <iterator>
#include <string>
#include <thread>
#include <vector>

#include "extend/extend_service.h"
#include "modemsim/modem.h"
#include "tarvik_extend_api.h"
#include "tarvik_extend_nvefs.h"
#include "tarvik_extend_qmi_v01.h"
#include "tool.h"

namespace tarvik_tool {
namespace {

// What the modem answers for a file that is not there.
constexpr int kNoSuchFile = -2;

// Generic requests the embedded modem has received so far (0 against a daemon).
size_t RequestsSeen() {
  modemsim::Modem *modem = EmbeddedModem();
  if (modem == nullptr) return 0;
  size_t n = 0;
  for (const auto &r : modem->ReceivedBy(modemsim::extend::kServiceId)) {
    n += r.msg_id == TARVIK_EXTEND_QMI_GENERIC_MSG_V01 ? 1 : 0;
  }
  return n;
}

// Runs `transfer` on a worker thread while this thread shows its progress; `chunks` is the
// transfer's chunk count when known (a write), 0 when not (a read). Returns its status.
template <typename Transfer>
int WithProgress(const Report &report, size_t chunks, Transfer transfer) {
  if (report.options().json || chunks == 1) return transfer();
  const bool tty = isatty(STDERR_FILENO) == 1;
  const char *what = report.command().c_str();
  const size_t before = RequestsSeen();
  std::atomic<bool> done{false};
  int status = 0;
  std::thread worker([&] {
    status = transfer();
    done = true;
  });
  const auto start = std::chrono::steady_clock::now();
  bool shown = false;
  auto draw = [&](bool last) {
    const double secs =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    const size_t seen = RequestsSeen() - before;
    char line[128];
    if (EmbeddedModem() == nullptr) {
      snprintf(line, sizeof(line), "%s: %.1fs", what, secs);
    } else if (chunks > 0) {
      const size_t got = std::min(seen, chunks);
      snprintf(line, sizeof(line), "%s: %zu/%zu chunks (%3zu%%) %.2fs", what, got, chunks,
               got * 100 / chunks, secs);
    } else if (seen > 1) {  // a read's size comes with its first chunk
      snprintf(line, sizeof(line), "%s: %zu chunks %.2fs", what, seen, secs);
    } else {
      return;
    }
    if (tty) {
      fprintf(stderr, "\r%s%s", line, last ? "\n" : "");
    } else if (last || !shown) {
      fprintf(stderr, "%s\n", line);
    }
    shown = true;
  };
  for (int tick = 0; !done; ++tick) {
    if (tick % (tty ? 10 : 100) == 0) draw(false);
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  worker.join();
  draw(true);
  return status;
}

// A modem path of 1 to `max` characters; adds it to the report.
bool CheckPath(Report &report, const std::string &path, size_t max, int *exit_status,
               const char *key = "path") {
  if (path.empty() || path.size() > max) {
    *exit_status = report.Refuse("path is " + std::to_string(path.size()) + " characters, 1 to " +
                                 std::to_string(max) + " fit");
    return false;
  }
  report.Add(Str(key, path));
  return true;
}

// SUB PATH, then the connection; kExitOk when ready.
int Prepare(Report &report, const Args &args, size_t path_max, uint32_t *sub) {
  int status = kExitOk;
  if (!ParseSub(report, args[0], sub, &status)) return status;
  report.Add(Num("sub", *sub));
  if (!CheckPath(report, args[1], path_max, &status)) return status;
  return Connect(report);
}

int Read(Report &report, const Args &args) {
  uint32_t sub = 0;
  if (const int ready = Prepare(report, args, TARVIK_EFS_READ_PATH_MAX, &sub)) return ready;
  const std::string &path = args[1];
  std::vector<uint8_t> buf(TARVIK_EFS_FILE_MAX);
  uint32_t len = static_cast<uint32_t>(buf.size());
  const int status = WithProgress(report, 0, [&] {
    return tarvik_efs_read(sub, path.data(), static_cast<uint32_t>(path.size()), buf.data(), &len);
  });
  if (status != 0) return report.Failed(Family::kFile, status);
  std::ofstream out(args[2], std::ios::binary | std::ios::trunc);
  out.write(reinterpret_cast<const char *>(buf.data()), static_cast<std::streamsize>(len));
  if (!out) return report.Refuse("cannot write " + args[2], kExitFailed);
  return report.Add({Num("length", len), Str("local", args[2])}).Ok();
}

int Write(Report &report, const Args &args) {
  std::ifstream in(args[2], std::ios::binary);
  std::vector<uint8_t> local((std::istreambuf_iterator<char>(in)),
                             std::istreambuf_iterator<char>());
  if (!in.good() && !in.eof()) return report.Refuse("cannot read " + args[2], kExitFailed);
  uint32_t sub = 0;
  if (const int ready = Prepare(report, args, TARVIK_EFS_PATH_MAX, &sub)) return ready;
  const std::string &path = args[1];
  const size_t chunks = local.size() > TARVIK_EFS_FILE_MAX
                            ? 1
                            : (local.size() + TARVIK_EFS_CHUNK - 1) / TARVIK_EFS_CHUNK;
  const int status = WithProgress(report, chunks, [&] {
    return tarvik_efs_write(sub, path.data(), static_cast<uint32_t>(path.size()), local.data(),
                            static_cast<uint32_t>(local.size()));
  });
  if (status != 0) return report.Failed(Family::kFile, status);
  return report.Add({Num("length", static_cast<long long>(local.size())), Str("local", args[2])})
      .Ok();
}

int Remove(Report &report, const Args &args) {
  uint32_t sub = 0;
  if (const int ready = Prepare(report, args, TARVIK_EFS_PATH_MAX, &sub)) return ready;
  const int status = tarvik_efs_delete(sub, args[1].data(), static_cast<uint32_t>(args[1].size()));
  return status != 0 ? report.Failed(Family::kFile, status) : report.Ok();
}

// exists and cmp: an unreachable modem is no answer, bad arguments stay a usage error.
int NoAnswer(int exit_status) {
  return exit_status == kExitUsage ? kExitUsage : kExitError;
}

// exists: 0 there, kExitFailed absent, kExitError when the modem could not answer.
int Exists(Report &report, const Args &args) {
  uint32_t sub = 0;
  if (const int ready = Prepare(report, args, TARVIK_EFS_PATH_MAX, &sub)) return NoAnswer(ready);
  const int status =
      tarvik_efs_is_exsit(sub, args[1].data(), static_cast<uint32_t>(args[1].size()));
  if (status != 0 && status != kNoSuchFile) {
    return report.Failed(Family::kFile, status, kExitError);
  }
  return report.Add(Bool("exists", status == 0)).Ok(status == 0 ? kExitOk : kExitFailed);
}

// cp and cmp: SUB PATH SUB2 PATH2.
int TwoFiles(Report &report, const Args &args, bool compare) {
  uint32_t sub = 0, sub2 = 0;
  int status = kExitOk;
  if (!ParseSub(report, args[2], &sub2, &status) ||
      !CheckPath(report, args[3], TARVIK_EFS_PATH_MAX, &status, "path2")) {
    return status;
  }
  report.Add(Num("sub2", sub2));
  if ((status = Prepare(report, args, TARVIK_EFS_PATH_MAX, &sub)) != kExitOk) {
    return compare ? NoAnswer(status) : status;
  }
  const auto *p2 = reinterpret_cast<const uint8_t *>(args[3].data());
  const auto l1 = static_cast<uint32_t>(args[1].size());
  const auto l2 = static_cast<uint32_t>(args[3].size());
  if (!compare) {
    status = tarvik_efs_copy(sub, args[1].data(), l1, sub2, p2, l2);
    return status != 0 ? report.Failed(Family::kFile, status) : report.Ok();
  }
  status = tarvik_efs_compare(sub, args[1].data(), l1, sub2, p2, l2);
  // The modem answers 0 for the same content and a positive count for different content.
  if (status < 0 || status >= static_cast<int>(TARVIK_NV_ITEM_ERR_NO_FIT)) {
    return report.Failed(Family::kFile, status, kExitError);
  }
  return report.Add(Bool("same", status == 0)).Ok(status == 0 ? kExitOk : kExitFailed);
}

int Copy(Report &report, const Args &args) {
  return TwoFiles(report, args, false);
}
int Compare(Report &report, const Args &args) {
  return TwoFiles(report, args, true);
}

int Stat(Report &report, const Args &args) {
  uint32_t sub = 0;
  if (const int ready = Prepare(report, args, TARVIK_EFS_PATH_MAX, &sub)) return ready;
  // The status request carries no subscription: the modem answers for the one file system.
  uint8_t record[TARVIK_EFS_STAT_SIZE];
  const int status = tarvik_efs_stat(args[1].c_str(), record);
  if (status != 0) return report.Failed(Family::kFile, status);
  uint32_t words[4];
  memcpy(words, record, sizeof(words));
  char mode[16];
  snprintf(mode, sizeof(mode), "%o", words[0]);
  return report
      .Add({Str("mode", mode), Num("size", words[1]), Num("links", words[2]),
            Num("check", words[3]), Hex("record", record, sizeof(record))})
      .Ok();
}

const Verb kVerbs[] = {
    {"read", "SUB PATH LOCAL", 3, 3, Read},    {"write", "SUB PATH LOCAL", 3, 3, Write},
    {"rm", "SUB PATH", 2, 2, Remove},          {"exists", "SUB PATH", 2, 2, Exists},
    {"cp", "SUB PATH SUB2 PATH2", 4, 4, Copy}, {"cmp", "SUB PATH SUB2 PATH2", 4, 4, Compare},
    {"stat", "SUB PATH", 2, 2, Stat},
};
TARVIK_COMMAND("efs", "modem files: to and from local files, delete, exists, copy, compare, status",
               kVerbs);

}  // namespace
}  // namespace tarvik_tool
