#include <json/value.h>
#include <json/writer.h>
#include <sys/stat.h>

#include <limits>
#include <set>

#include "store_fixture.h"

namespace {

using testing::ElementsAre;

class RecordTest : public StoreTest {};

TEST_F(RecordTest, PropertiesKeepTypesDigitsAndBytes) {
  Json::Value data(Json::objectValue);
  data["zero"] = 0.0;
  data["whole"] = -1.0;
  data["tenth"] = 0.1;
  data["single"] = static_cast<double>(0.1F);
  data["huge"] = 1.5e300;
  data["infinite"] = std::numeric_limits<double>::infinity();
  data["count"] = 0;
  data["bytes"] = std::numeric_limits<Json::UInt64>::max();
  data["path"] = std::string("/a\xff\xfe/\xc3\xa4/\"\\\n\x01") + '\0' + "z";
  data["list"].append(true);
  data["list"].append(Json::Value());
  ASSERT_TRUE(Make("ann", "t")->setProperty("data", data));

  const Json::Value stored = Get("ann", "t")->getProperty("data");
  for (const char* real : {"zero", "whole", "tenth", "single", "huge", "infinite"}) {
    EXPECT_EQ(stored[real].type(), Json::realValue) << real;
    EXPECT_EQ(stored[real].asDouble(), data[real].asDouble()) << real;
  }
  EXPECT_EQ(stored["count"].type(), Json::intValue);
  EXPECT_EQ(stored["bytes"].asUInt64(), data["bytes"].asUInt64());
  EXPECT_EQ(stored["path"].asString(), data["path"].asString());
  EXPECT_EQ(stored["list"], data["list"]);
}

TEST_F(RecordTest, AnUpdateIsSeenAsAWholeOrNotAtAll) {
  const auto task = Make("ann", "t");
  task->beginUpdate();
  EXPECT_TRUE(task->setProperty("progress", 0));
  EXPECT_TRUE(task->setProperty("data", Json::Value(Json::objectValue)));
  EXPECT_TRUE(Get("ann", "t")->getProperty("progress").isNull());
  EXPECT_TRUE(task->endUpdate());

  const auto other = Get("ann", "t");
  EXPECT_EQ(other->getProperty("progress"), Json::Value(0));
  EXPECT_TRUE(other->getProperty("data").isObject());
  EXPECT_TRUE(task->setProperty("blMsg", true));
  EXPECT_FALSE(other->getBoolProperty("blMsg", false));
  EXPECT_TRUE(other->reload());
  EXPECT_TRUE(other->getBoolProperty("blMsg", false));
  EXPECT_EQ(other->getDoubleProperty("missing", 0.5), 0.5);
}

TEST_F(RecordTest, TheRatioIsStoredAsARealBesideTheData) {
  const auto task = Make("ann", "t");
  ASSERT_TRUE(SaveTaskData(task.get(), DataWithPid(getpid()), -1.0F));
  tasks::Record record;
  ASSERT_TRUE(tasks::Read("ann", "t", &record));
  EXPECT_EQ(record.progress, -1.0);
  EXPECT_EQ(record.data["path"], "/photos/a.jpg");
  EXPECT_EQ(Get("ann", "t")->getProperty("progress").type(), Json::realValue);
}

TEST_F(RecordTest, ARecordRemovedByAnotherProcessStaysRemoved) {
  const auto task = Make("ann", "t");
  const Json::Value data = DataWithPid(getpid());
  ASSERT_TRUE(task->setProperty("data", data));
  ASSERT_EQ(Child([&] { return Get("ann", "t")->remove() ? 0 : 1; }).Wait(), 0);

  EXPECT_FALSE(task->setProperty("data", data));
  EXPECT_FALSE(SaveTaskData(task.get(), data, 0.5F));
  EXPECT_FALSE(RecoverTaskData(task.get(), data));
  EXPECT_FALSE(task->finish(false));
  EXPECT_FALSE(task->isFinished());
  EXPECT_TRUE(task->remove());
  EXPECT_FALSE(task->reload());
  EXPECT_TRUE(task->getProperty("data").isNull());
  EXPECT_TRUE(tasks::List("ann").empty());
  EXPECT_THROW(Get("ann", "t"), KVX::TaskError);
}

TEST_F(RecordTest, RecoveryReplacesOnlyDataThatIsLost) {
  const auto task = Make("ann", "t");
  ASSERT_TRUE(task->setProperty("data", DataWithPid(getpid())));
  Json::Value snapshot = DataWithPid(getpid());
  snapshot["path"] = "snapshot";
  EXPECT_TRUE(RecoverTaskData(task.get(), snapshot));
  EXPECT_EQ(task->getProperty("data")["path"], "/photos/a.jpg");

  Edit("ann", "UPDATE properties SET value = '{\"path\": 1' WHERE name = 'data'");
  EXPECT_TRUE(task->reload());
  EXPECT_TRUE(task->getProperty("data").isNull());
  EXPECT_TRUE(RecoverTaskData(task.get(), snapshot));
  EXPECT_EQ(task->getProperty("data")["path"], "snapshot");
}

TEST_F(RecordTest, LongListsAreWrittenOnceAndReadWithTheWhole) {
  Json::Value data = DataWithPid(getpid());
  for (int i = 0; i < 100; ++i) data["params"]["path"].append("/photos/" + std::to_string(i));
  data["params"]["dest_folder_path"] = "/backup";
  const auto whole = [&] {
    tasks::Record record;
    EXPECT_TRUE(tasks::Read("ann", "t", &record));
    EXPECT_EQ(tasks::List("ann").at(0).data, record.data);
    EXPECT_EQ(Get("ann", "t")->getProperty("data"), record.data);
    return record.data;
  };
  const auto task = Make("ann", "t");
  const auto save = [&] {
    EXPECT_TRUE(task->reload());
    return SaveTaskData(task.get(), task->loadedProperty("data"), 0.5F);
  };
  ASSERT_TRUE(task->setProperty("data", data));
  EXPECT_FALSE(task->loadedProperty("data")["params"].isMember("path"));
  EXPECT_EQ(whole(), data);
  // An earlier server's record has them in "data", and is taken apart when next written.
  const std::string inside = Json::writeString(Json::StreamWriterBuilder(), data);
  Edit("ann",
       "DELETE FROM properties WHERE name = 'data.params';"
       "UPDATE properties SET value = '" +
           inside + "' WHERE name = 'data'");
  EXPECT_EQ(whole(), data);
  EXPECT_TRUE(save());
  EXPECT_EQ(whole(), data);

  Edit("ann", "UPDATE properties SET value = '{\"path\":[]}' WHERE name = 'data.params'");
  EXPECT_TRUE(save());
  EXPECT_EQ(whole()["params"]["path"], Json::Value(Json::arrayValue));
  Edit("ann", "UPDATE properties SET value = '{' WHERE name = 'data.params'");
  EXPECT_TRUE(whole().isNull());
}

TEST_F(RecordTest, IdsAreLongRandomAndTakenOnlyOnce) {
  KVX::TaskMgr registry("ann");
  std::set<std::string> ids;
  for (int i = 0; i < 100; ++i) ids.insert(registry.getUniqueTaskId("Fennox_"));
  EXPECT_EQ(ids.size(), 100U);
  EXPECT_THAT(*ids.begin(), testing::MatchesRegex("Fennox_[0-9a-f]+"));
  EXPECT_EQ(ids.begin()->size(), std::string("Fennox_").size() + 32);

  const auto first = Make("ann", "t");
  EXPECT_THROW(Make("ann", "t"), KVX::TaskError);
  for (const char* user : {"", "../ann", "..", "a/b"}) {
    EXPECT_THROW(Make(user, "t"), KVX::TaskError) << user;
    EXPECT_THROW(Get(user, "t"), KVX::TaskError) << user;
  }
  EXPECT_THROW(Get("bob", "t"), KVX::TaskError) << "another user's task";
}

TEST_F(RecordTest, AFinishedRecordIsDroppedOnlyAfterEveryAnswerSaidSo) {
  const auto worker = Make("ann", "t");
  {
    const auto status = Get("ann", "t");
    EXPECT_FALSE(status->isFinished());
    ASSERT_TRUE(worker->finish(false));
    EXPECT_FALSE(status->isFinished()) << "what it has loaded is not the end";
    ASSERT_TRUE(status->reload());
    EXPECT_TRUE(status->isFinished());
    EXPECT_FALSE(WfmLibRemoveFinishedTask(status.get(), -1, false));
  }
  {
    const auto status = Get("ann", "t");
    EXPECT_FALSE(WfmLibRemoveFinishedTask(status.get(), -1, false)) << "never asked";
    EXPECT_TRUE(status->isFinished());
    EXPECT_TRUE(WfmLibRemoveFinishedTask(status.get(), -1, false));
    EXPECT_TRUE(status->reload()) << "the record stays until the handle is released";
  }
  EXPECT_THROW(Get("ann", "t"), KVX::TaskError);

  EXPECT_TRUE(WfmLibRemoveFinishedTask(Make("ann", "u").get(), -1, true));
  EXPECT_TRUE(tasks::List("ann").empty());
  EXPECT_FALSE(WfmLibRemoveFinishedTask(nullptr, -1, true));
}

TEST_F(RecordTest, OldFinishedAndEmptyRecordsAreCleaned) {
  for (const char* id : {"done-old", "done-new", "empty-old", "empty-new", "running-old"}) {
    const auto task = Make("ann", id);
    ASSERT_TRUE(id[0] == 'e' || task->setProperty("data", DataWithPid(getpid())));
    ASSERT_TRUE(id[0] != 'd' || task->finish(false));
  }
  Edit("ann",
       "UPDATE tasks SET created = created - 700 WHERE id LIKE '%-old';"
       "UPDATE tasks SET finished_at = finished_at - 86500 WHERE id = 'done-old'");
  CleanTimeOutTasks("ann");
  std::vector<std::string> ids;
  for (const tasks::Record& record : tasks::List("ann")) ids.push_back(record.id);
  EXPECT_THAT(ids, ElementsAre("done-new", "empty-new", "running-old"));
  CleanTimeOutTasks(nullptr);
  CleanTimeOutTasks("nobody-has-this-name");
}

TEST_F(RecordTest, TotalsCountEveryTaskOnceAndOutliveTheRecords) {
  EXPECT_EQ(tasks::ReadTotals("ann").started, 0);
  const auto started = [&](const char* id) {
    auto task = Make("ann", id);
    Json::Value data = DataWithPid(getpid());
    data["processed_size"] = 10.0;
    EXPECT_TRUE(SaveTaskData(task.get(), data, 0.5F));
    EXPECT_TRUE(SaveTaskData(task.get(), data, 0.6F));
    return task;
  };
  EXPECT_TRUE(Make("ann", "never-started")->remove());
  Edit("ann", "DROP TABLE totals");  // as an earlier server left it
  const auto done = started("done");
  done->setTransferredBytes(1000);
  EXPECT_TRUE(done->finish(false) && done->finish(false) && done->remove());
  EXPECT_TRUE(started("stopped")->remove());
  started("dead");
  EXPECT_EQ(tasks::EndRecordsOfDeadWorkers("ann", getpid(), 1), 1);
  started("running");
  const tasks::Totals totals = tasks::ReadTotals("ann");
  EXPECT_EQ(totals.started, 4);
  EXPECT_EQ(totals.finished, 1);
  EXPECT_EQ(totals.failed, 1);
  EXPECT_EQ(totals.stopped, 1);
  EXPECT_EQ(totals.bytes, 1020);
}

TEST_F(RecordTest, NotificationsComeNewestFirstWithTheirTexts) {
  const auto task = Make("ann", "t");
  EXPECT_TRUE(task->sendNotifyMessageNoEncode("app", "t", "cat", "one", nullptr));
  EXPECT_TRUE(
      task->sendNotifyMessageNoEncode("app", "t", "cat", "two", "a\xff", "b", nullptr, nullptr));
  const Json::Value list = tasks::Notifications("ann", 10);
  ASSERT_EQ(list.size(), 2U);
  EXPECT_EQ(list[0]["title"], "two");
  EXPECT_EQ(list[0]["app"], "app");
  EXPECT_EQ(list[0]["taskid"], "t");
  EXPECT_EQ(list[0]["category"], "cat");
  ASSERT_EQ(list[0]["args"].size(), 2U);
  EXPECT_EQ(list[0]["args"][0].asString(), "a\xff");
  EXPECT_EQ(list[1]["args"], Json::Value(Json::arrayValue));
  EXPECT_EQ(tasks::Notifications("ann", 1).size(), 1U);
  EXPECT_EQ(tasks::Notifications("bob", 1).size(), 0U);
}

TEST_F(RecordTest, AStoreOpensOnlyForItsOwner) {
  const auto task = Make("nobody", "t");
  ASSERT_TRUE(task->setProperty("data", 1));
  struct stat folder {};
  ASSERT_EQ(stat((state_ + "/users/nobody").c_str(), &folder), 0);
  EXPECT_EQ(folder.st_mode & 07777U, 0700U);
  for (const char* suffix : {"", "-journal"}) {
    struct stat file {};
    ASSERT_EQ(stat((StoreFile("nobody") + suffix).c_str(), &file), 0) << suffix;
    EXPECT_EQ(file.st_mode & 07777U, 0600U) << suffix;
    EXPECT_EQ(file.st_uid, folder.st_uid) << suffix;
  }
  EXPECT_EQ(folder.st_uid == 0, false) << "root gives the folder to the user";
  EXPECT_THAT(tasks::UsersWithStore(), ElementsAre("nobody"));
}

TEST_F(RecordTest, SummaryOfATaskIsMadeFromItsParameters) {
  Json::Value data(Json::objectValue);
  data["params"]["path"].append("/a/b");
  data["params"]["path"].append("/a/c");
  data["params"]["dest_folder_path"] = "/d";
  const Json::Value info = WfmLibBkgTaskInfoCreate(data, "move");
  EXPECT_EQ(info["action"], "move");
  EXPECT_EQ(info["source_count"].asInt(), 2);
  EXPECT_EQ(info["dest_folder_path"], "/d");
  EXPECT_GT(info["created"].asInt64(), 0);
  EXPECT_EQ(WfmLibBkgTaskInfoCreate(Json::Value("x"), "copy")["source_count"].asInt(), 0);
}

}  // namespace
