#include "child_props.h"

#include <cutils/properties.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/wait.h>
#include <unistd.h>

#include "test_env.h"

namespace tarvik_test {

int RunWithProps(const Props &props, const std::function<int()> &body) {
  static int n = 0;
  const std::string dir = ScratchDir() + "/store" + std::to_string(n++);
  fflush(stdout);
  const pid_t pid = fork();
  if (pid == 0) {
    setenv("TARVIK_PROPERTY_DIR", dir.c_str(), 1);
    for (const auto &p : props) {
      if (property_set(p.first, p.second) != 0) {
        _exit(254);
      }
    }
    const int result = body();
    fflush(stdout);
    _exit(result);
  }
  int status = 0;
  if (pid < 0 || waitpid(pid, &status, 0) != pid || !WIFEXITED(status)) {
    return -1;
  }
  return WEXITSTATUS(status);
}

}  // namespace tarvik_test
