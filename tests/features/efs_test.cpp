// Modem files: chunked reads and writes, the write instance, and the one-shot operations.
#include <string.h>

#include <chrono>
#include <future>
#include <string>
#include <thread>

#include "extend/extend_service.h"
#include "features_env.h"
#include "qmi_client.h"
#include "syslog_capture.h"
#include "tarvik_extend_nvefs.h"

namespace features_test {
namespace {

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
// offsets each chunk claims.
TEST_F(EfsTest, WriteGoesOutInChunksOf414) {
  struct Row {
    uint32_t size;
    size_t chunks;
    uint32_t last;
  };
  const Row rows[] = {{1, 1, 1}, {414, 1, 414}, {415, 2, 1}, {828, 2, 414}, {102410, 248, 152}};
  for (const auto &row : rows) {
    SCOPED_TRACE("size " + std::to_string(row.size));
    ClearSent();
    const auto data = Pattern(row.size, row.size);
    ASSERT_EQ(Write(kPath, data), 0);
    const auto chunks = Chunks(SentRequests(REQUEST_ID_NVEFS));
    ASSERT_EQ(chunks.size(), row.chunks);
    for (size_t i = 0; i < chunks.size(); ++i) {
      EXPECT_EQ(chunks[i].op, NVEFS_OP_EFS_WRITE);
      EXPECT_EQ(chunks[i].len_all, row.size);
      EXPECT_EQ(chunks[i].len_cur, i * 414);
      EXPECT_EQ(chunks[i].len_send, i + 1 == chunks.size() ? row.last : 414u);
    }
    std::vector<uint8_t> stored;
    ASSERT_TRUE(fm_->File(0, kPath, &stored));
    EXPECT_TRUE(stored == data);
  }
}

// The first chunk asks for a new instance (255); every later chunk carries the instance that
// the modem's first answer handed out, whatever it is.
TEST_F(EfsTest, LaterChunksCarryTheInstanceFromTheFirstAnswer) {
  for (uint32_t round = 0; round < 3; ++round) {
    SCOPED_TRACE("write " + std::to_string(round));
    ClearSent();
    // Leave one abandoned instance open each round so the modem's numbers move on.
    const auto data = Pattern(1000, round);
    ASSERT_EQ(Write(kPath, data), 0);
    const auto chunks = Chunks(SentRequests(REQUEST_ID_NVEFS));
    ASSERT_EQ(chunks.size(), 3u);
    EXPECT_EQ(chunks[0].item, TARVIK_EFS_FIRST_INS_ID);
    EXPECT_NE(chunks[1].item, TARVIK_EFS_FIRST_INS_ID);
    EXPECT_EQ(chunks[1].item, chunks[2].item);
    EXPECT_EQ(chunks[1].item, round + 1) << "the modem hands out 1, 2, 3 in turn";
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
    fm_->SetTamper({});
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
  const std::string p100(100, 'a');
  const std::string p99(99, 'a');
  uint8_t buf[8];
  uint32_t len = sizeof(buf);
  const uint8_t *tgt = reinterpret_cast<const uint8_t *>(p99.data());
  const std::vector<uint8_t> big(102411, 1);
  // Only the rows that pass the checks reach the modem (which has no such file: -2).
  ExpectCalls(
      {
          {"read path 100", [&] { return tarvik_efs_read(0, p100.data(), 100, buf, &len); }, -2,
           true},
          {"read path 101", [&] { return tarvik_efs_read(0, p100.data(), 101, buf, &len); }, -106,
           false},
          {"read path 0", [&] { return tarvik_efs_read(0, p99.data(), 0, buf, &len); }, -106,
           false},
          {"read sub 2", [&] { return tarvik_efs_read(2, p99.data(), 99, buf, &len); }, -104,
           false},
          {"read null path", [&] { return tarvik_efs_read(0, nullptr, 9, buf, &len); }, -105,
           false},
          {"read null buf", [&] { return tarvik_efs_read(0, p99.data(), 9, nullptr, &len); }, -107,
           false},
          {"read null len", [&] { return tarvik_efs_read(0, p99.data(), 9, buf, nullptr); }, -108,
           false},
          {"write path 100", [&] { return tarvik_efs_write(0, p100.data(), 100, buf, 1); }, -106,
           false},
          {"delete path 100", [&] { return tarvik_efs_delete(0, p100.data(), 100); }, -106, false},
          {"delete path 99", [&] { return tarvik_efs_delete(0, p99.data(), 99); }, -2, true},
          {"exists path 100", [&] { return tarvik_efs_is_exsit(0, p100.data(), 100); }, -106,
           false},
          {"exists sub 2", [&] { return tarvik_efs_is_exsit(2, p99.data(), 99); }, -104, false},
          {"compare path 100", [&] { return tarvik_efs_compare(0, p100.data(), 100, 1, tgt, 99); },
           -106, false},
          {"compare target 100",
           [&] {
             return tarvik_efs_compare(0, p99.data(), 99, 1,
                                       reinterpret_cast<const uint8_t *>(p100.data()), 100);
           },
           -106, false},
          {"copy target sub 2", [&] { return tarvik_efs_copy(0, p99.data(), 99, 2, tgt, 99); },
           -104, false},
          {"copy null target", [&] { return tarvik_efs_copy(0, p99.data(), 99, 1, nullptr, 9); },
           -105, false},
          {"stat null path", [&] { return tarvik_efs_stat(nullptr, buf); }, -105, false},
          {"stat path 100", [&] { return tarvik_efs_stat(p100.c_str(), buf); }, -106, false},
          {"stat path 99", [&] { return tarvik_efs_stat(p99.c_str(), buf); }, -2, true},
          {"stat path 0", [&] { return tarvik_efs_stat("", buf); }, -106, false},
          {"stat null out", [&] { return tarvik_efs_stat("/a", nullptr); }, -107, false},
          {"write 0 bytes", [&] { return tarvik_efs_write(0, "/a", 2, buf, 0); }, -108, false},
          {"write 102411 bytes", [&] { return Write(kPath, big); }, -108, false},
          {"write null buf", [&] { return tarvik_efs_write(0, "/a", 2, nullptr, 1); }, -107, false},
          {"stat missing", [&] { return tarvik_efs_stat("/missing", buf); }, -2, true},
          {"write after a time-out", TimedOut([&] { return Write("/a", {1}); }), -103, true},
          {"delete after a time-out", TimedOut([] { return tarvik_efs_delete(0, "/a", 2); }), -103,
           true},
          {"exists after a time-out", TimedOut([] { return tarvik_efs_is_exsit(0, "/a", 2); }),
           -103, true},
      },
      [&] { len = sizeof(buf); }, [] { tarvik_efs_is_exsit(0, "/x", 2); });
  // A read path of 100 bytes goes out with its 100th byte replaced by a terminator.
  ClearSent();
  len = sizeof(buf);
  tarvik_efs_read(0, p100.data(), 100, buf, &len);
  const auto req = SentRequests()[0].As<tarvik_nvefs_req_t>();
  EXPECT_EQ(req.path_len, 100);
  EXPECT_EQ(std::string(req.path), p99);
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
  const auto req = SentRequests()[0].As<tarvik_nvefs_req_t>();
  EXPECT_EQ(req.op, NVEFS_OP_EFS_COPY);
  EXPECT_EQ(req.len_all, lb) << "second path length";
  EXPECT_EQ(req.len_send, 1u) << "second subscription";
  EXPECT_EQ(0, memcmp(req.data, b.data(), lb));
  std::vector<uint8_t> copied;
  ASSERT_TRUE(fm_->File(1, b, &copied));
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
  struct Row {
    const char *line;
    std::function<void()> call;
  };
  const Row rows[] = {
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
    const auto until = std::chrono::steady_clock::now() + std::chrono::milliseconds(1500);
    while (!tarvik_test::SyslogContains(line) && std::chrono::steady_clock::now() < until) {
      std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    return tarvik_test::SyslogContains(line);
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
    fm_->SetTamper({});
    ClearSent();
    const uint32_t before = fm_->NvSyncCount();
    EXPECT_EQ(row.sync(), 0u);
    EXPECT_EQ(fm_->NvSyncCount(), before + 1);
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
