#include "test_env.h"

#include <stdio.h>
#include <stdlib.h>
#include <sys/wait.h>

#include <filesystem>
#include <stdexcept>

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
  return dir != nullptr ? dir : "";
}

ToolRun RunTool(const std::string &args) {
  const std::string command = BinDir() + "/tarvik-qmi " + args + " 2>/dev/null";
  ToolRun run{-1, ""};
  FILE *pipe = popen(command.c_str(), "r");
  if (pipe == nullptr) {
    return run;
  }
  char buf[512];
  size_t n;
  while ((n = fread(buf, 1, sizeof(buf), pipe)) > 0) {
    run.out.append(buf, n);
  }
  const int raw = pclose(pipe);
  run.status = WIFEXITED(raw) ? WEXITSTATUS(raw) : -1;
  return run;
}

}  // namespace tarvik_test
