// The radio allocator and QMI platform stand-ins.
#include <gtest/gtest.h>
#include <string.h>

#include <algorithm>

#include "qcril_alloc_host.h"
#include "qcril_memory_management.h"
#include "qmi_platform.h"
#include "qmi_platform_host.h"

namespace {

TEST(AllocatorTest, NthAllocationFailsOnceAndBlocksArePatternedAndCounted) {
  qcril_alloc_host_fail_nth(1);
  qcril_alloc_host_fail_nth(0);  // disarmed: the next allocation, even of 0 bytes, succeeds
  void *z = qcril_malloc_adv(0, __func__, __LINE__);
  EXPECT_NE(nullptr, z);
  qcril_free_adv(z, __func__, __LINE__);
  const int64_t base = qcril_alloc_host_outstanding();
  qcril_alloc_host_fail_nth(3);
  void *a = qcril_malloc_adv(16, __func__, __LINE__);
  void *b = qcril_malloc_adv(33272, __func__, __LINE__);
  void *c = qcril_malloc_adv(8, __func__, __LINE__);
  void *d = qcril_malloc_adv(8, nullptr, 0);
  ASSERT_NE(nullptr, a);
  ASSERT_NE(nullptr, b);
  EXPECT_EQ(nullptr, c);
  ASSERT_NE(nullptr, d);
  const auto *bytes = static_cast<const uint8_t *>(b);
  EXPECT_EQ(33272, std::count(bytes, bytes + 33272, QCRIL_ALLOC_HOST_FILL));
  EXPECT_EQ(base + 3, qcril_alloc_host_outstanding());
  qcril_free_adv(a, __func__, __LINE__);
  qcril_free_adv(b, __func__, __LINE__);
  qcril_free_adv(d, __func__, __LINE__);
  qcril_free_adv(nullptr, __func__, __LINE__);
  EXPECT_EQ(base, qcril_alloc_host_outstanding());
}

TEST(ConnIdTest, DefaultTableAndReplacement) {
  struct Row {
    const char *name;
    int expected;
    int ep_type, epid, mux_id;
  } rows[] = {
      {"rmnet_data0", 0, DATA_EP_TYPE_EMBEDDED, 1, 1},
      {"rmnet_data7", 7, DATA_EP_TYPE_EMBEDDED, 1, 8},
      {"rmnet_data8", -1, -1, -1, -1},
      {"rmnet_data", -1, -1, -1, -1},
      {"rmnet_data01", -1, -1, -1, -1},
      {"", -1, -1, -1, -1},
  };
  for (const Row &row : rows) {
    SCOPED_TRACE(row.name);
    int ep_type = -1, epid = -1, mux_id = -1;
    EXPECT_EQ(row.expected, qmi_linux_get_conn_id_by_name_ex(row.name, &ep_type, &epid, &mux_id));
    EXPECT_EQ(row.ep_type, ep_type);
    EXPECT_EQ(row.epid, epid);
    EXPECT_EQ(row.mux_id, mux_id);
  }
  int x = 0;
  EXPECT_EQ(-1, qmi_linux_get_conn_id_by_name_ex(nullptr, &x, &x, &x));
  EXPECT_EQ(-1, qmi_linux_get_conn_id_by_name_ex("rmnet_data0", nullptr, &x, &x));

  const qmi_platform_host_device devs[] = {{"rmnet_ipa0", DATA_EP_TYPE_PCIE, 3, 9}};
  ASSERT_EQ(0, qmi_platform_host_set_devices(devs, 1));
  int ep_type = 0, epid = 0, mux_id = 0;
  EXPECT_EQ(0, qmi_linux_get_conn_id_by_name_ex("rmnet_ipa0", &ep_type, &epid, &mux_id));
  EXPECT_EQ(DATA_EP_TYPE_PCIE, ep_type);
  EXPECT_EQ(3, epid);
  EXPECT_EQ(9, mux_id);
  EXPECT_EQ(-1, qmi_linux_get_conn_id_by_name_ex("rmnet_data0", &ep_type, &epid, &mux_id));
  EXPECT_EQ(-1, qmi_platform_host_set_devices(nullptr, 1));
}

}  // namespace
