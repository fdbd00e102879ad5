// The modem side of the features that ride on the extend service's generic request (common
// commands, NV items, modem files, CDC, venue mode) and of the base model messages, with real
// state: NV items, modem files per subscription and the extend mode and build information bytes
// persist in the modem's state store.
//
// Threads: every entry point takes the object's own mutex, so the request worker, tests and the
// tool may call in concurrently. Hooks run with that mutex held and must not call back in.
#pragma once

#include <stdint.h>

#include <array>
#include <functional>
#include <map>
#include <mutex>
#include <set>
#include <string>
#include <vector>

namespace modemsim {

class StateStore;

namespace features {

// Answer of one generic request: the service's verdict (0: handled) and the payload.
struct GenericReply {
  uint32_t verdict = 0;
  std::vector<uint8_t> data;
};

// Types of the default profile's texts and record (the caller's command number).
constexpr uint32_t kProfileVersionType = 40;
constexpr uint32_t kProfileSerialType = 41;
constexpr uint32_t kProfileRfRecordType = 42;

// Modem-side failure codes (the result field inside the payload).
constexpr int32_t kStoreFailed = 4;         // NV item or setting: the store could not be written
constexpr int32_t kNvNotActive = 5;         // NV item never written
constexpr int32_t kNvBadParam = 6;          // item number or length the modem refuses
constexpr int32_t kEfsNoEntry = -2;         // no such file
constexpr int32_t kEfsIo = -5;              // the store could not be written
constexpr int32_t kEfsBadInstance = -9;     // write chunk with an ins_id that is not open
constexpr int32_t kEfsInvalid = -22;        // bad offset, length or path
constexpr int32_t kCmnNotSupported = 0x5E;  // common command the modem does not know
constexpr int32_t kFilesDiffer = 1;         // compare: both files exist, contents differ

// Status record of a modem file (what `efs stat` returns, 16 bytes).
struct FileStat {
  uint32_t mode;  // 0100644 for a regular file
  uint32_t size;
  uint32_t nlink;  // 1
  uint32_t mtime;  // modification counter of the modem's store
};

struct BaseModelState {
  std::vector<uint32_t> cfg;
  uint8_t detection = 0;
  std::set<uint32_t> events;                    // indication message ids switched on
  std::array<std::vector<uint32_t>, 4> reason;  // arfcn, pci, reason bitmask, extended bitmask
  uint32_t scene = 0;
  uint32_t scene_ext = 0;
  std::array<uint32_t, 17> dds{};
};

class FeatureModem {
 public:
  using Bytes = std::vector<uint8_t>;

  // `store` (may be null: memory only) keeps NV items and modem files across runs.
  explicit FeatureModem(StateStore *store);

  // One generic request (message 0x02) of request id `request_id` from `client`. Unknown
  // request ids get a non-zero verdict.
  GenericReply Generic(uint32_t request_id, const uint8_t *data, uint32_t len, uint32_t client = 0);

  // Base model messages: each returns the modem's result.
  uint32_t SetModelCfg(const uint32_t *cfg, uint32_t count);
  uint32_t SetDetection(uint8_t enabled);
  uint32_t SetEventSwitch(uint32_t event, uint8_t on);
  BaseModelState BaseModel() const;
  // Updates the detected reason / scene; true when the matching indication (0x12 / 0x14)
  // should be sent, which is when detection is on and the event is switched on.
  bool ReportReason(const std::array<std::vector<uint32_t>, 4> &lists);
  bool ReportScene(uint32_t scene, uint32_t scene_ext);
  void SetDdsInfo(const std::array<uint32_t, 17> &info);

  // The modem profile: what a real modem reports from its hardware (u32 answers of commands 8,
  // 19, 26, 30, 32, 33; texts and length-prefixed records by type). Persisted in the state
  // directory; false when the store refused the change (the profile is then as it was).
  bool SetWord(uint32_t cmd, uint32_t value);
  bool SetString(uint32_t cmd, const std::string &text);
  bool SetRecord(uint32_t cmd, const std::vector<uint8_t> &record);
  struct Profile {
    std::map<uint32_t, uint32_t> words;
    std::map<uint32_t, std::string> strings;
    std::map<uint32_t, Bytes> records;
  };
  Profile GetProfile() const;
  void SetFeatureOutcome(uint32_t feature, uint8_t outcome, const std::vector<uint8_t> &report);
  void SetCellInfo(const std::vector<uint8_t> &info);
  // Delays of the whole-store NV operations (backup, restore, golden copy), in ms.
  void SetStoreDelays(uint32_t backup_ms, uint32_t restore_ms, uint32_t golden_ms);

  // Restart and crash orders (typed messages 31 and 99), newest last (the last kMaxOrders).
  struct Order {
    uint32_t type;  // 31 restart, 99 crash
    uint32_t flag;
  };
  static constexpr size_t kMaxOrders = 8;
  std::vector<Order> Orders() const;
  // After an order the modem restarts every service, down for this long (ms).
  void SetRestartDownMs(uint32_t ms);
  uint32_t RestartDownMs() const;
  // True once per order answered since the last call: the caller restarts the modem.
  bool TakeRestartDue();

  // MBN list paths by their get command (9, 11), the discovery timer, and the clients that
  // asked for configuration events (command 23); a client that goes is forgotten.
  std::string McfgPath(uint32_t get_cmd) const;
  uint32_t DiscoverTimer() const;
  std::set<uint32_t> McfgEventClients() const;
  void ClientGone(uint32_t client);
  // Last screen (17) and sleep (34) status received; false when none was.
  bool NotifyState(uint32_t cmd, uint32_t *value) const;

