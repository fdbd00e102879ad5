#include "test_env.h"

#include <stdlib.h>

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

}  // namespace tarvik_test
