// efs: files of the modem's file system, by subscription.
//   efs read SUB PATH LOCAL          copies a modem file into a local file
//   efs write SUB PATH LOCAL         copies a local file (1 to 102410 bytes) to the modem
//   efs rm SUB PATH | exists SUB PATH | stat PATH
//   efs cp|cmp SUB PATH SUB2 PATH2
// A transfer of more than one chunk shows its progress on stderr (not with --json): the
// chunks the embedded modem has received, or the elapsed time against a daemon.
#include <stdio.h>
#include <string.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <fstream>
#include <iterator>
#include <string>
#include <thread>
#include <vector>

#include "command.h"
#include "extend/extend_service.h"
#include "modem_conn.h"
#include "modemsim/modem.h"
#include "tarvik_extend_api.h"
#include "tarvik_extend_nvefs.h"
#include "tarvik_extend_qmi_v01.h"

namespace tarvik_tool {

std::string ChannelHex(const void *data, size_t len);
bool ParseChannelNumber(const std::string &text, unsigned long max, unsigned long *value);
int FeatureConnect(const Options &options);
int FeatureFailed(const Options &options, const char *what, long status);

namespace {

constexpr size_t kReadCapacity = TARVIK_EFS_FILE_MAX;

// Generic requests the embedded modem has received so far.
size_t RequestsSeen() {
  modemsim::Modem *modem = EmbeddedModem();
  if (modem == nullptr) {
    return 0;
  }
  size_t n = 0;
  for (const auto &r : modem->ReceivedBy(modemsim::extend::kServiceId)) {
    n += r.msg_id == TARVIK_EXTEND_QMI_GENERIC_MSG_V01 ? 1 : 0;
  }
  return n;
}

// Runs `transfer` on a worker thread while this thread redraws a progress line; `chunks` is the
// transfer's chunk count when known (a write), 0 when not (a read: the size comes with the first
// chunk). Returns the transfer's status.
template <typename Transfer>
int WithProgress(const Options &options, const char *what, size_t chunks, Transfer transfer) {
  if (options.json || chunks == 1) {
    return transfer();
  }
  const size_t before = RequestsSeen();
  std::atomic<bool> done{false};
  int status = 0;
  std::thread worker([&] {
    status = transfer();
    done = true;
  });
  const auto start = std::chrono::steady_clock::now();
  auto draw = [&](bool last) {
    const double secs =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    if (EmbeddedModem() == nullptr) {
      fprintf(stderr, "\r%s: %.1fs", what, secs);
    } else if (chunks > 0) {
      const size_t seen = std::min(RequestsSeen() - before, chunks);
      fprintf(stderr, "\r%s: %zu/%zu chunks (%3zu%%) %.2fs", what, seen, chunks,
              seen * 100 / chunks, secs);
    } else {
      // A read's size comes with its first chunk; a one-chunk read shows nothing.
      const size_t seen = RequestsSeen() - before;
      if (seen <= 1) {
        return;
      }
      fprintf(stderr, "\r%s: %zu chunks %.2fs", what, seen, secs);
    }
    fprintf(stderr, last ? "\n" : "");
  };
  for (int tick = 0; !done; ++tick) {
    if (tick % 10 == 0) {
      draw(false);
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  worker.join();
  draw(true);
  return status;
}

bool ReadLocal(const std::string &path, std::vector<uint8_t> *out) {
  std::ifstream in(path, std::ios::binary);
  if (!in) {
    return false;
  }
  out->assign(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
  return !in.bad();
}

bool WriteLocal(const std::string &path, const uint8_t *data, size_t len) {
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  out.write(reinterpret_cast<const char *>(data), static_cast<std::streamsize>(len));
  return static_cast<bool>(out);
}

int Done(const Options &options, const std::string &what, const std::string &text,
         const std::string &json_fields) {
  if (options.json) {
    printf("{\"command\":\"%s\",\"status\":0%s}\n", what.c_str(), json_fields.c_str());
  } else {
    printf("%s\n", text.c_str());
  }
  return 0;
}

std::string Quoted(const std::string &s) {
  std::string out = "\"";
  for (char c : s) {
    if (c == '"' || c == '\\') {
      out += '\\';
    }
    if (static_cast<unsigned char>(c) < 0x20) {
      char esc[8];
      snprintf(esc, sizeof(esc), "\\u%04x", c);
      out += esc;
    } else {
      out += c;
    }
  }
  return out + "\"";
}

int RunEfs(const Options &options, const Args &args) {
  if (args.empty()) {
    return UsageError("efs");
  }
  const std::string &verb = args[0];
  unsigned long sub = 0, sub2 = 0;
  const bool stat = verb == "stat" && args.size() == 2;
  const bool one_path = (verb == "rm" || verb == "exists") && args.size() == 3;
  const bool transfer = (verb == "read" || verb == "write") && args.size() == 4;
  const bool two_paths = (verb == "cp" || verb == "cmp") && args.size() == 5;
  if ((!stat && !one_path && !transfer && !two_paths) ||
      (!stat && !ParseChannelNumber(args[1], 255, &sub)) ||
      (two_paths && !ParseChannelNumber(args[3], 255, &sub2))) {
    return UsageError("efs");
  }
  const std::string what = "efs " + verb;
  std::vector<uint8_t> local;
  if (verb == "write" && !ReadLocal(args[3], &local)) {
    fprintf(stderr, "tarvik-qmi: cannot read %s\n", args[3].c_str());
    return 1;
  }
  const int ready = FeatureConnect(options);
  if (ready != 0) {
    return ready;
  }
  const auto s = static_cast<uint32_t>(sub);
  const std::string &path = stat ? args[1] : args[2];
  const auto plen = static_cast<uint32_t>(path.size());
  const std::string fields = ",\"sub\":" + std::to_string(s) + ",\"path\":" + Quoted(path);
  int status = 0;
  if (verb == "read") {
    std::vector<uint8_t> buf(kReadCapacity);
    uint32_t len = static_cast<uint32_t>(buf.size());
    status = WithProgress(options, what.c_str(), 0,
                          [&] { return tarvik_efs_read(s, path.data(), plen, buf.data(), &len); });
    if (status != 0) {
      return FeatureFailed(options, what.c_str(), status);
    }
    if (!WriteLocal(args[3], buf.data(), len)) {
      fprintf(stderr, "tarvik-qmi: cannot write %s\n", args[3].c_str());
      return 1;
    }
    return Done(options, what, path + ": " + std::to_string(len) + " bytes to " + args[3],
                fields + ",\"length\":" + std::to_string(len));
  }
  if (verb == "write") {
    const size_t chunks = local.size() > TARVIK_EFS_FILE_MAX
                              ? 1
                              : (local.size() + TARVIK_EFS_CHUNK - 1) / TARVIK_EFS_CHUNK;
    status = WithProgress(options, what.c_str(), chunks, [&] {
      return tarvik_efs_write(s, path.data(), plen, local.data(),
                              static_cast<uint32_t>(local.size()));
    });
    if (status != 0) {
      return FeatureFailed(options, what.c_str(), status);
    }
    return Done(options, what,
                path + ": " + std::to_string(local.size()) + " bytes from " + args[3],
                fields + ",\"length\":" + std::to_string(local.size()));
  }
  if (verb == "rm" || verb == "exists") {
    status = verb == "rm" ? tarvik_efs_delete(s, path.data(), plen)
                          : tarvik_efs_is_exsit(s, path.data(), plen);
    if (verb == "exists") {
      // The modem's answer is the result: 0 means the file is there.
      return Done(options, what,
                  path + (status == 0 ? ": exists" : ": absent (" + std::to_string(status) + ")"),
                  fields + ",\"exists\":" + (status == 0 ? "true" : "false") +
                      ",\"result\":" + std::to_string(status)) +
             (status == 0 ? 0 : 1);
    }
  } else if (two_paths) {
    const std::string &path2 = args[4];
    const auto *p2 = reinterpret_cast<const uint8_t *>(path2.data());
    const auto l2 = static_cast<uint32_t>(path2.size());
    const auto s2 = static_cast<uint32_t>(sub2);
    status = verb == "cp" ? tarvik_efs_copy(s, path.data(), plen, s2, p2, l2)
                          : tarvik_efs_compare(s, path.data(), plen, s2, p2, l2);
    if (verb == "cmp" && status >= 0) {
      return Done(options, what,
                  status == 0 ? "same" : "different (" + std::to_string(status) + ")",
                  fields + ",\"same\":" + (status == 0 ? "true" : "false") +
                      ",\"result\":" + std::to_string(status)) +
             (status == 0 ? 0 : 1);
    }
  } else {
    uint8_t record[TARVIK_EFS_STAT_SIZE];
    status = tarvik_efs_stat(path.c_str(), record);
    if (status == 0) {
      uint32_t words[4];
      memcpy(words, record, sizeof(words));
      char text[160];
      snprintf(text, sizeof(text), "%s: mode %o, size %u, links %u, check %08x", path.c_str(),
               words[0], words[1], words[2], words[3]);
      return Done(
          options, what, text,
          ",\"path\":" + Quoted(path) + ",\"record\":\"" + ChannelHex(record, sizeof(record)) +
              "\",\"mode\":" + std::to_string(words[0]) + ",\"size\":" + std::to_string(words[1]));
    }
  }
  if (status != 0) {
    return FeatureFailed(options, what.c_str(), status);
  }
  return Done(options, what, path + ": done", fields);
}

TARVIK_COMMAND("efs", "read|write|rm|cp|cmp|stat|exists ...",
               "modem files: to and from local files, delete, copy, compare, status", RunEfs);

}  // namespace
}  // namespace tarvik_tool
