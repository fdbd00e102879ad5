// Control commands of the simulated modem, shared by tarvik-modemd (over its socket) and the
// tool's embedded modem: words that inject faults, restart services, change module state and
// show the status.
//
// The core's words (status, restart, absent, present, fault, clear, indicate, trace) and every
// module's are registered the same way, each with its usage: MODEMSIM_CONTROL_WORD("card", "SLOT
// ...", Card). A word may be two words ("set restart-down-ms"): the longest registered match runs.
// Handlers get every word (the first is the command) and answer through a ControlReply: typed
// fields (modemsim/status.h) that the core renders as text and, after a first word "--json",
// as one JSON object on one line ({"error":"..."} when refused).
//
// `status` shows every service on a line of its own (id, instance, up or down, clients,
// requests received, then what the service's Summary adds) and after them what the modules
// add (Modem::AddStatus). SERVICE, MSG and EVENT accept decimal or 0x-hex.
#pragma once

#include <string>
#include <vector>

#include "modemsim/modem.h"
#include "modemsim/status.h"

namespace modemsim {

using Words = std::vector<std::string>;

// What one command answers.
class ControlReply {
 public:
  explicit ControlReply(bool json) : json_(json) {}
  bool json() const { return json_; }
  // A field of the answer: JSON only after Done, text too after Show.
  void Add(Field field);
  // Success: the text `line`, or the fields as JSON.
  int Done(const std::string &line);
  // Success: the fields, as text or as JSON.
  int Show();
  // The modem refused (1) or could not (another status): the reason, as text or as JSON.
  int Refused(const std::string &why, int status = 1);
  // Bad words: status 2 (as text the caller adds the usage).
  int Usage();
  // No service with that id: refused.
  int NoService(uint32_t service);
  // An indication sent: the clients it reached, or why none could be (a negative status).
  int Sent(int reached);

  const std::string &out() const { return out_; }

 private:
  bool json_;
  std::vector<Field> fields_;
  std::string out_;
};

using ControlHandler = int (*)(Modem &modem, const Words &words, ControlReply &reply);

struct ControlWord {
  const char *word;   // "card", or two words "set restart-down-ms"
  const char *usage;  // the words after it
  ControlHandler run;
};

struct ControlWordRegistrar {
  explicit ControlWordRegistrar(const ControlWord &word);
};

// Every registered word, sorted.
std::vector<ControlWord> ControlWords();

// Runs one command; appends its output to *out. Returns 0 on success, 2 for a usage error, 1
// when the modem refused (unknown service, an indication it could not send).
int RunControlCommand(Modem &modem, const std::vector<std::string> &words, std::string *out);

// The usage of every word, one per line.
std::string ControlUsage();
// The usage of the word `words` name ("--json" first is skipped), or of every word when it names
// none: what a usage error is answered with.
std::string ControlUsage(const std::vector<std::string> &words);

// A service id as the control language shows it (0x%04X).
std::string ServiceName(uint32_t service);

}  // namespace modemsim

#define MODEMSIM_CONTROL_WORD(word, usage, run)                  \
  static const ::modemsim::ControlWordRegistrar MODEMSIM_CONCAT( \
      g_modemsim_control_, __LINE__)(::modemsim::ControlWord{word, usage, run})
