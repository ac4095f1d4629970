#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <future>
#include <mutex>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "LogCapture.h"
#include "ThreadManager.h"
#include "evlog.h"

namespace {

using Tarn::Base::CTaskCommon;
using Tarn::Base::CThreadManager;
using Tarn::Base::CTMTask;

constexpr auto kHangGuard = std::chrono::seconds(60);  // against hangs only

std::unique_ptr<CTMTask> Task(std::function<void()> work) { return std::make_unique<CTaskCommon>(std::move(work)); }

// Holds a worker inside a task until opened, so its queue can be filled.
struct Gate {
  std::unique_ptr<CTMTask> BlockingTask() {
    return Task([this] {
      entered.set_value();
      open.wait_for(kHangGuard);
    });
  }
  bool WaitEntered() { return entered.get_future().wait_for(kHangGuard) == std::future_status::ready; }
  std::promise<void> entered, opener;
  std::shared_future<void> open{opener.get_future().share()};
};

// Counts runs; signals when destroyed without having run.
struct TrackedTask : CTMTask {
  TrackedTask(std::atomic<int>* runCount, std::promise<void>* droppedSignal) : runs(runCount), dropped(droppedSignal) {}
  ~TrackedTask() override {
    if (!ran && dropped != nullptr) dropped->set_value();
  }
  void Run() override {
    ran = true;
    ++*runs;
  }
  std::atomic<int>* runs;
  std::promise<void>* dropped;
  bool ran = false;
};

class ThreadManagerTest : public ::testing::Test {
 protected:
  void SetUp() override { ASSERT_TRUE(manager.Init_V2()); }
  void TearDown() override { manager.UnInit(); }
  CThreadManager& manager = CThreadManager::Instance();
};

TEST_F(ThreadManagerTest, ReservationReleaseAndRestart) {
  EXPECT_TRUE(manager.Init_V2());
  EXPECT_TRUE(manager.GetAvailableThread_V2("cam1", 4));
  EXPECT_FALSE(manager.GetAvailableThread_V2("cam1", 4));
  EXPECT_FALSE(manager.GetAvailableThread_V2("cam2", 0));
  EXPECT_FALSE(manager.PostTask("nobody", Task([] {})));
  EXPECT_FALSE(manager.PostTask("cam1", nullptr));
  EXPECT_FALSE(manager.ReleaseThread("nobody", true));
  EXPECT_TRUE(manager.ReleaseThread("cam1", true));
  EXPECT_TRUE(manager.GetAvailableThread_V2("cam1", 4)) << "a released key can be reserved again";

  manager.UnInit();
  EXPECT_FALSE(manager.PostTask("cam1", Task([] {})));
  EXPECT_FALSE(manager.GetAvailableThread_V2("cam3", 4)) << "not started";
  ASSERT_TRUE(manager.Init_V2());
  EXPECT_TRUE(manager.GetAvailableThread_V2("cam1", 4));
}

TEST_F(ThreadManagerTest, ConcurrentPostersRunInOrderOnOneThread) {
  constexpr int kProducers = 4, kPerProducer = 400;
  ASSERT_TRUE(manager.GetAvailableThread_V2("shared", kProducers * kPerProducer));
  std::vector<std::vector<int>> seen(kProducers);  // touched only by the worker
  std::vector<std::thread::id> threads;
  std::vector<std::thread> producers;
  for (int p = 0; p < kProducers; ++p) {
    producers.emplace_back([&, p] {
      for (int i = 0; i < kPerProducer; ++i) {
        EXPECT_TRUE(manager.PostTask("shared", Task([&, p, i] {
                                       seen[p].push_back(i);
                                       threads.push_back(std::this_thread::get_id());
                                     })));
      }
    });
  }
  for (auto& producer : producers) producer.join();
  ASSERT_TRUE(manager.ReleaseThread("shared", true));
  for (int p = 0; p < kProducers; ++p) {
    ASSERT_EQ(seen[p].size(), static_cast<size_t>(kPerProducer));
    for (int i = 0; i < kPerProducer; ++i) ASSERT_EQ(seen[p][i], i) << "producer " << p;
  }
  for (const auto& id : threads) ASSERT_EQ(id, threads.front());
  EXPECT_NE(threads.front(), std::this_thread::get_id());
}

TEST_F(ThreadManagerTest, FullQueueRefusesAndLogsEachRefusal) {
  LogCapture log;
  ASSERT_TRUE(manager.GetAvailableThread_V2("bounded-cam", 3));
  Gate gate;
  ASSERT_TRUE(manager.PostTask("bounded-cam", gate.BlockingTask()));
  ASSERT_TRUE(gate.WaitEntered());  // the running task no longer counts as pending
  std::atomic<int> runs{0};
  for (int i = 0; i < 3; ++i) EXPECT_TRUE(manager.PostTask("bounded-cam", Task([&runs] { ++runs; })));
  EXPECT_FALSE(manager.PostTask("bounded-cam", Task([&runs] { ++runs; })));
  EXPECT_FALSE(manager.PostTask("bounded-cam", Task([&runs] { ++runs; })));
  EXPECT_EQ(log.Matching("bounded-cam", EVLOG_ERROR).size(), 2u);
  gate.opener.set_value();
  ASSERT_TRUE(manager.ReleaseThread("bounded-cam", true));
  EXPECT_EQ(runs.load(), 3);
}

TEST_F(ThreadManagerTest, ReleaseDropsOrRunsPendingTasks) {
  for (bool waitPending : {false, true}) {
    SCOPED_TRACE(waitPending ? "waitPending" : "drop");
    ASSERT_TRUE(manager.GetAvailableThread_V2("release", 16));
    Gate gate;
    ASSERT_TRUE(manager.PostTask("release", gate.BlockingTask()));
    ASSERT_TRUE(gate.WaitEntered());
    std::atomic<int> runs{0};
    std::promise<void> firstDropped;
    ASSERT_TRUE(manager.PostTask("release", std::make_unique<TrackedTask>(&runs, &firstDropped)));
    for (int i = 0; i < 4; ++i) ASSERT_TRUE(manager.PostTask("release", std::make_unique<TrackedTask>(&runs, nullptr)));
    auto released = std::async(std::launch::async, [&] { return manager.ReleaseThread("release", waitPending); });
    if (!waitPending) {  // the backlog is dropped before the join: open the gate only then
      ASSERT_EQ(firstDropped.get_future().wait_for(kHangGuard), std::future_status::ready);
    }
    gate.opener.set_value();
    ASSERT_EQ(released.wait_for(kHangGuard), std::future_status::ready);
    EXPECT_TRUE(released.get());
    EXPECT_EQ(runs.load(), waitPending ? 5 : 0);
  }
}

TEST_F(ThreadManagerTest, TaskExceptionIsLoggedAndWorkerContinues) {
  LogCapture log;
  ASSERT_TRUE(manager.GetAvailableThread_V2("throwing", 8));
  std::atomic<int> runs{0};
  ASSERT_TRUE(manager.PostTask("throwing", Task([] { throw std::runtime_error("bad answer"); })));
  ASSERT_TRUE(manager.PostTask("throwing", Task([] { throw 42; })));
  ASSERT_TRUE(manager.PostTask("throwing", Task([&runs] { ++runs; })));
  ASSERT_TRUE(manager.ReleaseThread("throwing", true));
  EXPECT_EQ(runs.load(), 1);
  EXPECT_EQ(log.Matching("throwing", EVLOG_ERROR).size(), 2u);
}

TEST_F(ThreadManagerTest, PostingRacesWithReleaseAndReservation) {
  evlog_set_sink([](int, const char*, const char*, void*) {}, nullptr);  // refusals flood the log
  std::atomic<bool> stop{false};
  std::vector<std::thread> posters;
  for (int t = 0; t < 3; ++t) {
    posters.emplace_back([&] {
      while (!stop) manager.PostTask("churn", Task([] {}));
    });
  }
  for (int round = 0; round < 50; ++round) {
    EXPECT_TRUE(manager.GetAvailableThread_V2("churn", 32));
    std::this_thread::yield();
    EXPECT_TRUE(manager.ReleaseThread("churn", round % 2 == 0));
  }
  stop = true;
  for (auto& poster : posters) poster.join();
  evlog_set_sink(nullptr, nullptr);
}

}  // namespace
