#pragma once
// The queue database: TaskTable and StepTable on disk as Jobs.dat and Steps.dat in the $Data
// folder, two rotating backup pairs, the task number counter (TaskNO.dat and the setting
// JobNumber), and the journal of accepted submissions that covers the time between two saves.
#include <cstdint>
#include <string>
#include <string_view>

#include "platform/Random.h"

namespace vq {

struct Server;
struct WorkingTables;

inline const std::string kJobsFile = "Jobs.dat";
inline const std::string kStepsFile = "Steps.dat";
inline const std::string kTaskNumberFile = "TaskNO.dat";
inline const std::string kJournalFile = "Jobs.jnl";

// ChooseBackup's answer when neither backup pair is there.
inline constexpr int kNoBackup = 3;

// Writes both working tables in full, then the next backup pair, then empties the journal.
// A failure shows "Error occurred while saving ..." and logs it; the tables stay as they are.
bool SaveQueueDatabase(Server& server);
// Fills the working tables from Jobs.dat, Steps.dat and the journal; true also for a database
// that doesn't exist yet. A failure (errors 76, 77, 78, a missing tag, a duplicate key) leaves
// the tables empty, shows "Error occurred while loading ..." and logs it.
bool LoadQueueDatabase(Server& server);
// Loads, and when that fails sets the files aside as .bdN and offers the newest backup pair,
// each pair once. True only when the first load succeeded: otherwise the queue stays stopped.
bool RecoverQueueDatabase(Server& server);
// The backup pair to overwrite (`forWriting`) or to restore: 1 or 2, or kNoBackup for reading
// when there is none. Only the presence and dates of Jobs.bk1 and Jobs.bk2 count.
int ChooseBackup(Server& server, bool forWriting);
// The path of Jobs.bk1, Jobs.bk2, Steps.bk1 or Steps.bk2.
std::string BackupName(const Server& server, bool isJobs, bool second);

// The task number counter: with `save` it writes NextTaskNumber to the setting JobNumber and
// to TaskNO.dat (a number of 999999 or more is stored as 0); without, it returns the larger of
// the two stored copies, or JobNumber alone when TaskNO.dat can't be read.
int32_t JobNumberStore(Server& server, bool save);
// Takes the next task number, 1 to 999999 and then 1 again, and stores the counter at once so
// that a restart never gives the same number twice. Every path that numbers a task uses it.
int32_t TakeTaskNumber(Server& server);

// Makes an accepted submission safe before it is answered: appends the task's row and the rows
// of its steps (Step1, Step2, ... as long as they exist) to the journal beside Jobs.dat and
// flushes it to disk. The submission calls it after it has added the task's rows and before it
// answers true; a false result (logged) means the task would not survive a crash. The cost
// depends on the task alone, not on the size of the queue. The load adds the journal's rows
// that the tables don't hold yet; an entry cut short by a crash is ignored; every full save
// empties the journal.
bool JournalSubmittedTask(Server& server, const std::string& taskKey);

// The text forms of the two files, for the save, the benchmark and the fuzz target. Blocks in
// stream form with CR LF between the lines; the empty text for an empty table.
std::string TasksText(WorkingTables& tables, RandomSource& random = SystemRandom());
std::string StepsText(WorkingTables& tables, RandomSource& random = SystemRandom());
// Add the rows of a file's text to TaskTable or StepTable. A block that doesn't open with its
// section tag is VqError 76 "Invalid database entry."; a missing tag, a scrambled value that
// doesn't decode or a duplicate key fail as the stream reader and the table fail.
void ReadTasksText(WorkingTables& tables, const std::string& text);
void ReadStepsText(WorkingTables& tables, const std::string& text);
// Adds the rows of the journal's complete entries that the tables don't hold yet and returns
// the number of entries left out: cut short by a crash, or not readable. Never fails.
int ReplayJournalText(WorkingTables& tables, std::string_view text);

}  // namespace vq