  // State views for tests and the tool.
  uint8_t ExtendMode() const;
  uint8_t BuildInformation() const;
  uint32_t NvSyncCount() const;
  std::vector<uint8_t> VenueMode() const;
  bool NvItem(uint32_t sub, uint32_t item, std::vector<uint8_t> *value) const;
  bool File(uint32_t sub, const std::string &path, std::vector<uint8_t> *content) const;
  size_t OpenWrites() const;

  // Rewrites the payload of the next answers (request id, request bytes, answer payload):
  // tests use it to make the modem misbehave. Cleared with an empty function.
  using Tamper = std::function<void(uint32_t request_id, const uint8_t *req, uint32_t req_len,
                                    std::vector<uint8_t> *answer)>;
  void SetTamper(Tamper tamper);

 private:
  struct PendingWrite {
    uint32_t sub;
    std::string path;
    uint32_t total;
    Bytes data;
  };

  Bytes Common(const uint8_t *data, uint32_t len);
  Bytes TypedMessage(const uint8_t *payload, uint32_t len, int32_t *result);
  Bytes NvItemRaw(const uint8_t *data, uint32_t len);
  Bytes Nvefs(const uint8_t *data, uint32_t len);
  Bytes Cdc(const uint8_t *data, uint32_t len);

  int32_t NvRead(uint32_t sub, uint32_t item, Bytes *out) const;
  int32_t NvWrite(uint32_t sub, uint32_t item, const uint8_t *data, uint32_t len);
  int32_t NvDelete(uint32_t sub, uint32_t item);
  int32_t EfsWriteChunk(const uint8_t *req, uint16_t *ins_id);
  // 0, or kEfsIo when the store could not be changed (the file is then as it was).
  int32_t PutFile(uint32_t sub, const std::string &path, Bytes content);
  int32_t EraseFile(uint32_t sub, const std::string &path);
  void Load();
  bool PutSetting(const char *key, uint8_t value);
  bool PutU32Setting(const char *ns, const std::string &key, uint32_t value);
  int32_t SyncStore() const;
  Bytes McfgCommand(uint32_t cmd, const uint8_t *payload, uint32_t client, int32_t *result);

  mutable std::mutex mu_;
  StateStore *store_;
  Tamper tamper_;
  // NV items and files, keyed by subscription; persisted write-through.
  std::map<uint32_t, std::map<uint32_t, Bytes>> nv_;
  std::map<uint32_t, std::map<std::string, Bytes>> files_;
  std::map<uint32_t, std::map<uint32_t, Bytes>> nv_backup_;
  std::map<uint32_t, std::map<uint32_t, Bytes>> nv_golden_;
  std::map<uint16_t, PendingWrite> writes_;
  uint16_t next_ins_id_ = 1;
  // Common commands.
  uint8_t extend_mode_ = 0;
  uint8_t build_info_ = 0;
  uint32_t nv_syncs_ = 0;
  uint32_t discover_timer_ = 30;
  std::map<uint32_t, std::string> mcfg_paths_;
  std::set<uint32_t> mcfg_event_clients_;
  std::vector<Order> orders_;
  uint32_t restart_down_ms_ = 300;
  uint32_t restarts_due_ = 0;
  uint32_t client_ = 0;  // client of the common request being handled
  std::map<uint32_t, uint32_t> words_;
  std::map<uint32_t, std::string> strings_;
  std::map<uint32_t, Bytes> records_;
  std::map<uint32_t, std::pair<uint8_t, Bytes>> features_;
  std::map<uint32_t, uint32_t> notify_;  // screen/sleep status and the like, by command
  Bytes cell_info_;
  Bytes venue_;
  std::map<uint32_t, Bytes> cdc_;
  uint32_t backup_ms_ = 200, restore_ms_ = 400, golden_ms_ = 200;
  BaseModelState base_;
};

}  // namespace features
}  // namespace modemsim

namespace modemsim {
class Modem;
namespace features {

// The feature state of a modem built by CreateStandardModem (or given to Install); null for a
// modem without it. Valid while the modem lives.
FeatureModem *Of(Modem &modem);

// Plugs the features into a modem that already has the extend service (done by the module for
// CreateStandardModem; tests that build a bare Modem call it themselves). The state is the
// modem's own (Modem::ModuleState); a second call returns it unchanged.
FeatureModem &Install(Modem &modem);

// The modem detects a reason or a scene: the state changes, and when detection and the event
// are switched on, indication 0x12 (with `ind`) or 0x14 goes to every client. Returns the
// clients reached (0 when the indication was not due), or a negative status.
int DetectReason(Modem &modem, const std::array<std::vector<uint32_t>, 4> &lists,
                 const std::array<uint32_t, 4> &ind);
int DetectScene(Modem &modem, uint32_t scene, uint32_t scene_ext);

// The modem's configuration service reports an event: indication 0x03 with event
// kMcfgEvent and `data` to every client that asked for configuration events (command 23).
// Returns the clients reached, or a negative status.
constexpr uint32_t kMcfgEvent = 23;
int ReportMcfgEvent(Modem &modem, const std::vector<uint8_t> &data);

}  // namespace features
}  // namespace modemsim
