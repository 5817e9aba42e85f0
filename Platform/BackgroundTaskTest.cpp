// Tasks in the background: a request is never lost, whether the task is awake or asleep.
#include "Platform/BackgroundTask.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <thread>
#include <vector>

namespace sevrin::platform {
namespace {

// What the blocks below count; a task's block is a plain function.
std::atomic<int> runs = 0;
std::atomic<int> asked = 0;
std::atomic<int> seen = 0;  // how many requests had been made when the block last began

void countRun() {
    seen = asked.load();
    ++runs;
    runs.notify_all();
}

// Tasks are never destroyed; this is where the tests leave theirs.
BackgroundTask& keep(BackgroundTask* task) {
    static auto& theTasks = *new std::vector<BackgroundTask*>;
    theTasks.push_back(task);
    return *task;
}

BackgroundTask& newTask(std::chrono::milliseconds patience = kBackgroundTaskPatience) {
    runs = 0;
    asked = 0;
    seen = 0;
    return keep(new BackgroundTask(&countRun, patience));
}

void waitForRun(int number) {
    for (int now = runs; now < number; now = runs)
        runs.wait(now);
}

TEST(BackgroundTaskTest, ARequestRunsTheBlock) {
    BackgroundTask& task = newTask();

    task.request();
    waitForRun(1);

    EXPECT_EQ(runs, 1);
}

TEST(BackgroundTaskTest, AnExpectedRequestRunsTheBlock) {
    BackgroundTask& task = newTask();

    task.expect();
    task.request();
    waitForRun(1);

    EXPECT_EQ(runs, 1);
}

TEST(BackgroundTaskTest, ExpectingAloneRunsNothing) {
    BackgroundTask& task = newTask();
    BackgroundTask& other = keep(new BackgroundTask([] { asked = 1; }));

    task.expect();
    other.expect();
    other.request();
    while (asked == 0)
        std::this_thread::yield();

    EXPECT_EQ(runs, 0);
}

TEST(BackgroundTaskTest, EveryRequestIsFollowedByARun) {
    BackgroundTask& task = newTask();
    task.expect();

    for (int i = 1; i <= 20; ++i) {
        asked = i;
        task.request();
        while (seen < i)
            std::this_thread::yield();
    }

    EXPECT_LE(runs, 20);
}

TEST(BackgroundTaskTest, ATaskThatSleepsIsWoken) {
    BackgroundTask& impatient = newTask(std::chrono::milliseconds(0));
    impatient.expect();

    for (int i = 1; i <= 20; ++i) {
        asked = i;
        impatient.request();
        while (seen < i)
            std::this_thread::yield();
    }

    EXPECT_LE(runs, 20);
}

TEST(BackgroundTaskTest, ManyThreadsRequestAndExpectAtOnce) {
    BackgroundTask& task = newTask();
    std::vector<std::thread> threads;

    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([&] {
            for (int round = 0; round < 1000; ++round) {
                task.expect();
                ++asked;
                task.request();
            }
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    while (seen < 4000)
        std::this_thread::yield();

    EXPECT_LE(runs, 4000);
}

}  // namespace
}  // namespace sevrin::platform
