// Waiting in tests for what another thread or process does: the one poll loop.
#pragma once

#include <chrono>
#include <thread>

namespace tarvik_test {

// Checks `done` every `step` until it holds or `timeout` has passed; returns its last answer,
// so a test asserts on it.
template <typename Done>
bool WaitUntil(Done done, std::chrono::milliseconds timeout,
               std::chrono::milliseconds step = std::chrono::milliseconds(10)) {
  const auto until = std::chrono::steady_clock::now() + timeout;
  while (!done()) {
    if (std::chrono::steady_clock::now() >= until) return done();
    std::this_thread::sleep_for(step);
  }
  return true;
}

}  // namespace tarvik_test
