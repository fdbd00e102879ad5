// NV items (validated and raw path) and modem files (chunked reads and writes, the write
// instance, the one-shot operations), driven through the simulated modem.

#include <algorithm>
#include <future>

#include "features_env.h"
#include "wait_until.h"

namespace features_test {
namespace {

using NvTest = FeatureTest;

// A full item goes out whole and comes back whole; a buffer shorter than the item is filled
// and keeps its count; a deleted item is gone, and a failed read leaves the count alone.
TEST_F(NvTest, WriteReadDelete) {
  const auto item = Pattern(424);
  ASSERT_EQ(tarvik_nv_write_ex(1, 7232, item.data(), 424), 0);
  std::vector<uint8_t> stored;
  ASSERT_TRUE(nvefs_->NvItem(1, 7232, &stored));
  EXPECT_EQ(stored, item);
  const auto sent = SentRequests(REQUEST_ID_NVEFS);
  ASSERT_EQ(sent.size(), 1u);
  EXPECT_EQ(sent[0].data.size(), TARVIK_NVEFS_REQ_SIZE);
  const auto req = sent[0].As<tarvik_nvefs_req_t>();
  EXPECT_EQ(req.op, NVEFS_OP_NV_WRITE);
  EXPECT_EQ(req.sub, 1);
  EXPECT_EQ(req.item, 7232);
  EXPECT_EQ(req.len_all, 424u);
  EXPECT_EQ(0, memcmp(req.data, item.data(), 424));

  for (uint32_t cap : {500u, 16u}) {
    SCOPED_TRACE("capacity " + std::to_string(cap));
    std::vector<uint8_t> buf(cap + 1, 0xEE);
    uint32_t len = cap;
    ASSERT_EQ(tarvik_nv_read(1, 7232, buf.data(), &len), 0);
    EXPECT_EQ(len, std::min(cap, 424u));
    EXPECT_TRUE(std::equal(buf.begin(), buf.begin() + len, item.begin()));
    EXPECT_EQ(buf[len], 0xEE) << "nothing written past the item or the capacity";
  }

  ASSERT_EQ(tarvik_nv_delete(1, 7232), 0);
  uint8_t buf[8];
  uint32_t len = sizeof(buf);
  EXPECT_EQ(tarvik_nv_read(1, 7232, buf, &len), modemsim::features::kNvNotActive);
  EXPECT_EQ(len, sizeof(buf)) << "the count is only written on success";
}

// Limits of subscription, item number, buffer and length, and a failed exchange: each refused
// row sends nothing, and no row leaves the NV lock held.
TEST_F(NvTest, ArgumentLimits) {
  uint8_t buf[8] = {1, 2, 3};
  uint32_t cap = sizeof(buf);
  uint32_t zero = 0;
  ExpectCalls(
      {
          {"read sub 2 item 550", [&] { return tarvik_nv_read(2, 550, buf, &cap); }, 5, true},
          {"read sub 2 item 551", [&] { return tarvik_nv_read(2, 551, buf, &cap); }, -104, false},
          {"read sub 3 item 550", [&] { return tarvik_nv_read(3, 550, buf, &cap); }, -104, false},
          {"read item 7232", [&] { return tarvik_nv_read(0, 7232, buf, &cap); }, 5, true},
          {"read item 7233", [&] { return tarvik_nv_read(0, 7233, buf, &cap); }, -109, false},
          {"read null buf", [&] { return tarvik_nv_read(0, 1, nullptr, &cap); }, -107, false},
          {"read null len", [&] { return tarvik_nv_read(0, 1, buf, nullptr); }, -108, false},
          {"read zero len", [&] { return tarvik_nv_read(0, 1, buf, &zero); }, -108, false},
          {"write sub 2 item 550", [&] { return tarvik_nv_write_ex(2, 550, buf, 1); }, -104, false},
          {"write item 7233", [&] { return tarvik_nv_write_ex(1, 7233, buf, 1); }, -109, false},
          {"write null buf", [&] { return tarvik_nv_write_ex(0, 1, nullptr, 1); }, -107, false},
          {"write 0 bytes", [&] { return tarvik_nv_write_ex(0, 1, buf, 0); }, -108, false},
          {"write 425 bytes", [&] { return tarvik_nv_write_ex(0, 1, buf, 425); }, -108, false},
          {"delete sub 2", [&] { return tarvik_nv_delete(2, 550); }, -104, false},
          {"delete item 7233", [&] { return tarvik_nv_delete(0, 7233); }, -109, false},
          {"delete item 7232 never written", [&] { return tarvik_nv_delete(0, 7232); }, 5, true},
          {"write after a time-out", TimedOut([&] { return tarvik_nv_write_ex(0, 1, buf, 1); }),
           -103, true},
      },
      [&] { cap = sizeof(buf); }, [] { tarvik_nv_write_ex(0, 2, "*", 1); });
  // The one subscription-2 read goes out with subscription 2 and item 550.
  ClearSent();
  cap = 8;
  tarvik_nv_read(2, 550, buf, &cap);
  const auto req = Only<tarvik_nvefs_req_t>(REQUEST_ID_NVEFS);
  EXPECT_EQ(req.sub, 2);
  EXPECT_EQ(req.item, 550);
  EXPECT_TRUE(tarvik_test::SyslogContains("sub cust case for tt"));
  EXPECT_TRUE(tarvik_test::SyslogContains("nv_id is out range(7232)"));
}

// A refusal by the modem comes back as its own code; a channel failure as the feature code (a
// time-out is not retried), and a missing service as "no client".
TEST_F(NvTest, RefusalsAndTransportFailures) {
  uint8_t buf[8] = {1};
  uint32_t len = sizeof(buf);
  const struct {
    const char *name;
    std::function<int()> call;
  } rows[] = {
      {"read", [&] { return tarvik_nv_read(0, 1, buf, &len); }},
      {"write", [&] { return tarvik_nv_write_ex(0, 1, buf, 1); }},
      {"delete", [] { return tarvik_nv_delete(0, 1); }},
  };
  for (const auto &row : rows) {
    SCOPED_TRACE(row.name);
    FailTransport(QMI_TIMEOUT_ERR, 1);
    EXPECT_EQ(row.call(), -103);
    TamperField(REQUEST_ID_NVEFS, offsetof(tarvik_nvefs_rsp_t, result), 0x4321);
    EXPECT_EQ(row.call(), 0x4321);
    modemsim::extend::SetTamper(*modem_, {});
  }
  EXPECT_TRUE(tarvik_test::SyslogContains("qmi response fail"));
  EXPECT_TRUE(tarvik_test::SyslogContains("tarvik_qmi_result_map, old_result -3, new_result -103"));
  ASSERT_EQ(modem_->SetPresent(modemsim::extend::kServiceId, false), 0);
  tarvik_extend_qmi_init_force();
  EXPECT_EQ(tarvik_nv_write_ex(0, 1, buf, 1), -102);
}

// Answers whose claimed item length and the data they carry disagree: only what arrived is
// copied, and an answer without item data is empty whatever it claims.
TEST_F(NvTest, ClaimedLengthMeetsTheDataCarried) {
  const uint8_t v[4] = {1, 2, 3, 4};
  ASSERT_EQ(tarvik_nv_write_ex(0, 3, v, 4), 0);
  const size_t header = offsetof(tarvik_nvefs_rsp_t, data);
  const struct {
    const char *name;
    int32_t claim;
    size_t keep;  // the answer is cut to this many bytes
    int status;
    uint32_t len;
  } rows[] = {
      {"claims 0, carries nothing", 0, header, -108, 424},
      {"claims 4, carries nothing", 4, header, -108, 424},
      {"claims 5000, carries 4", 5000, SIZE_MAX, 0, 4},
  };
  for (const auto &row : rows) {
    SCOPED_TRACE(row.name);
    TamperField(REQUEST_ID_NVEFS, offsetof(tarvik_nvefs_rsp_t, data_len_all), row.claim, row.keep);
    ClearSent();
    std::vector<uint8_t> buf(424, 0xEE);
    uint32_t len = 424;
    EXPECT_EQ(tarvik_nv_read(0, 3, buf.data(), &len), row.status);
    EXPECT_EQ(len, row.len);
    const size_t copied = row.status == 0 ? row.len : 0;
    EXPECT_EQ(0, memcmp(buf.data(), v, copied));
    EXPECT_EQ(buf[copied], 0xEE);
    const auto req = Only<tarvik_nvefs_req_t>(REQUEST_ID_NVEFS);
    EXPECT_EQ(req.op, NVEFS_OP_NV_READ);
    EXPECT_EQ(req.item, 3);
  }
  EXPECT_EQ(tarvik_test::SyslogCount("rsp.data_len_all is invalid"), 2u);
}

// ---------------------------------------------------------------------------------------------
// Raw path
// ---------------------------------------------------------------------------------------------

// A read that leaves part of the item behind says so, measured against the item's length as
// the modem gives it; what is copied never goes past 412 bytes or past what the answer carries.
TEST_F(NvTest, RawReadCutsAndSaysSo) {
  const auto item = Pattern(20);
  ASSERT_EQ(tarvik_extend_nv_write_item(453, 1, item.data(), 20), 0u);
  const auto written = SentRequests(REQUEST_ID_NV_ITEM);
  ASSERT_EQ(written.size(), 1u);
  EXPECT_EQ(written[0].data.size(), TARVIK_NV_ITEM_REQ_SIZE);
  const auto req = written[0].As<tarvik_nv_item_req_t>();
  EXPECT_EQ(req.op, NV_ITEM_OP_WRITE);
  EXPECT_EQ(req.arg1, 453u);
  EXPECT_EQ(req.arg2, 1u);
  EXPECT_EQ(req.len, 20u);

  const struct {
    const char *name;
    int32_t claim;     // 0: the modem's own answer
    uint32_t carried;  // data bytes the rewritten answer keeps
    int capacity;
    uint32_t status;
    int len;
  } rows[] = {
      {"capacity below the item", 0, 0, 10, TARVIK_NV_ITEM_ERR_NO_FIT, 10},
      {"capacity above the item", 0, 0, 64, 0, 20},
      {"claim above 412, capacity between", 500, 412, 450, TARVIK_NV_ITEM_ERR_NO_FIT, 412},
      {"claim beyond the answer", 30, 20, 64, 0, 20},
  };
  for (const auto &row : rows) {
    SCOPED_TRACE(row.name);
    modemsim::extend::SetTamper(*modem_, {});
    if (row.claim != 0) {
      TamperField(REQUEST_ID_NV_ITEM, offsetof(tarvik_nv_item_rsp_t, data_len), row.claim,
                  offsetof(tarvik_nv_item_rsp_t, data) + row.carried);
    }
    ClearSent();
    std::vector<uint8_t> buf(600, 0xEE);
    int len = row.capacity;
    EXPECT_EQ(tarvik_extend_nv_read_item(453, 1, buf.data(), &len), row.status);
    EXPECT_EQ(len, row.len);
    EXPECT_EQ(0, memcmp(buf.data(), item.data(), std::min(row.len, 20)));
    EXPECT_EQ(buf[row.len], 0xEE);
    const auto read = Only<tarvik_nv_item_req_t>(REQUEST_ID_NV_ITEM);
    EXPECT_EQ(read.op, NV_ITEM_OP_READ);
    EXPECT_EQ(read.arg1, 453u);
  }
}

// Payload limits of a raw write; a failed raw read zeroes the count and comes back unmapped.
TEST_F(NvTest, RawLimitsAndFailures) {
  std::vector<uint8_t> data(413, 1);
  ExpectCalls({
      {"413 bytes", [&] { return tarvik_extend_nv_write_item(1, 0, data.data(), 413); },
       TARVIK_NV_ITEM_ERR_NO_FIT, false},
      {"-1 bytes", [&] { return tarvik_extend_nv_write_item(1, 0, data.data(), -1); },
       TARVIK_NV_ITEM_ERR_NO_FIT, false},
      {"null", [&] { return tarvik_extend_nv_write_item(1, 0, nullptr, 4); },
       TARVIK_NV_ITEM_ERR_NO_FIT, false},
      {"412 bytes", [&] { return tarvik_extend_nv_write_item(1, 0, data.data(), 412); }, 0, true},
  });
  uint8_t buf[8];
  int len = sizeof(buf);
  EXPECT_EQ(tarvik_extend_nv_read_item(77, 0, buf, &len),
            static_cast<uint32_t>(modemsim::features::kNvNotActive));
  EXPECT_EQ(len, 0);
  len = sizeof(buf);
  FailTransport(QMI_TIMEOUT_ERR, 1);
  EXPECT_EQ(tarvik_extend_nv_read_item(77, 0, buf, &len), static_cast<uint32_t>(-3));
  EXPECT_EQ(len, 0);
}

// Backup and restore go through the long-process channel: a backup that takes the modem
// longer than an ordinary request's 3 s still succeeds.
TEST_F(NvTest, BackupAndRestoreTakeTheirTime) {
  const uint8_t before[2] = {1, 1};
  const uint8_t after[2] = {2, 2};
  ASSERT_EQ(tarvik_nv_write_ex(0, 71, before, 2), 0);
  nvefs_->SetStoreDelays(3300, 0, 0);
  EXPECT_EQ(tarvik_extend_nv_backup(0), 0u);
  nvefs_->SetStoreDelays(0, 0, 0);
  ASSERT_EQ(tarvik_nv_write_ex(0, 71, after, 2), 0);
  EXPECT_EQ(tarvik_extend_nv_restore(0), 0u);
  std::vector<uint8_t> v;
  ASSERT_TRUE(nvefs_->NvItem(0, 71, &v));
  EXPECT_EQ(v, std::vector<uint8_t>(before, before + 2));
  EXPECT_EQ(tarvik_extend_nv_restore(1), static_cast<uint32_t>(modemsim::features::kNvNotActive))
      << "no backup of subscription 1";
  EXPECT_EQ(tarvik_extend_nv_goldencopy(), 0u);
  const auto sent = SentRequests(REQUEST_ID_NV_ITEM);
  ASSERT_EQ(sent.size(), 4u);
  EXPECT_EQ(sent[0].As<tarvik_nv_item_req_t>().op, NV_ITEM_OP_BACKUP);
  EXPECT_EQ(sent[3].As<tarvik_nv_item_req_t>().op, NV_ITEM_OP_GOLDENCOPY);
}

// ---------------------------------------------------------------------------------------------
// Modem files
// ---------------------------------------------------------------------------------------------

using EfsTest = FeatureTest;

const std::string kPath = "/nv/item_files/test/blob";

int Write(const std::string &path, const std::vector<uint8_t> &data, uint32_t sub = 0) {
  return tarvik_efs_write(sub, path.data(), static_cast<uint32_t>(path.size()), data.data(),
                          static_cast<uint32_t>(data.size()));
}

int Read(const std::string &path, void *buf, uint32_t *len, uint32_t sub = 0) {
  return tarvik_efs_read(sub, path.data(), static_cast<uint32_t>(path.size()), buf, len);
}

std::vector<tarvik_nvefs_req_t> Chunks(const std::vector<Sent> &sent) {
  std::vector<tarvik_nvefs_req_t> out;
  for (const auto &s : sent) {
    out.push_back(s.As<tarvik_nvefs_req_t>());
  }
  return out;
}

// Sizes around the chunk boundaries: the number of chunks, the last chunk's size, and the
// offsets each chunk claims. The first chunk asks for a new instance (255); every later chunk
// carries the instance that the modem's first answer handed out (1, 2, 3... a write each).
TEST_F(EfsTest, WriteGoesOutInChunksOf414) {
  const struct {
    uint32_t size;
    size_t chunks;
    uint32_t last;
  } rows[] = {{1, 1, 1}, {414, 1, 414}, {415, 2, 1}, {828, 2, 414}, {102410, 248, 152}};
  uint16_t instance = 0;
  for (const auto &row : rows) {
    SCOPED_TRACE("size " + std::to_string(row.size));
    ClearSent();
    ++instance;
    const auto data = Pattern(row.size, row.size);
    ASSERT_EQ(Write(kPath, data), 0);
    const auto chunks = Chunks(SentRequests(REQUEST_ID_NVEFS));
    ASSERT_EQ(chunks.size(), row.chunks);
    for (size_t i = 0; i < chunks.size(); ++i) {
      EXPECT_EQ(chunks[i].op, NVEFS_OP_EFS_WRITE);
      EXPECT_EQ(chunks[i].item, i == 0 ? TARVIK_EFS_FIRST_INS_ID : instance);
      EXPECT_EQ(chunks[i].len_all, row.size);
      EXPECT_EQ(chunks[i].len_cur, i * 414);
      EXPECT_EQ(chunks[i].len_send, i + 1 == chunks.size() ? row.last : 414u);
    }
    std::vector<uint8_t> stored;
    ASSERT_TRUE(nvefs_->File(0, kPath, &stored));
    EXPECT_TRUE(stored == data);
  }
  // A modem that hands out an instance the library did not expect: it is carried all the same.
  ClearSent();
  Tamper(REQUEST_ID_NVEFS, [](const uint8_t *req, std::vector<uint8_t> *answer) {
    const uint16_t odd = 0x1234;
    if (req[0] == NVEFS_OP_EFS_WRITE) {
      memcpy(answer->data() + offsetof(tarvik_nvefs_rsp_t, ins_id), &odd, 2);
    }
  });
  EXPECT_EQ(Write(kPath, Pattern(415)), modemsim::features::kEfsBadInstance)
      << "the modem does not know the instance it did not hand out";
  const auto chunks = Chunks(SentRequests(REQUEST_ID_NVEFS));
  ASSERT_EQ(chunks.size(), 2u);
  EXPECT_EQ(chunks[1].item, 0x1234);
}

TEST_F(EfsTest, WriteAcceptsPositiveResultsAndStopsAtNegativeOnes) {
  int chunk = 0;
  Tamper(REQUEST_ID_NVEFS, [&chunk](const uint8_t *, std::vector<uint8_t> *answer) {
    const int32_t code = chunk++ == 0 ? 1 : 0;
    memcpy(answer->data() + offsetof(tarvik_nvefs_rsp_t, result), &code, 4);
  });
  EXPECT_EQ(Write(kPath, Pattern(900)), 0);
  EXPECT_EQ(SentRequests().size(), 3u);

  ClearSent();
  TamperField(REQUEST_ID_NVEFS, offsetof(tarvik_nvefs_rsp_t, result), -1);
  EXPECT_EQ(Write(kPath, Pattern(900)), -1);
  EXPECT_EQ(SentRequests().size(), 1u);
}

// Files around the chunk boundaries read into buffers larger and smaller than the file: the
// buffer is filled to the file or to its capacity, the count says how far, and the chunks ask
// in turn from where the last one ended, none past the one that filled the buffer.
TEST_F(EfsTest, ReadsFillTheBufferInChunksOf424) {
  const struct {
    uint32_t size, capacity;
  } rows[] = {{1, 11},     {424, 434},  {425, 435},   {4096, 4106}, {102410, 102420}, {2000, 100},
              {2000, 424}, {2000, 425}, {2000, 1000}, {2000, 1999}, {2000, 2000}};
  for (const auto &row : rows) {
    SCOPED_TRACE(std::to_string(row.size) + " bytes into " + std::to_string(row.capacity));
    const auto data = Pattern(row.size, row.size + 7);
    ASSERT_EQ(Write(kPath, data), 0);
    ClearSent();
    std::vector<uint8_t> buf(row.capacity + 1, 0xEE);
    uint32_t len = row.capacity;
    ASSERT_EQ(Read(kPath, buf.data(), &len), 0);
    const uint32_t expected = std::min(row.size, row.capacity);
    EXPECT_EQ(len, expected);
    EXPECT_TRUE(std::equal(buf.begin(), buf.begin() + expected, data.begin()));
    EXPECT_EQ(buf[expected], 0xEE) << "nothing past the file or the capacity";
    const auto chunks = Chunks(SentRequests(REQUEST_ID_NVEFS));
    EXPECT_EQ(chunks.size(), (expected + 423) / 424);
    for (size_t i = 0; i < chunks.size(); ++i) {
      EXPECT_EQ(chunks[i].op, NVEFS_OP_EFS_READ);
      EXPECT_EQ(chunks[i].len_cur, i * 424);
    }
  }
}

// Read answers that misbehave: a chunk claiming more than it carries is cut to what arrived and
// the next chunk asks from there; an empty chunk ends the read; a refused chunk ends it with the
// modem's code, the chunks before it kept with their count.
TEST_F(EfsTest, ReadAnswersThatMisbehave) {
  const size_t data_at = offsetof(tarvik_nvefs_rsp_t, data);
  const size_t send_at = offsetof(tarvik_nvefs_rsp_t, data_len_send);
  int chunk = 0;
  const struct {
    const char *name;
    uint32_t size;
    std::function<void()> tamper;
    int status;
    uint32_t len, kept;  // the count after the read, and the bytes that arrived in place
    size_t requests;
  } rows[] = {
      {"claims 4000, carries 300", 1500,
       [&] { TamperField(REQUEST_ID_NVEFS, send_at, 4000, data_at + 300); }, 0, 1500, 1500, 5},
      {"empty chunk, count untouched", 10,
       [&] { TamperField(REQUEST_ID_NVEFS, send_at, 0, data_at); }, -108, 10, 0, 1},
      {"second chunk refused", 1000,
       [&] {
         Tamper(REQUEST_ID_NVEFS, [&chunk](const uint8_t *, std::vector<uint8_t> *answer) {
           const int32_t code = chunk++ == 1 ? -5 : 0;
           memcpy(answer->data() + offsetof(tarvik_nvefs_rsp_t, result), &code, 4);
         });
       },
       -5, 424, 424, 2},
  };
  for (const auto &row : rows) {
    SCOPED_TRACE(row.name);
    modemsim::extend::SetTamper(*modem_, {});
    const auto data = Pattern(row.size);
    ASSERT_EQ(Write(kPath, data), 0);
    row.tamper();
    ClearSent();
    std::vector<uint8_t> buf(row.size);
    uint32_t len = row.size;
    EXPECT_EQ(Read(kPath, buf.data(), &len), row.status);
    EXPECT_EQ(len, row.len);
    EXPECT_TRUE(std::equal(data.begin(), data.begin() + row.kept, buf.begin()));
    EXPECT_EQ(SentRequests(REQUEST_ID_NVEFS).size(), row.requests);
  }
  EXPECT_TRUE(tarvik_test::SyslogContains("abort, data_len_send <= 0"));
}

TEST_F(EfsTest, PathAndSubscriptionLimits) {
  const std::string s100(100, 'a'), s99(99, 'a');
  const char *p100 = s100.c_str(), *p99 = s99.c_str();
  const auto *t100 = reinterpret_cast<const uint8_t *>(p100);
  const auto *t99 = reinterpret_cast<const uint8_t *>(p99);
  uint8_t buf[8];
  uint32_t len = sizeof(buf);
  const std::vector<uint8_t> big(102411, 1);
  // Only the rows that pass the checks reach the modem (which has no such file: -2).
  const std::vector<CallRow> rows = {
      {"read path 100", [&] { return tarvik_efs_read(0, p100, 100, buf, &len); }, -2, true},
      {"read path 101", [&] { return tarvik_efs_read(0, p100, 101, buf, &len); }, -106, false},
      {"read path 0", [&] { return tarvik_efs_read(0, p99, 0, buf, &len); }, -106, false},
      {"read sub 2", [&] { return tarvik_efs_read(2, p99, 99, buf, &len); }, -104, false},
      {"read null path", [&] { return tarvik_efs_read(0, nullptr, 9, buf, &len); }, -105, false},
      {"read null buf", [&] { return tarvik_efs_read(0, p99, 9, nullptr, &len); }, -107, false},
      {"read null len", [&] { return tarvik_efs_read(0, p99, 9, buf, nullptr); }, -108, false},
      {"write path 100", [&] { return tarvik_efs_write(0, p100, 100, buf, 1); }, -106, false},
      {"write 0 bytes", [&] { return tarvik_efs_write(0, "/a", 2, buf, 0); }, -108, false},
      {"write 102411 bytes", [&] { return Write(kPath, big); }, -108, false},
      {"write null buf", [&] { return tarvik_efs_write(0, "/a", 2, nullptr, 1); }, -107, false},
      {"delete path 100", [&] { return tarvik_efs_delete(0, p100, 100); }, -106, false},
      {"delete path 99", [&] { return tarvik_efs_delete(0, p99, 99); }, -2, true},
      {"exists path 100", [&] { return tarvik_efs_is_exsit(0, p100, 100); }, -106, false},
      {"exists sub 2", [&] { return tarvik_efs_is_exsit(2, p99, 99); }, -104, false},
      {"compare path 100", [&] { return tarvik_efs_compare(0, p100, 100, 1, t99, 99); }, -106,
       false},
      {"compare target 100", [&] { return tarvik_efs_compare(0, p99, 99, 1, t100, 100); }, -106,
       false},
      {"copy target sub 2", [&] { return tarvik_efs_copy(0, p99, 99, 2, t99, 99); }, -104, false},
      {"copy null target", [&] { return tarvik_efs_copy(0, p99, 99, 1, nullptr, 9); }, -105, false},
      {"stat null path", [&] { return tarvik_efs_stat(nullptr, buf); }, -105, false},
      {"stat path 100", [&] { return tarvik_efs_stat(p100, buf); }, -106, false},
      {"stat path 99", [&] { return tarvik_efs_stat(p99, buf); }, -2, true},
      {"stat path 0", [&] { return tarvik_efs_stat("", buf); }, -106, false},
      {"stat null out", [&] { return tarvik_efs_stat("/a", nullptr); }, -107, false},
      {"stat missing", [&] { return tarvik_efs_stat("/missing", buf); }, -2, true},
      {"write after a time-out", TimedOut([&] { return Write("/a", {1}); }), -103, true},
      {"delete after a time-out", TimedOut([] { return tarvik_efs_delete(0, "/a", 2); }), -103,
       true},
      {"exists after a time-out", TimedOut([] { return tarvik_efs_is_exsit(0, "/a", 2); }), -103,
       true},
  };
  ExpectCalls(
      rows, [&] { len = sizeof(buf); }, [] { tarvik_efs_is_exsit(0, "/x", 2); });
  // A read path of 100 bytes goes out with its 100th byte replaced by a terminator.
  ClearSent();
  len = sizeof(buf);
  tarvik_efs_read(0, p100, 100, buf, &len);
  const auto req = Only<tarvik_nvefs_req_t>(REQUEST_ID_NVEFS);
  EXPECT_EQ(req.path_len, 100);
  EXPECT_EQ(std::string(req.path), s99);
}

TEST_F(EfsTest, DeleteCompareCopyStatExist) {
  const std::string a = "/data/a", b = "/data/b";
  const auto content = Pattern(777);
  ASSERT_EQ(Write(a, content), 0);
  const auto *pb = reinterpret_cast<const uint8_t *>(b.data());
  const auto la = static_cast<uint32_t>(a.size());
  const auto lb = static_cast<uint32_t>(b.size());
  EXPECT_EQ(tarvik_efs_is_exsit(0, a.data(), la), 0);
  EXPECT_EQ(tarvik_efs_is_exsit(1, a.data(), la), modemsim::features::kEfsNoEntry);
  EXPECT_EQ(tarvik_efs_compare(0, a.data(), la, 1, pb, lb), modemsim::features::kEfsNoEntry);

  ClearSent();
  ASSERT_EQ(tarvik_efs_copy(0, a.data(), la, 1, pb, lb), 0);
  const auto req = Only<tarvik_nvefs_req_t>(REQUEST_ID_NVEFS);
  EXPECT_EQ(req.op, NVEFS_OP_EFS_COPY);
  EXPECT_EQ(req.len_all, lb) << "second path length";
  EXPECT_EQ(req.len_send, 1u) << "second subscription";
  EXPECT_EQ(0, memcmp(req.data, b.data(), lb));
  std::vector<uint8_t> copied;
  ASSERT_TRUE(nvefs_->File(1, b, &copied));
  EXPECT_TRUE(copied == content);
  EXPECT_EQ(tarvik_efs_compare(0, a.data(), la, 1, pb, lb), 0);
  ASSERT_EQ(Write(b, Pattern(777, 9), 1), 0);
  EXPECT_EQ(tarvik_efs_compare(0, a.data(), la, 1, pb, lb), modemsim::features::kFilesDiffer);

  uint8_t st[16];
  ASSERT_EQ(tarvik_efs_stat(a.c_str(), st), 0);
  modemsim::features::FileStat fs;
  memcpy(&fs, st, sizeof(fs));
  EXPECT_EQ(fs.size, 777u);
  EXPECT_EQ(fs.mode, 0100644u);

  ASSERT_EQ(tarvik_efs_delete(0, a.data(), la), 0);
  EXPECT_EQ(tarvik_efs_is_exsit(0, a.data(), la), modemsim::features::kEfsNoEntry);
  EXPECT_EQ(tarvik_efs_stat(a.c_str(), st), modemsim::features::kEfsNoEntry);
}

// Checks and verdicts shared between operations log under the function the caller called.
TEST_F(EfsTest, SharedStepsLogUnderTheCalledFunction) {
  uint8_t buf[8] = {1};
  uint32_t zero = 0;
  uint32_t eight = sizeof(buf);
  const struct {
    const char *line;
    std::function<void()> call;
  } rows[] = {
      {"tarvik_efs_delete: function entry", [] { tarvik_efs_delete(0, "/a", 2); }},
      {"tarvik_efs_is_exsit: sub invalid", [] { tarvik_efs_is_exsit(2, "/a", 2); }},
      {"tarvik_efs_copy: path_len_tgt invalid", [&] { tarvik_efs_copy(0, "/a", 2, 1, buf, 0); }},
      {"tarvik_efs_compare: qmi response fail",
       [&] { tarvik_efs_compare(0, "/missing", 8, 0, buf, 1); }},
      {"tarvik_efs_read: buf_len is invalid", [&] { tarvik_efs_read(0, "/a", 2, buf, &zero); }},
      {"tarvik_efs_write: buf is null", [] { tarvik_efs_write(0, "/a", 2, nullptr, 1); }},
      {"tarvik_nv_delete: nv_id is out range", [] { tarvik_nv_delete(0, 99999); }},
      {"tarvik_nv_write_ex: buf_len is invalid", [&] { tarvik_nv_write_ex(0, 1, buf, 0); }},
      {"tarvik_nv_read: sub invalid", [&] { tarvik_nv_read(3, 1, buf, &zero); }},
      {"tarvik_efs_write: send_num(2)", [&] { tarvik_efs_write(0, "/a", 2, buf, 2); }},
      {"tarvik_efs_read: data_len_all = 2", [&] { tarvik_efs_read(0, "/a", 2, buf, &eight); }},
      {"tarvik_nv_write_ex: function exit", [&] { tarvik_nv_write_ex(0, 1, buf, 1); }},
      {"tarvik_efs_is_exsit: path_value: /a", [] { tarvik_efs_is_exsit(0, "/a", 2); }},
      {"tarvik_efs_copy: path_value_src: /a",
       [&] { tarvik_efs_copy(0, "/a", 2, 1, reinterpret_cast<const uint8_t *>("/b"), 2); }},
      {"tarvik_efs_copy: path_value_tgt: /b", [] {}},
  };
  for (const auto &row : rows) {
    SCOPED_TRACE(row.line);
    row.call();
    EXPECT_TRUE(tarvik_test::SyslogContains(row.line));
  }
  EXPECT_FALSE(tarvik_test::SyslogContains("operator()"));
}

// A file operation that waits for the EFS lock has already logged what it asked for.
TEST_F(EfsTest, ArgumentsAreLoggedBeforeWaitingForTheLock) {
  ASSERT_EQ(Write(kPath, Pattern(10)), 0);
  ClearSent();
  modemsim::Fault slow;
  slow.kind = modemsim::Fault::kDelay;
  slow.delay_ms = 2000;
  slow.count = 1;
  modem_->SetFault(modemsim::extend::kServiceId, TARVIK_EXTEND_QMI_GENERIC_MSG_V01, slow);
  const auto logged_soon = [](const std::string &line) {
    return tarvik_test::WaitUntil([&] { return tarvik_test::SyslogContains(line); },
                                  std::chrono::milliseconds(1500), std::chrono::milliseconds(5));
  };
  auto holder = std::async(std::launch::async, [] {
    uint8_t buf[16];
    uint32_t len = sizeof(buf);
    return Read(kPath, buf, &len);
  });
  // The read logs its path under the EFS lock and keeps the lock until the late answer.
  ASSERT_TRUE(logged_soon("tarvik_efs_read: path_value: " + kPath));
  auto waiter = std::async(std::launch::async, [] { return tarvik_efs_delete(1, "/queued", 7); });
  EXPECT_TRUE(logged_soon("tarvik_efs_delete: tarvik_efs_delete, sub_id 1, path_len: 7"));
  EXPECT_EQ(holder.wait_for(std::chrono::seconds(0)), std::future_status::timeout)
      << "the line came only after the lock was free";
  EXPECT_EQ(holder.get(), 0);
  EXPECT_EQ(waiter.get(), modemsim::features::kEfsNoEntry);
  const auto sent = Chunks(SentRequests(REQUEST_ID_NVEFS));
  ASSERT_EQ(sent.size(), 2u);
  EXPECT_EQ(sent[0].op, NVEFS_OP_EFS_READ);
  EXPECT_EQ(sent[1].op, NVEFS_OP_EFS_DELETE) << "the delete went out after the read";
  EXPECT_EQ(sent[1].sub, 1);
  EXPECT_EQ(std::string(sent[1].path), "/queued");
}

// Both NV sync calls send the typed sync message and report a refusal by the modem and a
// transport failure alike.
TEST_F(EfsTest, NvSyncReportsEitherFailure) {
  const struct {
    const char *name;
    uint32_t (*sync)();
  } rows[] = {{"nvefs", tarvik_nvefs_sync}, {"modem", tarvik_modem_nv_sync}};
  for (const auto &row : rows) {
    SCOPED_TRACE(row.name);
    modemsim::extend::SetTamper(*modem_, {});
    ClearSent();
    const uint32_t before = restart_->NvSyncCount();
    EXPECT_EQ(row.sync(), 0u);
    EXPECT_EQ(restart_->NvSyncCount(), before + 1);
    const auto req = Only<tarvik_cmn_req_t>(REQUEST_ID_COMMON);
    EXPECT_EQ(req.cmd, COMMON_CMD_MSG);
    EXPECT_EQ(Word(req.payload, 0), COMMON_MSG_NV_SYNC);
    TamperField(REQUEST_ID_COMMON, offsetof(tarvik_cmn_rsp_t, result), 8);
    EXPECT_EQ(row.sync(), 8u);
    FailTransport(QMI_TIMEOUT_ERR, 1);
    EXPECT_NE(row.sync(), 0u);
  }
}

}  // namespace
}  // namespace features_test
