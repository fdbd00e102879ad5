// The common request's routing to the features' handlers (see commands.h).
#include "commands.h"

#include <algorithm>
#include <map>
#include <mutex>
#include <utility>

#include "extend/extend_service.h"
#include "tarvik_extend_cmn.h"

namespace modemsim {
namespace features {
namespace {

constexpr size_t kCmnHeader = offsetof(tarvik_cmn_rsp_t, data);
constexpr size_t kCmnResult = offsetof(tarvik_cmn_rsp_t, result);
constexpr size_t kPayload = offsetof(tarvik_cmn_req_t, payload);
constexpr size_t kTypedHeader = 8;  // type and length, before a typed message's payload

struct Routes {
  std::mutex mu;
  std::map<uint32_t, CommandHandler> commands;
  std::map<uint32_t, MessageHandler> messages;
  CommandHandler other;
};

void TypedMessage(Routes *routes, Command &command) {
  Message message{command.modem,
                  command.client,
                  GetU32(command.payload),
                  GetU32(command.payload + 4),
                  command.payload + kTypedHeader,
                  0,
                  {}};
  if (message.len >= TARVIK_CMN_MSG_LEN_LIMIT) {
    command.result = kNvBadParam;
    return;
  }
  MessageHandler handler;
  {
    std::lock_guard<std::mutex> lock(routes->mu);
    auto it = routes->messages.find(message.type);
    if (it != routes->messages.end()) handler = it->second;
  }
  if (!handler) {
    command.result = kCmnNotSupported;
    return;
  }
  handler(message);
  command.result = message.result;
  if (message.result != 0) return;
  command.data.assign(kTypedHeader, 0);
  PutU32(&command.data, 0, message.type);
  PutU32(&command.data, 4, static_cast<uint32_t>(message.answer.size()));
  command.data.insert(command.data.end(), message.answer.begin(), message.answer.end());
}

void Route(Routes *routes, const extend::Request &req, extend::Reply &reply) {
  // A request shorter than the layout reads as zero-filled; a longer one is cut.
  uint8_t buf[TARVIK_CMN_REQ_SIZE] = {};
  memcpy(buf, req.data, std::min<size_t>(req.data_len, sizeof(buf)));
  Command command{req.modem, req.client, GetU32(buf), buf + kPayload, 0, {}};
  if (command.cmd == COMMON_CMD_MSG) {
    TypedMessage(routes, command);
  } else {
    CommandHandler handler;
    {
      std::lock_guard<std::mutex> lock(routes->mu);
      auto it = routes->commands.find(command.cmd);
      handler = it != routes->commands.end() ? it->second : routes->other;
    }
    if (handler) {
      handler(command);
    } else {
      command.result = kCmnNotSupported;
    }
  }
  command.data.resize(std::min<size_t>(command.data.size(), TARVIK_CMN_RSP_DATA_MAX));
  Bytes out(kCmnHeader + command.data.size(), 0);
  PutU32(&out, kCmnResult, static_cast<uint32_t>(command.result));
  std::copy(command.data.begin(), command.data.end(), out.begin() + kCmnHeader);
  reply.SetData(out.data(), out.size());
}

// Changes the modem's routes under their lock; false when the modem has none.
template <typename Change>
bool WithRoutes(Modem &modem, Change change) {
  Routes *routes = modem.FindModuleState<Routes>();
  if (routes == nullptr) return false;
  std::lock_guard<std::mutex> lock(routes->mu);
  change(*routes);
  return true;
}

void InitModule(Modem &modem) {
  Routes *routes = &modem.ModuleState<Routes>();
  extend::SetRequestHandler(
      modem, REQUEST_ID_COMMON,
      [routes](const extend::Request &req, extend::Reply &reply) { Route(routes, req, reply); });
}

}  // namespace

bool HandleCommand(Modem &modem, uint32_t cmd, CommandHandler handler) {
  return WithRoutes(modem, [&](Routes &r) { r.commands[cmd] = std::move(handler); });
}

bool HandleMessage(Modem &modem, uint32_t type, MessageHandler handler) {
  return WithRoutes(modem, [&](Routes &r) { r.messages[type] = std::move(handler); });
}

bool HandleOtherCommands(Modem &modem, CommandHandler handler) {
  return WithRoutes(modem, [&](Routes &r) { r.other = std::move(handler); });
}

}  // namespace features
}  // namespace modemsim

MODEMSIM_MODULE("commands", modemsim::features::kCommandsOrder, modemsim::features::InitModule);
