// The progress writer.
#include "module_fixture.h"
#include "webapi/module_calls.h"
#include "webapi/module_state.h"

using namespace Fennox;

namespace {

constexpr char kLost[] =
    "TAVO.Fennox.CopyMove:390 Failed to get json data, and failed to recover json data\n";

TEST_F(ModuleTest, AccurateProgressIsWrittenWithItsTypes) {
  NewTask(Parse(R"({"pid":1,"waiting_in_queue":3,"status":"NOT_STARTED"})"));
  _totalAmount = 400;
  _foundFileNum = 2;
  _foundDirNum = 1;
  _foundFileSize = 400;
  _processingPath = "/docs/a";
  _notStarted = false;
  EXPECT_EQ(MVCPUpdateProgress(100, 99), 0);
  Json::Value data = StoredData();
  EXPECT_TRUE(data["transfer_rate"].isDouble());
  data.removeMember("transfer_rate");
  EXPECT_EQ(data, Parse(R"({"pid":1,"total":400.0,"progress":0.25,"processed_size":100.0,
      "found_file_num":2,"found_dir_num":1,"found_file_size":400,
      "path":"/docs/a","processing_path":"/docs/a","status":"PROCESSING"})"));
  EXPECT_EQ(data["total"].type(), Json::realValue);
  EXPECT_EQ(data["processed_size"].type(), Json::realValue);
  EXPECT_TRUE(data["found_file_size"].isUInt64());
  ASSERT_TRUE(_task->reload());
  EXPECT_DOUBLE_EQ(_task->getDoubleProperty("progress", 0), 0.25);
}

TEST_F(ModuleTest, EntryProgressHasNoByteMembers) {
  NewTask(Parse("{}"));
  _accurateProgress = false;
  _totalAmount = 3;
  _processedNum = 1;
  EXPECT_EQ(MVCPUpdateProgress(50, 0), 0);
  const Json::Value data = StoredData();
  EXPECT_EQ(data, Parse(R"({"total":3.0,"progress":0.3333333432674408,"processed_num":1.0,
      "transfer_rate":"N/A","status":"NOT_STARTED"})"));
  EXPECT_EQ(data["processed_num"].type(), Json::realValue);
}

TEST_F(ModuleTest, RatioIsMinusOneWithoutATotalAndNeverAboveOne) {
  NewTask(Parse("{}"));
  EXPECT_EQ(MVCPUpdateProgress(0, 0), 0);
  EXPECT_EQ(StoredData()["total"], Json::Value(0.0));
  EXPECT_EQ(StoredData()["progress"], Json::Value(-1.0));
  _lastWriteTime = 0;
  _totalAmount = 10;
  EXPECT_EQ(MVCPUpdateProgress(25, 0), 0);
  EXPECT_EQ(StoredData()["progress"], Json::Value(1.0));
}

TEST_F(ModuleTest, WritesAreFiveSecondsApart) {
  NewTask(Parse("{}"));
  _totalAmount = 100;
  EXPECT_EQ(MVCPUpdateProgress(10, 0), 0);
  EXPECT_EQ(MVCPUpdateProgress(20, 0), 0);  // only counted
  EXPECT_EQ(_processedBytes, 30U);
  EXPECT_EQ(_lastChunkBytes, 20U);
  EXPECT_EQ(StoredData()["processed_size"], Json::Value(10.0));
  for (const int away : {-6, 6}) {  // a clock set back makes a write due, too
    _lastWriteTime = time(nullptr) + away;
    const std::uint64_t before = _processedBytes;
    EXPECT_EQ(MVCPUpdateProgress(1, 0), 0);
    EXPECT_EQ(StoredData()["processed_size"].asDouble(), static_cast<double>(before + 1));
  }
}

TEST_F(ModuleTest, TransferRateIsBytesSinceTheLastWrite) {
  NewTask(Parse("{}"));
  _bytesAtLastWrite = _processedBytes = 1000;
  clock_gettime(CLOCK_REALTIME, &_lastRateClock);
  _lastRateClock.tv_sec -= 10;
  EXPECT_EQ(MVCPUpdateProgress(10000, 0), 0);
  const double rate = StoredData()["transfer_rate"].asDouble();
  EXPECT_GT(rate, 100.0);
  EXPECT_LE(rate, 1000.0);
  // A clock that went back tells nothing.
  _lastWriteTime = 0;
  _lastRateClock.tv_sec += 1000;
  EXPECT_EQ(MVCPUpdateProgress(1, 0), 0);
  EXPECT_EQ(StoredData()["transfer_rate"], Json::Value(0));
  EXPECT_TRUE(StoredData()["transfer_rate"].isInt());
}

TEST_F(ModuleTest, FinishedTaskIsASuccess) {
  NewTask(Parse("{}")).finish(false);
  EXPECT_EQ(MVCPUpdateProgress(0, 0), 0);
  EXPECT_EQ(StoredData()["status"], "SUCCESS");
}

TEST_F(ModuleTest, LostDataComesBackFromTheSnapshotOrIsLogged) {
  NewTask();
  testing::internal::CaptureStderr();
  EXPECT_EQ(MVCPUpdateProgress(5, 0), -1);
  EXPECT_NE(testing::internal::GetCapturedStderr().find(kLost), std::string::npos);
  EXPECT_EQ(MVCPUpdateProgress(5, 0), 0);  // the failed read counts for the throttle
  _lastWriteTime = 0;
  _taskDataSnapshot = Parse(R"({"pid":12,"params":{"path":["/docs/a"]}})");
  EXPECT_EQ(MVCPUpdateProgress(5, 0), 0);
  EXPECT_EQ(StoredData()["pid"], 12);
  EXPECT_EQ(StoredData()["processed_size"], Json::Value(15.0));
}

TEST_F(ModuleTest, RemovedRecordOfAStoppedTaskIsNoProblem) {
  NewTask(Parse("{}")).remove();
  _taskDataSnapshot = Parse("{}");
  _cancelRequested = 1;
  testing::internal::CaptureStderr();
  EXPECT_EQ(MVCPUpdateProgress(5, 0), -1);
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
  // Without a stop it is a loss, and the snapshot does not bring it back.
  _cancelRequested = 0;
  _lastWriteTime = 0;
  testing::internal::CaptureStderr();
  EXPECT_EQ(MVCPUpdateProgress(5, 0), -1);
  EXPECT_NE(testing::internal::GetCapturedStderr().find(kLost), std::string::npos);
  EXPECT_THROW(StoredData(), KVX::TaskError);
}

}  // namespace
