// The client library's trace (TARVIK_QMI_TRACE): a file, or standard error for "-", opened once
// when the library starts, each entry written whole under a lock.
#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include <mutex>
#include <string>

#include "cci_internal.h"

namespace qmi_cci {
namespace {

struct TraceFile {
  int fd = -1;
  std::mutex mu;

  TraceFile() {
    const char *path = getenv("TARVIK_QMI_TRACE");
    if (path == nullptr || *path == '\0') return;
    if (strcmp(path, "-") == 0) {
      fd = STDERR_FILENO;
      return;
    }
    fd = open(path, O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644);
    if (fd < 0) dprintf(STDERR_FILENO, "TARVIK_QMI_TRACE: %s: %s\n", path, strerror(errno));
  }
};

TraceFile &File() {
  static TraceFile *file = new TraceFile();  // never destroyed: clients may trace during exit
  return *file;
}

}  // namespace

bool Tracing() {
  return File().fd >= 0;
}

void Trace(const qmi_trace::Entry &entry) {
  TraceFile &file = File();
  if (file.fd < 0) return;
  const std::string text = qmi_trace::Text(entry) + "\n";
  std::lock_guard<std::mutex> lock(file.mu);
  for (size_t done = 0; done < text.size();) {
    const ssize_t n = write(file.fd, text.data() + done, text.size() - done);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) return;
    done += static_cast<size_t>(n);
  }
}

}  // namespace qmi_cci
