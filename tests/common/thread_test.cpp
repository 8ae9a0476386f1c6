#include "quill/common/thread.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <thread>

namespace {

using quill::common::Thread;

// Long enough never to expire in a working test; it only keeps a broken test from hanging.
constexpr std::chrono::seconds kPatience{10};

// A one-shot signal between threads.
class Gate {
  public:
    void open() {
        std::lock_guard<std::mutex> lock(mutex_);
        open_ = true;
        opened_.notify_all();
    }
    // Waits until the gate is open or kPatience has passed; true when it is open.
    bool waitOpen() {
        std::unique_lock<std::mutex> lock(mutex_);
        return opened_.wait_for(lock, kPatience, [this] { return open_; });
    }

  private:
    std::mutex mutex_;
    std::condition_variable opened_;
    bool open_ = false;
};

void waitForGate(void* gate) {
    static_cast<Gate*>(gate)->waitOpen();
}

TEST(ThreadTest, InfiniteIsTheLargestLongLong) {
    EXPECT_EQ(Thread::INFINITE, 0x7FFFFFFFFFFFFFFFLL);
}

TEST(ThreadTest, StartRunsTheFunctionWithItsArgument) {
    Thread thread;
    int value = 0;
    EXPECT_TRUE(thread.start([](void* argument) { *static_cast<int*>(argument) = 42; }, &value));
    EXPECT_TRUE(thread.wait(Thread::INFINITE));
    EXPECT_EQ(value, 42);
}

TEST(ThreadTest, StartRunsTheFunctionOnAnotherThread) {
    Thread thread;
    std::thread::id runner;
    thread.start([&runner](void*) { runner = std::this_thread::get_id(); }, nullptr);
    ASSERT_TRUE(thread.wait(Thread::INFINITE));
    EXPECT_NE(runner, std::thread::id());
    EXPECT_NE(runner, std::this_thread::get_id());
}

TEST(ThreadTest, WaitWithoutStartReturnsTrue) {
    Thread thread;
    EXPECT_TRUE(thread.wait(0));
    EXPECT_TRUE(thread.wait(Thread::INFINITE));
    EXPECT_FALSE(thread.joinable());
}

TEST(ThreadTest, ShortWaitOnABlockedThreadTimesOutThenInfiniteWaitJoins) {
    Thread thread;
    Gate gate;
    ASSERT_TRUE(thread.start(waitForGate, &gate));
    EXPECT_FALSE(thread.wait(20));
    EXPECT_TRUE(thread.joinable());
    gate.open();
    EXPECT_TRUE(thread.wait(Thread::INFINITE));
    EXPECT_FALSE(thread.joinable());
}

TEST(ThreadTest, ZeroAndNegativeTimeOutsReturnAtOnceOnABlockedThread) {
    Thread thread;
    Gate gate;
    ASSERT_TRUE(thread.start(waitForGate, &gate));
    EXPECT_FALSE(thread.wait(0));
    EXPECT_FALSE(thread.wait(-5));
    EXPECT_FALSE(thread.wait(-0x7FFFFFFFFFFFFFFFLL));
    gate.open();
    EXPECT_TRUE(thread.wait(Thread::INFINITE));
}

TEST(ThreadTest, TimeOutTooLongForTheClockWaitsForTheThread) {
    Thread thread;
    ASSERT_TRUE(thread.start(
        [](void*) { std::this_thread::sleep_for(std::chrono::milliseconds(50)); }, nullptr));
    EXPECT_TRUE(thread.wait(Thread::INFINITE - 1));
    ASSERT_TRUE(thread.start(
        [](void*) { std::this_thread::sleep_for(std::chrono::milliseconds(50)); }, nullptr));
    EXPECT_TRUE(thread.wait(0x4000000000000000LL));
}

TEST(ThreadTest, DestructorJoinsARunningThread) {
    std::atomic<bool> finished{false};
    {
        Thread thread;
        ASSERT_TRUE(thread.start(
            [&finished](void*) {
                std::this_thread::sleep_for(std::chrono::milliseconds(50));
                finished = true;
            },
            nullptr));
    }
    EXPECT_TRUE(finished);
}

TEST(ThreadTest, StartWhileRunningIsRefused) {
    Thread thread;
    Gate gate;
    std::atomic<bool> secondRan{false};
    ASSERT_TRUE(thread.start(waitForGate, &gate));
    EXPECT_FALSE(thread.start([&secondRan](void*) { secondRan = true; }, nullptr));
    gate.open();
    EXPECT_TRUE(thread.wait(Thread::INFINITE));
    EXPECT_FALSE(secondRan);
}

TEST(ThreadTest, StartOfAFinishedButUnjoinedThreadIsRefused) {
    Thread thread;
    Gate finished;
    ASSERT_TRUE(thread.start([](void* gate) { static_cast<Gate*>(gate)->open(); }, &finished));
    ASSERT_TRUE(finished.waitOpen());
    EXPECT_FALSE(thread.start([](void*) {}, nullptr));
    EXPECT_TRUE(thread.wait(Thread::INFINITE));
}

TEST(ThreadTest, StartAfterJoinRunsAgain) {
    Thread thread;
    int runs = 0;
    auto count = [](void* argument) { ++*static_cast<int*>(argument); };
    ASSERT_TRUE(thread.start(count, &runs));
    ASSERT_TRUE(thread.wait(Thread::INFINITE));
    EXPECT_TRUE(thread.start(count, &runs));
    EXPECT_TRUE(thread.wait(Thread::INFINITE));
    EXPECT_EQ(runs, 2);
}

TEST(ThreadTest, StartWithAnEmptyFunctionIsRefused) {
    Thread thread;
    EXPECT_FALSE(thread.start(std::function<void(void*)>(), nullptr));
    EXPECT_FALSE(thread.joinable());
}

TEST(ThreadTest, ExceptionFromTheFunctionEndsOnlyTheThread) {
    Thread thread;
    ASSERT_TRUE(thread.start([](void*) { throw std::runtime_error("thrown"); }, nullptr));
    EXPECT_TRUE(thread.wait(Thread::INFINITE));
    EXPECT_FALSE(thread.joinable());
}

TEST(ThreadTest, WaitFromTheThreadItselfIsRefused) {
    Thread thread;
    bool joinedItself = true;
    ASSERT_TRUE(thread.start(
        [&thread, &joinedItself](void*) { joinedItself = thread.wait(Thread::INFINITE); },
        nullptr));
    ASSERT_TRUE(thread.wait(Thread::INFINITE));
    EXPECT_FALSE(joinedItself);
}

TEST(ThreadTest, TheThreadMayDestroyItsOwnThreadObject) {
    // Shared, because the detached thread still touches the gate after the test has seen it open.
    auto destroyed = std::make_shared<Gate>();
    auto* thread = new Thread;
    ASSERT_TRUE(thread->start(
        [thread, destroyed](void*) {
            delete thread;
            destroyed->open();
        },
        nullptr));
    EXPECT_TRUE(destroyed->waitOpen());
}

}  // namespace
