#include "helpers.h"

#include <cutils/properties.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/wait.h>
#include <syslog.h>
#include <unistd.h>

#include <sstream>

#include "syslog_capture.h"
#include "test_env.h"

namespace tarvik_test {

std::string SetProps(const std::string &props) {
  std::istringstream in(props);
  for (std::string prop; in >> prop;) {
    const size_t eq = prop.find('=');
    if (eq == std::string::npos ||
        property_set(prop.substr(0, eq).c_str(), prop.c_str() + eq + 1) != 0) {
      return prop;
    }
  }
  return "";
}

std::string RunWithProps(const std::string &props, const std::function<std::string()> &body) {
  static int n = 0;
  const std::string dir = ScratchDir() + "/store" + std::to_string(n++);
  int out[2];
  if (pipe(out) != 0) {
    return "<no pipe>";
  }
  fflush(stdout);
  const pid_t pid = fork();
  if (pid == 0) {
    close(out[0]);
    setenv("TARVIK_PROPERTY_DIR", dir.c_str(), 1);
    const std::string refused = SetProps(props);
    const std::string result = refused.empty() ? body() : "<not set: " + refused + ">";
    fflush(stdout);
    _exit(write(out[1], result.data(), result.size()) == static_cast<ssize_t>(result.size()) ? 0
                                                                                             : 1);
  }
  close(out[1]);
  std::string result;
  char buf[256];
  for (ssize_t got; pid > 0 && (got = read(out[0], buf, sizeof(buf))) > 0;) {
    result.append(buf, static_cast<size_t>(got));
  }
  close(out[0]);
  int status = 0;
  if (pid < 0 || waitpid(pid, &status, 0) != pid || !WIFEXITED(status) ||
      WEXITSTATUS(status) != 0) {
    return "<child failed>";
  }
  return result;
}

std::string LoggedBy(const std::string &func, int priority) {
  std::string out;
  for (const auto &line : SyslogLines()) {
    const size_t at = line.text.find(" " + func + ": ");
    if (at != std::string::npos && (priority < 0 || line.priority == priority)) {
      out += (out.empty() ? "" : "; ") + line.text.substr(at + func.size() + 3);
    }
  }
  return out;
}

std::string CodeAndErrors(long long code, const std::string &func) {
  const std::string errors = LoggedBy(func, LOG_ERR);
  ClearSyslog();
  return std::to_string(code) + (errors.empty() ? "" : " " + errors);
}

}  // namespace tarvik_test
