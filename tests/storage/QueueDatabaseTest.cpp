// The queue database: the file text, the load's failures, backup pairs and recovery, the task
// number counter and the journal of submissions.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <deque>
#include <optional>
#include <random>
#include <sstream>
#include <thread>
#include <tuple>

#include "platform/Files.h"
#include "storage/EncStr.h"
#include "storage/QueueDatabase.h"
#include "storage/Settings.h"
#include "tests/support/TestSupport.h"

namespace vq::test {
namespace {

const std::string kLoadFailed =
    "Error occurred while loading the Orvantis Server Queue Database!\n\n";

class QueueDatabaseTest : public testing::Test {
  protected:
    std::string Data(const std::string& name) { return t->DataPath + name; }
    void Put(const std::string& name, const std::string& text) {
        ASSERT_TRUE(WriteFileAtomic(Data(name), text));
    }
    std::string Get(const std::string& name) { return ReadFileText(Data(name)); }
    std::string Task(int number, const std::string& name, int steps = 1) {
        const std::string key = t.AddTask(number, name);
        t.AddSteps(key, steps);
        return key;
    }
    std::vector<std::vector<std::string>> Rows(const VqTable& table) {
        std::vector<std::vector<std::string>> rows;
        for (size_t i = 0; i < table.RowCount(); ++i) {
            rows.push_back(table.RowAt(i).cells);
            rows.back().push_back(table.RowAt(i).key);
        }
        return rows;
    }
    size_t TaskCount() { return t->tables.TaskTable.RowCount(); }
    size_t StepCount() { return t->tables.StepTable.RowCount(); }
    TestServer t;
};

// Replaces the value of `tag` on its first line with "*" and gives the decoded value back.
std::string TakeScrambled(std::string& text, const std::string& tag) {
    const std::string open = "<" + tag + ">", close = "</" + tag + ">";
    const size_t from = text.find(open) + open.size(), to = text.find(close);
    const std::string value = DecodeEncStr(text.substr(from, to - from));
    text.replace(from, to - from, "*");
    return value;
}

TEST_F(QueueDatabaseTest, BlocksHoldEveryColumnUnderItsTagAndLoadBackCellForCell) {
    VqRow& task = t->tables.TaskTable.AddRow("000001-Nightly", "Nightly");
    VqRow& step = t->tables.StepTable.AddRow("000001-Nightly-Step1", "Step 0001");
    for (size_t i = 1; i < task.cells.size(); ++i) task.cells[i] = "v" + std::to_string(i);
    for (size_t i = 1; i < step.cells.size(); ++i) step.cells[i] = "s" + std::to_string(i);
    task.cells[5] = "0102030405060708090A";  // Password
    step.cells[11] = "echo a\r\necho <b>";   // Command
    step.cells[14] = "A=1\r\nB=2";           // Environ
    // The tags of the columns in their file order.
    std::istringstream taskTags(
        "ID,STATUS,CLASS,USERNAME,EPASS,DOMAIN,SERVER,JOBREPORT,DEPENDENCY,QUEUE PRIORITY,CPU,"
        "SCHTIME,REPEAT,ALLR,CURREPEAT,SUBTIME,JOBINDEX,CURSTEP,ALLSTEPS,JOBRC,MAXRC,NIZV,REPCNT,"
        "RF,MAXRUNTIME,PEAKMEM,IO,TCPU,UNITS,REPCANCEL,START,END");
    std::istringstream stepTags(
        "STEPSTATUS,EXECUTE,STEPRC,SPEAKMEM,SSMEM,SIO,STCPU,SUNITS,MINRC,MAXRC,COMMAND,FILERC,"
        "WORKDIR,EENV,BUFFHEIGHT,BUFFWIDTH,PARENT");
    std::string jobs =
        "<TASK>\r\n\t<KEY>000001-Nightly</KEY>\r\n\t<TASKNAME>Nightly</TASKNAME>\r\n";
    std::string steps =
        "<STEP>\r\n\t<KEY>000001-Nightly-Step1</KEY>\r\n\t<STEPNAME>Step 0001</STEPNAME>\r\n";
    const auto line = [](const std::string& tag, const std::string& value) {
        return "\t<" + tag + ">" + value + "</" + tag + ">\r\n";
    };
    int column = 1;
    for (std::string tag; std::getline(taskTags, tag, ','); ++column)
        jobs += line(tag, tag == "EPASS" ? "*" : "v" + std::to_string(column));
    column = 1;
    for (std::string tag; std::getline(stepTags, tag, ','); ++column) {
        const std::string value = "s" + std::to_string(column);
        steps += line(tag, tag == "EENV" ? "*" : tag == "COMMAND" ? "echo a\001echo <b>" : value);
    }
    std::string jobsText = TasksText(t->tables), stepsText = StepsText(t->tables);
    const std::string block = TakeScrambled(jobsText, "EPASS");
    EXPECT_EQ(jobsText, jobs + "</TASK>\r\n");
    ASSERT_EQ(block.size(), 12u);  // the ten bytes, two random ones behind the seventh
    EXPECT_EQ(block.substr(0, 7) + block.substr(9),
              std::string("\x01\x02\x03\x04\x05\x06\x07\x08\x09\x0A"));
    EXPECT_EQ(TakeScrambled(stepsText, "EENV"), "$E$A=1\r\nB=2");
    EXPECT_EQ(stepsText, steps + "</STEP>\r\n");
    // Saved and loaded back beside a task of empty secrets, the rows are what they were. The
    // load makes the task's folder, so it must lie in the test's own queue root.
    SetCell(t->tables, kTaskTable, "000001-Nightly", "RF", t->ServerPath + "v24");
    Task(2, "Empty secrets");
    const auto tasks = Rows(t->tables.TaskTable), stepRows = Rows(t->tables.StepTable);
    ASSERT_TRUE(SaveQueueDatabase(*t));
    ASSERT_TRUE(LoadQueueDatabase(*t));
    EXPECT_EQ(Rows(t->tables.TaskTable), tasks);
    EXPECT_EQ(Rows(t->tables.StepTable), stepRows);
}

TEST_F(QueueDatabaseTest, PlainPasswordAndEnvironAreRead) {
    Task(1, "Old");
    std::string jobs = TasksText(t->tables), steps = StepsText(t->tables);
    TakeScrambled(jobs, "EPASS");
    TakeScrambled(steps, "EENV");
    Put("Jobs.dat", jobs.replace(jobs.find("<EPASS>*</EPASS>"), 16, "<PASSWORD>ABCD</PASSWORD>"));
    Put("Steps.dat", steps.replace(steps.find("<EENV>*</EENV>"), 14, "<ENVIRON>X=1</ENVIRON>"));
    ASSERT_TRUE(LoadQueueDatabase(*t));
    EXPECT_EQ(GetCell(t->tables, kTaskTable, "000001-Old", "Password"), "ABCD");
    EXPECT_EQ(GetCell(t->tables, kStepTable, "000001-Old-Step1", "Environ"), "X=1");
}

TEST_F(QueueDatabaseTest, AnEmptyQueueIsTwoEmptyFilesAndNoFilesAtAllIsAnEmptyQueue) {
    ASSERT_TRUE(RecoverQueueDatabase(*t));  // nothing there: the queue may start
    ASSERT_TRUE(SaveQueueDatabase(*t));
    for (const char* name : {"Jobs.dat", "Steps.dat", "Jobs.bk1", "Steps.bk1"}) {
        EXPECT_TRUE(PathExists(Data(name))) << name;
        EXPECT_EQ(Get(name), "") << name;
    }
    Task(1, "Gone");
    EXPECT_TRUE(LoadQueueDatabase(*t));
    EXPECT_EQ(TaskCount() + StepCount(), 0u);
    EXPECT_TRUE(t.op.messages.empty());
}

TEST_F(QueueDatabaseTest, ALoadFailsWithItsDescriptionAndLeavesTheTablesEmpty) {
    Task(1, "A");
    Task(2, "B");
    const std::string jobs = TasksText(t->tables), steps = StepsText(t->tables);
    const std::string firstJob = jobs.substr(0, jobs.find("<TASK>", 1));
    const std::string firstStep = steps.substr(0, steps.find("<STEP>", 1));
    std::string noStatus = jobs, badPass = jobs, blocked = jobs;
    blocked.replace(blocked.find("<DOMAIN>LOCAL"), 13,
                    "<DOMAIN>$Data/blocker");  // a file, no folder
    noStatus.erase(noStatus.find("\t<STATUS>"),
                   noStatus.find("\t<CLASS>") - noStatus.find("\t<STATUS>"));
    badPass.replace(badPass.find("<EPASS>") + 7, 1, "\x7f");
    // The case, the texts of the two files (none: the file is missing), the description.
    using Text = std::optional<std::string>;
    const std::tuple<const char*, Text, Text, std::string> cases[] = {
        {"steps missing", jobs, std::nullopt, "Part of database is missing."},
        {"jobs missing", std::nullopt, steps, "Part of database is missing."},
        {"fewer steps than tasks", jobs, firstStep, "Part of database is missing."},
        {"no section tag", "<JOB>\r\n", steps, "Invalid database entry."},
        {"a blank line at the end", jobs + "\r\n", steps, "Invalid database entry."},
        {"a tag missing", noStatus, steps, "Invalid Data: STATUS"},
        {"a duplicate key", firstJob + firstJob, steps,
         "Key is not unique in collection: 000001-A"},
        {"EPASS that doesn't decode", badPass, steps, ""},
        {"folders that can't be made", blocked, steps,
         "Data in database or directory structure is not valid (000001-A)."},
    };
    Put("blocker", "a file");
    for (const auto& [what, jobsText, stepsText, description] : cases) {
        for (const auto& [file, text] :
             {std::pair{"Jobs.dat", jobsText}, std::pair{"Steps.dat", stepsText}}) {
            ::unlink(Data(file).c_str());
            if (text) Put(file, *text);
        }
        t.op.messages.clear();
        EXPECT_FALSE(LoadQueueDatabase(*t)) << what;
        EXPECT_EQ(TaskCount() + StepCount(), 0u) << what;
        ASSERT_EQ(t.op.messages.size(), 1u) << what;
        EXPECT_EQ(t.op.messages[0].text.rfind(kLoadFailed + description, 0), 0u)
            << t.op.messages[0].text;
        EXPECT_NE(t.LogText().find(t.op.messages[0].text.substr(kLoadFailed.size())),
                  std::string::npos);
    }
}

// Pairs damaged, the answers given, the questions asked, whether the task came back, whether
// the last message says there are no backups.
using RecoveryCase = std::tuple<int, std::deque<bool>, size_t, bool, bool>;
class Recovery : public QueueDatabaseTest, public testing::WithParamInterface<RecoveryCase> {};

// Two saves fill both pairs; then Jobs.dat and any number of pairs are damaged.
TEST_P(Recovery, OffersEachBackupPairOnceAndStopsTheQueue) {
    const auto& [damagedPairs, answers, questions, tasksBack, noBackupMessage] = GetParam();
    Task(1, "A");
    ASSERT_TRUE(SaveQueueDatabase(*t));
    ASSERT_TRUE(SaveQueueDatabase(*t));
    Put("Jobs.dat", "damaged");
    if (damagedPairs >= 1) Put("Jobs.bk2", "damaged");
    if (damagedPairs >= 2) Put("Jobs.bk1", "damaged");
    t.op.answers = answers;
    EXPECT_FALSE(RecoverQueueDatabase(*t));
    EXPECT_EQ(t.op.questions.size(), questions);
    EXPECT_EQ(TaskCount(), tasksBack ? 1u : 0u);
    EXPECT_EQ(Get("Jobs.dat.bd1"), "damaged");
    ASSERT_FALSE(t.op.messages.empty());
    EXPECT_EQ(t.op.messages.back().text.rfind("There are no backup files", 0) == 0,
              noBackupMessage);
}

INSTANTIATE_TEST_SUITE_P(BackupPairs, Recovery,
                         testing::Values(
                             // the newest pair loads at the second attempt
                             RecoveryCase{0, {true}, 1, true, false},
                             RecoveryCase{0, {false}, 1, false, false},
                             RecoveryCase{1, {true, true}, 2, true, false},
                             RecoveryCase{2, {true, true}, 2, false, true}));

TEST_F(QueueDatabaseTest, BackupPairsAreChosenByPresenceAndDate) {
    // Dates of Jobs.bk1 and Jobs.bk2, 0 for a missing file; the pair to write, the pair to read.
    const int cases[][4] = {{0, 0, 1, 3}, {0, 5, 1, 2}, {5, 0, 2, 1},
                            {4, 5, 1, 2}, {5, 4, 2, 1}, {5, 5, 2, 2}};
    for (const auto& [first, second, writing, reading] : cases) {
        for (const auto& [name, date] :
             {std::pair{"Jobs.bk1", first}, std::pair{"Jobs.bk2", second}}) {
            ::unlink(Data(name).c_str());
            if (date == 0) continue;
            Put(name, "");
            const timespec times[2] = {{1000000L * date, 0}, {1000000L * date, 0}};
            ASSERT_EQ(::utimensat(AT_FDCWD, Data(name).c_str(), times, 0), 0);
        }
        EXPECT_EQ(ChooseBackup(*t, true), writing) << first << " " << second;
        EXPECT_EQ(ChooseBackup(*t, false), reading) << first << " " << second;
    }
    // Same dates: the first save of the run overwrites pair 2, the next one pair 1.
    Task(1, "A");
    ASSERT_TRUE(SaveQueueDatabase(*t));
    EXPECT_EQ(Get("Jobs.bk2"), Get("Jobs.dat"));
    EXPECT_EQ(Get("Jobs.bk1"), "");
    ASSERT_TRUE(SaveQueueDatabase(*t));
    EXPECT_EQ(Get("Steps.bk1"), Get("Steps.dat"));
    EXPECT_EQ(BackupName(*t, false, true), Data("Steps.bk2"));
}

TEST_F(QueueDatabaseTest, AnInterruptedSaveIsFinishedOnlyWhenBothNewFilesWereMarkedComplete) {
    Task(1, "Old");
    ASSERT_TRUE(SaveQueueDatabase(*t));
    Task(2, "New");
    const std::string jobs = TasksText(t->tables), steps = StepsText(t->tables);
    for (const bool marked : {false, true}) {
        Put("Jobs.dat.new", jobs);
        Put("Steps.dat.new", steps);
        if (marked) Put("Database.commit", "");
        Put("Jobs.dat.new.tmpAb12Cd", "a temporary file of a write that a crash stopped");
        ASSERT_TRUE(LoadQueueDatabase(*t));
        EXPECT_EQ(TaskCount(), marked ? 2u : 1u);
        for (const char* name :
             {"Jobs.dat.new", "Steps.dat.new", "Database.commit", "Jobs.dat.new.tmpAb12Cd"})
            EXPECT_FALSE(PathExists(Data(name))) << name;
    }
}

// A child process saves two queues in turn (100 tasks of 1 step, 150 of 2) and is killed at
// random moments: the database always loads at once, whole, as one of the two.
TEST_F(QueueDatabaseTest, AKillAtAnyMomentOfASaveLeavesADatabaseThatLoads) {
    std::mt19937 random(2026);
    for (int round = 0; round < 25; ++round) {
        const pid_t child = ::fork();
        ASSERT_GE(child, 0);
        if (child == 0) {
            for (;;) {
                for (const auto& [tasks, steps] : {std::pair{150, 2}, std::pair{100, 1}}) {
                    t->tables.TaskTable.ClearRows();
                    t->tables.StepTable.ClearRows();
                    for (int n = 1; n <= tasks; ++n) Task(n, "T", steps);
                    SaveQueueDatabase(*t);
                }
            }
        }
        std::this_thread::sleep_for(std::chrono::microseconds(random() % 25000));
        ::kill(child, SIGKILL);
        ::waitpid(child, nullptr, 0);
        t->tables.TaskTable.ClearRows();
        ASSERT_TRUE(LoadQueueDatabase(*t)) << t.op.messages.back().text;
        const size_t tasks = TaskCount(), steps = StepCount();
        EXPECT_TRUE((tasks == 0 && steps == 0) || (tasks == 150 && steps == 300) ||
                    (tasks == 100 && steps == 100))
            << tasks << " tasks, " << steps << " steps";
    }
}

TEST_F(QueueDatabaseTest, JournaledSubmissionsSurviveACrashAndACutEntryIsLeftOut) {
    Task(1, "Saved");
    ASSERT_TRUE(SaveQueueDatabase(*t));
    for (int n = 2; n <= 3; ++n)
        ASSERT_TRUE(JournalSubmittedTask(*t, Task(n, "Sub" + std::to_string(n), 2)));
    ASSERT_TRUE(
        JournalSubmittedTask(*t, "000001-Saved"));  // a save that stopped before emptying it
    ASSERT_TRUE(JournalSubmittedTask(*t, Task(4, "Sub4")));
    const std::string journal = Get("Jobs.jnl");
    Put("Jobs.jnl", journal.substr(0, journal.find("<STATUS>", journal.find("000004-Sub4")) + 3));
    ASSERT_TRUE(LoadQueueDatabase(*t));  // the tables start afresh, as after a crash
    EXPECT_EQ(TaskCount(), 3u);
    EXPECT_EQ(StepCount(), 5u);
    EXPECT_NE(t.LogText().find("cut short by a crash were left out: 1"), std::string::npos);
    // An entry appended right behind the cut one counts; a save empties the journal.
    ASSERT_TRUE(JournalSubmittedTask(*t, Task(5, "Sub5")));
    ASSERT_TRUE(LoadQueueDatabase(*t));
    EXPECT_TRUE(t->tables.TaskTable.FindRow("000005-Sub5"));
    ASSERT_TRUE(SaveQueueDatabase(*t));
    EXPECT_FALSE(PathExists(Data("Jobs.jnl")));
    EXPECT_FALSE(JournalSubmittedTask(*t, "000009-Missing"));
}

TEST_F(QueueDatabaseTest, TheTaskNumberIsTheLargerStoredCopyAndWrapsTo1) {
    SaveRegSetting(*t.registry, "ServerSettings", "JobNumber", "12");
    const std::pair<const char*, int32_t> files[] = {
        {"30\r\n", 30}, {"5\r\n", 12}, {nullptr, 12}, {"x\r\n", 12}};
    for (const auto& [file, number] : files) {
        ::unlink(Data("TaskNO.dat").c_str());
        if (file) Put("TaskNO.dat", file);
        EXPECT_EQ(JobNumberStore(*t, false), number) << (file ? file : "no file");
    }
    // The counter before, the number taken, the counter stored.
    const int32_t takes[][3] = {
        {0, 1, 1}, {41, 42, 42}, {999998, 999999, 0}, {999999, 1, 1}, {-3, 1, 1}};
    for (const auto& [before, taken, stored] : takes) {
        t->NextTaskNumber = before;
        EXPECT_EQ(TakeTaskNumber(*t), taken) << before;
        EXPECT_EQ(Get("TaskNO.dat"), std::to_string(stored) + "\r\n");
        EXPECT_EQ(GetSettingText(*t.registry, "ServerSettings", "JobNumber"),
                  std::to_string(stored));
    }
}

}  // namespace
}  // namespace vq::test
