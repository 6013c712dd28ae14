#pragma once
// What a console without a window asks of the server: the rows of the task list and of a
// task's steps with the texts the main window shows, a task's report, and the removal of a
// finished task. Each answer is plain data; a refusal is a ConsoleRefusal with the name of
// its kind and a message that names the key.
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace vq {

struct Server;

// A row as cell name and displayed text, in the order of the columns.
using ConsoleRow = std::vector<std::pair<std::string, std::string>>;

// The cells a console row has beyond the table's columns.
inline const std::string kRowKeyCell = "RowKey";
inline const std::string kElapsedCell = "Elapsed";
inline const std::string kOutputFileCell = "OutputFile";

class ConsoleRefusal : public std::runtime_error {
  public:
    // `kind` is one of the names below; the message is for people.
    ConsoleRefusal(std::string kind, const std::string& message)
        : std::runtime_error(message), kind_(std::move(kind)) {}
    const std::string& Kind() const { return kind_; }

  private:
    std::string kind_;
};

inline const std::string kNoSuchTask = "NoSuchTask";
inline const std::string kNoSuchPhase = "NoSuchPhase";
inline const std::string kNoSuchCell = "NoSuchCell";
inline const std::string kNotFinished = "NotFinished";
inline const std::string kNoReport = "NoReport";
inline const std::string kRemovalFailed = "RemovalFailed";

// The task rows in the order of the task list: the whole queue in table order; for a phase
// ("Running", "Ready", "Waiting" or "Complete") the tasks of that group from the last row to
// the first, as a freshly chosen group shows them. Each row has RowKey, the task list's
// columns (shown or hidden by the operator) and Elapsed; with `cellNames`, only those cells, in
// that order. Another phase: kNoSuchPhase; a name of no cell: kNoSuchCell.
std::vector<ConsoleRow> TaskRows(Server& server, const std::string& phase,
                                 const std::vector<std::string>& cellNames = {});
// One task's row as above; kNoSuchTask when it is not in the queue.
ConsoleRow TaskRow(Server& server, const std::string& taskKey);
// The task's steps in order: RowKey, the step list's columns, Command and OutputFile.
std::vector<ConsoleRow> StepRows(Server& server, const std::string& taskKey);
// The text of the task's report file; kNoReport when it can't be read.
std::string TaskReportText(Server& server, const std::string& taskKey);
// Takes a finished task and its steps out of the queue as the end of its stay would, saves
// the queue and refreshes the screen. kNotFinished for a task that has not ended.
void RemoveFinishedTask(Server& server, const std::string& taskKey);

}  // namespace vq
