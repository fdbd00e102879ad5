// Per-process test environment. Each test case runs in a process of its own (ctest with
// gtest_discover_tests); before main() this gives the process a fresh, empty property store
// directory (TARVIK_PROPERTY_DIR) and a scratch directory, both removed at exit.
#pragma once

#include <string>
#include <vector>

namespace tarvik_test {

// The property store directory of this process.
const std::string &PropertyDir();

// A scratch directory of this process, for files a test creates.
const std::string &ScratchDir();

// Directory of the built programs (tarvik-qmi, tarvik-modemd): TARVIK_BIN_DIR, else the build
// tree's bin/ beside the test program's directory.
std::string BinDir();

// The words that run a program built for the target on this machine: a cross build's emulator
// and its options (the build's CMAKE_CROSSCOMPILING_EMULATOR); empty when programs run natively.
std::vector<std::string> Emulator();

// The built program NAME as the words of a command (the emulator first in a cross build), and
// the same as one shell command line.
std::vector<std::string> ProgramArgv(const std::string &name);
std::string ProgramCommand(const std::string &name);

// Runs `command` through the shell and appends what it writes on standard output to *out (add
// "2>&1" to take its errors too). Returns the status pclose gives, -1 when it could not run.
int RunShell(const std::string &command, std::string *out);

struct ToolRun {
  int status;       // exit status, -1 when the tool could not run or did not exit
  std::string out;  // standard output
  std::string err;  // standard error
};

// Runs `tarvik-qmi ARGS` through the shell, as a service engineer would. The process inherits
// this test's property store.
ToolRun RunTool(const std::string &args);

// tarvik-modemd on a socket in the scratch directory, for the life of the object (stopped with
// SIGTERM). `modem()` is the tool's option that reaches it: "--modem unix:PATH". With `qmux` it
// also serves QMUX behind the link qmux_link().
class ModemDaemon {
 public:
  explicit ModemDaemon(bool qmux = false);
  ~ModemDaemon();
  ModemDaemon(const ModemDaemon &) = delete;
  ModemDaemon &operator=(const ModemDaemon &) = delete;
  bool up() const { return pid_ > 0; }
  const std::string &socket() const { return socket_; }
  std::string modem() const { return "--modem unix:" + socket_; }
  const std::string &qmux_link() const { return qmux_; }

 private:
  std::string socket_;
  std::string qmux_;
  int pid_ = -1;
};

}  // namespace tarvik_test
