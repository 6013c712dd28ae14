#pragma once
// What the engine's tests share: a fake clock, an operator with scripted answers, a screen
// that counts refreshes, a temporary folder, a fresh server over all of them, its cells and
// tasks that real runners run, and locales.
#include <gtest/gtest.h>

#include <chrono>
#include <deque>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "core/Server.h"

namespace vq::test {

class FakeClock final : public Clock {
public:
    explicit FakeClock(VqDate start = MakeDate({2026, 11, 22, 12, 0, 0, 0})) : now_(start) {}
    VqDate Now() override { return now_; }
    void Sleep(int milliseconds) override {
        now_ = AddSeconds(now_, 0) + milliseconds / 86400000.0;
        slept += milliseconds;
    }
    void Advance(int64_t seconds) { now_ = AddSeconds(now_, seconds); }
    int64_t slept = 0;

private:
    VqDate now_;
};

struct ShownMessage {
    std::string text;
    MessageIcon icon;
    std::string title;
};

class ScriptedOperator final : public Operator {
public:
    void Message(const std::string& text, MessageIcon icon, const std::string& title) override {
        messages.push_back({text, icon, title});
    }
    // Takes the next scripted answer; Yes when none is left.
    bool AskYesNo(const std::string& text, const std::string& title, int autoYesMs) override {
        questions.push_back({text, MessageIcon::Question, title});
        lastAutoYesMs = autoYesMs;
        if (answers.empty()) return true;
        const bool answer = answers.front();
        answers.pop_front();
        return answer;
    }
    void Beep() override { ++beeps; }

    std::deque<bool> answers;
    std::vector<ShownMessage> messages;
    std::vector<ShownMessage> questions;
    int lastAutoYesMs = -1;
    int beeps = 0;
};

class CountingScreen final : public Screen {
public:
    void LoadTree() override { ++treeLoads; }
    void SaveColumnWidths() override { ++widthSaves; }
    void QueueSwitched(bool started) override { queueSwitches.push_back(started); }
    int treeLoads = 0;
    int widthSaves = 0;
    std::vector<bool> queueSwitches;
};

// A folder under the system's temporary folder, removed with everything in it.
class TempDir {
public:
    TempDir();
    ~TempDir();
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;
    // The folder with a closing "/".
    const std::string& Path() const { return path_; }

private:
    std::string path_;
};

// A fresh server: its own settings store and queue root in a temporary folder, the fake clock,
// the scripted operator and the counting screen (or the screen given). Columns are built, paths
// are set, the queue folders exist.
class TestServer {
public:
    explicit TestServer(Screen* screenGiven = nullptr);
    Server& operator*() { return *server; }
    Server* operator->() { return server.get(); }

    // Adds a task row with the start values of a submission and returns its key.
    std::string AddTask(int number, const std::string& name, const std::string& status = "Waiting",
                        const std::string& priority = "000200");
    // Adds `count` steps to a task, each with range 1 to 1 and Execute "Yes".
    void AddSteps(const std::string& taskKey, int count);
    // The server log's whole text, empty when there is none.
    std::string LogText() const;
    void SetSetting(const char* name, const std::string& value);

    TempDir dir;
    FakeClock clock;
    ScriptedOperator op;
    CountingScreen screen;
    std::unique_ptr<Registry> registry;
    std::unique_ptr<Server> server;
};

// Polls `done` every `stepMs` of real time until it holds; false when `limitMs` pass first.
template <typename Done>
bool WaitUntil(Done done, int limitMs, int stepMs = 5) {
    const auto until = std::chrono::steady_clock::now() + std::chrono::milliseconds(limitMs);
    while (!done()) {
        if (std::chrono::steady_clock::now() > until) return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(stepMs));
    }
    return true;
}

// A task of the server's own user with `steps` steps of range 1 to 1 running `true`, its folders
// made as submission makes them.
std::string AddRunnableTask(TestServer& t, int number, const std::string& name, int steps,
                            const std::string& status = "Ready");
void SetStepCell(TestServer& t, const std::string& taskKey, int step, const char* column,
                 const std::string& value);
std::string StepCell(TestServer& t, const std::string& taskKey, int step, const char* column);
std::string TaskCellOf(TestServer& t, const std::string& taskKey, const char* column);
void SetTaskCell(TestServer& t, const std::string& taskKey, const char* column,
                 const std::string& value);
bool HasTask(TestServer& t, const std::string& taskKey);
// Runs monitor ticks, the fake clock two seconds on for each, until the task's phase is
// Complete; false when it isn't within `limitMs` of real time.
bool TickUntilComplete(TestServer& t, const std::string& taskKey, int limitMs = 20000);

// Sets LC_ALL to a locale while it lives and puts back the one before.
class LocaleScope {
public:
    explicit LocaleScope(const std::string& name);
    ~LocaleScope();
    LocaleScope(const LocaleScope&) = delete;
    LocaleScope& operator=(const LocaleScope&) = delete;
    // A failure that names a missing locale and how to make it: such a test must not pass.
    ::testing::AssertionResult Active() const;

private:
    std::string name_, before_;
    bool active_;
};

// Reads a whole file; the empty text when it is missing.
std::string ReadFileText(const std::string& path);

}  // namespace vq::test
