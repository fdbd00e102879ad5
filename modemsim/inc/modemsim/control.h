// Control commands of the simulated modem, shared by tarvik-modemd (over its socket) and the
// tool's embedded modem: fault injection, restarts, presence, indications and status as words.
//
//   status                               services, up or down, clients, requests received
//   restart SERVICE [DOWN_MS]            modem restart of a service
//   absent SERVICE | present SERVICE     take a service away / bring it back
//   fault SERVICE MSG|any noanswer [COUNT]
//   fault SERVICE MSG|any delay MS [COUNT]
//   fault SERVICE MSG|any result QMI_ERROR [COUNT]
//   fault SERVICE MSG|any transport [CLIENT_ERROR] [COUNT]
//   clear SERVICE                        removes the faults of a service
//   indicate SERVICE MSG HEX|-           sends indication MSG with the TLV bytes HEX to every
//                                        client of the service
//   event EVENT [HEX]                    the extend service's event indication (payload HEX) to
//                                        every client that switched EVENT on
//   profile                              the identity words, texts and records the modem answers
//   set chipset-id|hw-id|bp-chip-id|cdma|dsda|cust-max N
//                                        changes a word of the profile (persisted)
//   set string TYPE TEXT | set record TYPE HEX
//                                        the text / record (HEX after its length byte) answered
//                                        to command TYPE (persisted)
//   set restart-down-ms MS               how long services stay down after a restart order
//   mcfg-event [HEX]                     a configuration event (indication 0x03, event 23) to
//                                        every client that asked for them
// `status` also shows the last screen and sleep status, restart and crash orders and NV syncs.
//   card SLOT none|sim|euicc EID_HEX     the card in a UIM slot (from 1); EID: 16 bytes
//   card SLOT present|absent|error       its state, as if the card changed
//   card SLOT switch on|off              whether the slot's hot-swap switch sees a card
//   card slots N                         number of UIM slots (1-5)
//   card purge purged|failed|silent [DELAY_MS]
//                                        outcome of the next GUTI purges and its delay (100)
// `status` lists the UIM slots after the services ("cards" in JSON).
// SERVICE, MSG and EVENT accept decimal or 0x-hex. COUNT absent: until cleared.
//
// A first word "--json" makes the output one JSON object on one line: the command's fields on
// success ({"services":[...]} for status), {"error":"..."} otherwise.
#pragma once

#include <string>
#include <vector>

#include "modemsim/modem.h"

namespace modemsim {

// Runs one command; appends its output to *out. Returns 0 on success, 2 for a usage error, 1
// when the modem refused (unknown service, an indication it could not send).
int RunControlCommand(Modem &modem, const std::vector<std::string> &words, std::string *out);

// The usage text of the commands above.
const char *ControlUsage();

}  // namespace modemsim
