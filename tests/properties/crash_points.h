// Deterministic crash points for the store's writer. The test program defines fsync and rename
// (ELF interposition, like the system-log capture): armed, they kill the calling process with
// SIGKILL at the chosen step of a write, so a test can prove what a crash there leaves behind.
#pragma once

namespace tarvik_test {

enum class CrashPoint {
  kNone,
  kBeforeTempSync,  // the temporary file is written but not yet flushed
  kBeforeRename,    // the temporary is flushed, the store not yet replaced
  kAfterRename,     // the store is replaced, the directory not yet flushed
};

// Arms a crash point for the calling process (a forked child, typically).
void ArmCrashPoint(CrashPoint point);

}  // namespace tarvik_test
