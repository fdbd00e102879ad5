#include "libqmi_judge.h"

#include <gtest/gtest.h>
#include <libqmi-glib.h>
#include <stdio.h>
#include <stdlib.h>

#include <mutex>

namespace tarvik_test {

LibqmiVerdict JudgeWithLibqmi(const uint8_t *frame, size_t len) {
  LibqmiVerdict verdict;
  GByteArray *raw = g_byte_array_new();
  g_byte_array_append(raw, frame, static_cast<guint>(len));
  GError *error = nullptr;
  QmiMessage *message = qmi_message_new_from_raw(raw, &error);
  if (message == nullptr) {
    verdict.fault = std::string("libqmi cannot take the frame: ") +
                    (error != nullptr ? error->message : "incomplete");
    if (error != nullptr) g_error_free(error);
    g_byte_array_unref(raw);
    return verdict;
  }
  char what[64];
  const QmiService service = qmi_message_get_service(message);
  const char *name = qmi_service_get_string(service);
  snprintf(what, sizeof(what), "0x%02X(%s) 0x%04X %s", static_cast<unsigned>(service),
           name != nullptr ? name : "?", qmi_message_get_message_id(message),
           qmi_message_is_request(message)      ? "request"
           : qmi_message_is_response(message)   ? "response"
           : qmi_message_is_indication(message) ? "indication"
                                                : "unknown");
  verdict.what = what;
  gchar *printable = qmi_message_get_printable_full(message, nullptr, "");
  const std::string text = printable != nullptr ? printable : "";
  g_free(printable);
  // A message libqmi knows is printed with its name in quotes, its TLVs translated.
  verdict.known = text.find("message     = \"") != std::string::npos;
  for (const char *sign : {" ERROR: ", "Additional unexpected"}) {
    if (verdict.known && text.find(sign) != std::string::npos) {
      verdict.fault = "libqmi reads " + verdict.what + " otherwise:\n" + text;
    }
  }
  qmi_message_unref(message);
  g_byte_array_unref(raw);
  return verdict;
}

void JudgeFrame(const uint8_t *frame, size_t len) {
  const LibqmiVerdict verdict = JudgeWithLibqmi(frame, len);
  if (!verdict.fault.empty()) ADD_FAILURE() << verdict.fault;
  static const char *log = getenv("TARVIK_LIBQMI_JUDGE_LOG");
  if (log == nullptr) return;
  static std::mutex mu;
  std::lock_guard<std::mutex> lock(mu);
  if (FILE *f = fopen(log, "a")) {
    fprintf(f, "%s %s\n", verdict.what.c_str(), verdict.known ? "known" : "unknown");
    fclose(f);
  }
}

}  // namespace tarvik_test
