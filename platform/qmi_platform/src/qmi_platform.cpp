// QMI platform stand-in: data device names to connection facts, from a small table.
#include <errno.h>
#include <stdlib.h>

#include <mutex>
#include <string>
#include <vector>

#include "qmi_platform.h"
#include "qmi_platform_host.h"

namespace {

struct Device {
  std::string name;
  int ep_type;
  int epid;
  int mux_id;
};

constexpr int kDefaultDataDevices = 8;
constexpr int kMaxDataDevices = 64;

std::mutex g_mu;
bool g_loaded = false;
std::vector<Device> *g_devices = new std::vector<Device>();

void LoadDefaultLocked() {
  if (g_loaded) return;
  g_loaded = true;
  int count = kDefaultDataDevices;
  const char *env = getenv("TARVIK_RMNET_DATA_COUNT");
  if (env != nullptr) {
    errno = 0;
    char *end = nullptr;
    const long v = strtol(env, &end, 10);
    if (errno == 0 && end != env && *end == '\0' && v >= 1 && v <= kMaxDataDevices) {
      count = (int)v;
    }
  }
  for (int i = 0; i < count; ++i) {
    g_devices->push_back({"rmnet_data" + std::to_string(i), DATA_EP_TYPE_EMBEDDED, 1, i + 1});
  }
}

}  // namespace

extern "C" {

int qmi_linux_get_conn_id_by_name_ex(const char *dev_id, int *ep_type, int *epid, int *mux_id) {
  if (dev_id == nullptr || ep_type == nullptr || epid == nullptr || mux_id == nullptr) return -1;
  std::lock_guard<std::mutex> lock(g_mu);
  LoadDefaultLocked();
  for (size_t i = 0; i < g_devices->size(); ++i) {
    const Device &d = (*g_devices)[i];
    if (d.name == dev_id) {
      *ep_type = d.ep_type;
      *epid = d.epid;
      *mux_id = d.mux_id;
      return (int)i;
    }
  }
  return -1;
}

int qmi_platform_host_set_devices(const qmi_platform_host_device *devices, size_t count) {
  if (devices == nullptr && count != 0) return -1;
  for (size_t i = 0; i < count; ++i) {
    if (devices[i].name == nullptr) return -1;
  }
  std::lock_guard<std::mutex> lock(g_mu);
  g_loaded = true;
  g_devices->clear();
  for (size_t i = 0; i < count; ++i) {
    g_devices->push_back({devices[i].name, devices[i].ep_type, devices[i].epid, devices[i].mux_id});
  }
  return 0;
}

int qmi_platform_host_find_port(int ep_type, int epid, int mux_id) {
  std::lock_guard<std::mutex> lock(g_mu);
  LoadDefaultLocked();
  for (size_t i = 0; i < g_devices->size(); ++i) {
    const Device &d = (*g_devices)[i];
    if (d.mux_id == mux_id && (epid == -1 || (d.ep_type == ep_type && d.epid == epid))) {
      return (int)i;
    }
  }
  return -1;
}

}  // extern "C"
