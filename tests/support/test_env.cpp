#include "test_env.h"

#include <stdio.h>
#include <stdlib.h>
#include <sys/wait.h>

#include <signal.h>
#include <spawn.h>
#include <unistd.h>

#include <atomic>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>
#include <stdexcept>

#include "modemsim/socket_server.h"
#include "wait_until.h"

extern char **environ;

namespace tarvik_test {
namespace {

std::string MakeTempDir(const char *prefix) {
  std::string templ = std::filesystem::temp_directory_path().string() + "/" + prefix + "XXXXXX";
  if (mkdtemp(templ.data()) == nullptr) {
    throw std::runtime_error("mkdtemp failed");
  }
  return templ;
}

struct Environment {
  std::string props;
  std::string scratch;
  Environment() : props(MakeTempDir("tarvik-props-")), scratch(MakeTempDir("tarvik-scratch-")) {
    setenv("TARVIK_PROPERTY_DIR", props.c_str(), 1);
  }
  ~Environment() {
    std::error_code ec;
    std::filesystem::remove_all(props, ec);
    std::filesystem::remove_all(scratch, ec);
  }
};

Environment &Env() {
  static Environment env;
  return env;
}

// Set up before main(), so that nothing in the process sees another store.
const bool g_ready = (Env(), true);

}  // namespace

const std::string &PropertyDir() {
  return Env().props;
}
const std::string &ScratchDir() {
  return Env().scratch;
}

std::string BinDir() {
  const char *dir = getenv("TARVIK_BIN_DIR");
  if (dir != nullptr) return dir;
  // A test program run by hand: the build tree's bin/ beside its tests/.
  std::error_code ec;
  const std::filesystem::path exe = std::filesystem::read_symlink("/proc/self/exe", ec);
  if (ec) return "";
  const std::filesystem::path bin = exe.parent_path().parent_path() / "bin";
  return std::filesystem::is_directory(bin, ec) ? bin.string() : "";
}

std::vector<std::string> Emulator() {
#ifdef TARVIK_TEST_EMULATOR
  std::vector<std::string> words;
  std::istringstream in(TARVIK_TEST_EMULATOR);
  for (std::string word; in >> word;) words.push_back(word);
  return words;
#else
  return {};
#endif
}

std::vector<std::string> ProgramArgv(const std::string &name) {
  std::vector<std::string> argv = Emulator();
  argv.push_back(BinDir() + "/" + name);
  return argv;
}

std::string ProgramCommand(const std::string &name) {
  std::string command;
  for (const std::string &word : ProgramArgv(name)) {
    command += (command.empty() ? "" : " ") + word;
  }
  return command;
}

int RunShell(const std::string &command, std::string *out) {
  FILE *pipe = popen(command.c_str(), "r");
  if (pipe == nullptr) return -1;
  char buf[512];
  size_t n;
  while ((n = fread(buf, 1, sizeof(buf), pipe)) > 0) out->append(buf, n);
  return pclose(pipe);
}

ToolRun RunTool(const std::string &args) {
  static std::atomic<int> runs{0};  // tests run the tool from several threads
  const std::string err = ScratchDir() + "/tool-stderr-" + std::to_string(++runs);
  const std::string command = ProgramCommand("tarvik-qmi") + " " + args + " 2>" + err;
  ToolRun run{-1, "", ""};
  const int raw = RunShell(command, &run.out);
  if (raw == -1) return run;
  run.status = WIFEXITED(raw) ? WEXITSTATUS(raw) : -1;
  std::ifstream in(err, std::ios::binary);
  run.err.assign(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
  return run;
}

ModemDaemon::ModemDaemon(bool qmux)
    : socket_(ScratchDir() + "/modemd.sock"), qmux_(qmux ? ScratchDir() + "/modemd-qmi" : "") {
  std::vector<std::string> words = ProgramArgv("tarvik-modemd");
  words.insert(words.end(), {"--socket", socket_, "--state", ScratchDir() + "/modemd-state"});
  if (qmux) words.insert(words.end(), {"--qmux", qmux_});
  std::vector<char *> argv;
  for (std::string &word : words) argv.push_back(word.data());
  argv.push_back(nullptr);
  pid_t pid = -1;
  if (posix_spawn(&pid, argv[0], nullptr, nullptr, argv.data(), environ) != 0) {
    return;
  }
  pid_ = pid;
  // Up once a control command gets an answer.
  std::string out;
  if (WaitUntil([&] { return modemsim::SendControlCommand(socket_, {"status"}, &out) == 0; },
                std::chrono::seconds(5))) {
    return;
  }
  kill(pid_, SIGTERM);
  waitpid(pid_, nullptr, 0);
  pid_ = -1;
}

ModemDaemon::~ModemDaemon() {
  if (pid_ <= 0) return;
  kill(pid_, SIGTERM);
  waitpid(pid_, nullptr, 0);
}

}  // namespace tarvik_test
