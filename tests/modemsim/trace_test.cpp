// `tarvik-qmi sim trace` beside tool runs against tarvik-modemd: what each service received and
// sent, decoded by name, a fault, a restart and the QMUX device's control traffic; the client
// library's own trace of the same exchange; a refused trace and the daemon going away.
#include <gtest/gtest.h>
#include <signal.h>
#include <spawn.h>
#include <stdlib.h>
#include <sys/wait.h>

#include <fstream>
#include <iterator>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "json_lines.h"
#include "qmi_client.h"
#include "qmi_client_host.h"
#include "sar_v01.h"
#include "test_env.h"
#include "wait_until.h"

extern char **environ;

namespace {

using namespace std::chrono_literals;
using nlohmann::json;

std::string Slurp(const std::string &path) {
  std::ifstream in(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

// tarvik-qmi running in the background, its output in files of the scratch directory.
class Background {
 public:
  Background(const std::string &name, const std::string &args)
      : out_(tarvik_test::ScratchDir() + "/" + name + ".out"),
        err_(tarvik_test::ScratchDir() + "/" + name + ".err") {
    const std::string line = "exec " + tarvik_test::ProgramCommand("tarvik-qmi") + " " + args +
                             " >" + out_ + " 2>" + err_;
    const char *argv[] = {"/bin/sh", "-c", line.c_str(), nullptr};
    if (posix_spawn(&pid_, argv[0], nullptr, nullptr, const_cast<char *const *>(argv), environ)) {
      pid_ = -1;
    }
  }
  ~Background() {
    if (pid_ > 0) Stop(SIGKILL);
  }
  std::string out() const { return Slurp(out_); }
  std::string err() const { return Slurp(err_); }
  // Its exit status once it has ended (after `signal`, when one is given).
  int Stop(int signal = 0) {
    if (signal != 0) kill(pid_, signal);
    int raw = 0;
    waitpid(pid_, &raw, 0);
    pid_ = -1;
    return WIFEXITED(raw) ? WEXITSTATUS(raw) : -1;
  }

 private:
  std::string out_, err_;
  pid_t pid_ = -1;
};

// Whether `want` is in `got`: objects member by member, arrays element by element (each wanted
// element in some element got), anything else equal.
bool Contains(const json &got, const json &want) {
  if (want.is_object()) {
    if (!got.is_object()) return false;
    for (const auto &m : want.items()) {
      if (!got.contains(m.key()) || !Contains(got[m.key()], m.value())) return false;
    }
    return true;
  }
  if (want.is_array()) {
    if (!got.is_array()) return false;
    for (const auto &w : want) {
      bool found = false;
      for (const auto &g : got) found = found || Contains(g, w);
      if (!found) return false;
    }
    return true;
  }
  return got == want;
}

bool AnyContains(const std::vector<json> &entries, const json &want) {
  for (const json &e : entries) {
    if (Contains(e, want)) return true;
  }
  return false;
}

// The lines of the entry whose first line holds `head`: its TLV lines and raw bytes.
std::string EntryBody(const std::string &text, const std::string &head) {
  const size_t at = text.find(head);
  if (at == std::string::npos) return "";
  const size_t begin = text.find('\n', at);
  const size_t raw = text.find("\n  raw ", begin);
  return raw == std::string::npos ? "" : text.substr(begin, text.find('\n', raw + 1) - begin);
}

TEST(Trace, FollowsEveryServiceBesideToolRunsAndEndsWithTheDaemon) {
  std::optional<tarvik_test::ModemDaemon> daemon(true);
  ASSERT_TRUE(daemon->up());
  const std::string m = daemon->modem() + " ";
  for (const auto &[service, why] : std::vector<std::pair<std::string, std::string>>{
           {"0x1234", "no service 0x1234"},
           {"sar bogus",
            "no service named bogus: give its id or one of ctl, nas, uim, sar, dfs, "
            "sns_client, extend"}}) {
    const tarvik_test::ToolRun unknown = tarvik_test::RunTool(m + "sim trace " + service);
    EXPECT_EQ(1, unknown.status) << service;
    EXPECT_EQ("tarvik-qmi: sim trace failed: " + why + "\n", unknown.err);
  }

  // Two traces at once: text and JSON.
  Background text("text", m + "sim trace");
  Background js("json", "--json " + m + "sim trace");
  ASSERT_TRUE(tarvik_test::WaitUntil(
      [&] { return text.out() == "tracing every service\n" && !js.out().empty(); }, 5000ms))
      << text.out() << text.err();

  const std::string lib_trace = tarvik_test::ScratchDir() + "/library.trace";
  for (const char *run : {"sar set 3", "--instance 0 nas nr-mode 1", "uim eid 1",
                          "sensor send 0102", "mode get", "sim fault 0x11 any result 0x30 1",
                          "sar get", "sim fault 0x03 any delay 20 1", "--instance 1 nas nr-mode 2",
                          "dfs enter rmnet_data0 IPV4 TCP 10.0.0.1 10.0.0.2 1000 443"}) {
    const bool traced = std::string(run).compare(0, 3, "dfs") == 0;
    if (traced) setenv("TARVIK_QMI_TRACE", lib_trace.c_str(), 1);
    EXPECT_NE(-1, tarvik_test::RunTool(m + run).status) << run;
    unsetenv("TARVIK_QMI_TRACE");
  }
  // A client over QMUX whose service restarts: its client id is revoked.
  ASSERT_EQ(QMI_NO_ERR, qmi_client_host_select_transport(("qmux:" + daemon->qmux_link()).c_str()));
  qmi_client_type sar = nullptr;
  ASSERT_EQ(QMI_NO_ERR,
            qmi_client_init_instance(&sar_qmi_idl_service_object_v01, QMI_CLIENT_INSTANCE_ANY,
                                     nullptr, nullptr, nullptr, 3000, &sar));
  EXPECT_EQ(0, tarvik_test::RunTool(m + "sim restart 0x11 50").status);

  const struct {
    const char *name;
    json entry;  // what one entry of the JSON trace holds
  } rows[] = {
      {"sar",
       {{"kind", "request"},
        {"service", 0x11},
        {"message_name", "rf_set_state"},
        {"tlvs", {{{"id", 1}, {"name", "sar_rf_state"}, {"length", 4}, {"value", 3}}}}}},
      {"nas",
       {{"service_name", "nas"},
        {"message_name", "set_system_selection_preference"},
        {"tlvs", {{{"name", "nr5g_disable_mode"}, {"value", 1}}}}}},
      {"uim",
       {{"service_name", "uim"},
        {"message_name", "get_eid"},
        {"tlvs", {{{"name", "slot"}, {"value", 1}}}}}},
      {"sensor",
       {{"service", 0x190},
        {"message_name", "client_request"},
        {"tlvs", {{{"name", "payload"}, {"value", "0102"}}}}}},
      {"extend",
       {{"service", 0xFFE4},
        {"message_name", "generic"},
        {"tlvs", {{{"name", "id"}, {"value", 4}}, {{"name", "data_len"}}}}}},
      {"dfs",
       {{"direction", "in"},
        {"message_name", "add_filters"},
        {"tlvs", {{{"name", "tcp_dst"}, {"value", {{{"port", 443}}}}}}}}},
      {"dfs answer",
       {{"direction", "out"},
        {"kind", "response"},
        {"message_name", "add_filters"},
        {"result", "ok"},
        {"tlvs", {{{"name", "filter_handles"}}}}}},
      {"fault",
       {{"message_name", "rf_get_state"}, {"note", "fault: refused with QMI error 0x0030"}}},
      {"delay", {{"service", 3}, {"note", "fault: answered after 20 ms"}}},
      {"refusal",
       {{"kind", "response"},
        {"message_name", "rf_get_state"},
        {"result", "failure"},
        {"error_code", 0x30},
        {"error_name", "invalid argument"}}},
      {"client id",
       {{"service_name", "ctl"},
        {"message_name", "allocate_client_id"},
        {"kind", "request"},
        {"tlvs", {{{"name", "service"}, {"value", 0x11}}}}}},
      {"revoked",
       {{"service", 0},
        {"kind", "indication"},
        {"message_name", "revoke_client_id"},
        {"tlvs", {{{"value", {{"service", 0x11}}}}}}}},
      {"down", {{"kind", "service"}, {"service", 0x11}, {"state", "down"}}},
      {"up", {{"kind", "service"}, {"service", 0x11}, {"state", "up"}}},
  };
  std::vector<json> entries;
  ASSERT_TRUE(tarvik_test::WaitUntil(
      [&] {
        entries = tarvik_test::JsonLines(js.out());
        return AnyContains(entries, rows[std::size(rows) - 1].entry);
      },
      5000ms));
  EXPECT_EQ(0, js.Stop(SIGINT));
  entries = tarvik_test::JsonLines(js.out());
  for (const auto &row : rows) {
    EXPECT_TRUE(AnyContains(entries, row.entry)) << row.name;
  }
  EXPECT_TRUE(Contains(entries.front(), json{{"kind", "tracing"}, {"services", "all"}}));
  EXPECT_TRUE(Contains(entries.back(), json{{"command", "sim trace"}, {"status", 0}}));

  // The text trace: header, TLVs by name, the fault and the restart as they happened; the
  // library's trace of the blacklist enter holds the same add-filters request.
  qmi_client_release(sar);
  EXPECT_TRUE(tarvik_test::WaitUntil(
      [&] { return text.out().find(" service 0x0011 sar up\n") != std::string::npos; }, 5000ms));
  daemon.reset();
  EXPECT_EQ(1, text.Stop());
  EXPECT_NE(std::string::npos, text.err().find(" went away: the trace ends")) << text.err();
  const std::string out = text.out();
  for (const char *line :
       {" in 0x0011 sar client ", " request 0x0001 rf_set_state txn ",
        "\n  0x01 sar_rf_state len 4: 3\n", " (fault: refused with QMI error 0x0030)\n",
        " result failure 0x0030 invalid argument\n", " service 0x0011 sar down\n",
        " out 0x0000 ctl client 0 indication 0x0024 revoke_client_id txn 0\n"}) {
    EXPECT_NE(std::string::npos, out.find(line)) << line;
  }
  const std::string request = EntryBody(out, " request 0x003F add_filters ");
  EXPECT_NE(std::string::npos,
            request.find("\n  0x1A tcp_dst len 7: [filter_id 1 port 443 range 0]"))
      << request;
  EXPECT_EQ(request, EntryBody(Slurp(lib_trace), " request 0x003F add_filters "));
}

}  // namespace
