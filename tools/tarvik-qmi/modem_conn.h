// The tool's connection to a modem. Every command that talks to the modem calls PrepareModem
// first: by default it creates the embedded simulated modem (the standard services, state in
// --state DIR or TARVIK_MODEM_STATE, memory when neither is set) and selects the in-process
// transport; with --modem unix:PATH (or, without --modem, TARVIK_QMI_TRANSPORT=unix:PATH) it
// selects the socket transport to tarvik-modemd.
#pragma once

#include <string>

#include "command.h"

namespace modemsim {
class Modem;
}

namespace tarvik_tool {

// 0 when the modem is ready; otherwise prints why to stderr and returns the exit status (1 for
// an unreachable daemon, 2 for a bad --modem). Calling it again returns the first outcome.
int PrepareModem(const Options &options);

// The embedded modem after PrepareModem; nullptr with --modem unix:PATH.
modemsim::Modem *EmbeddedModem();

// The daemon's socket path (from --modem or TARVIK_QMI_TRANSPORT), or "" for the embedded modem.
std::string DaemonSocket(const Options &options);

}  // namespace tarvik_tool
