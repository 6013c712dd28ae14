#pragma once
// Submission: a task file handed in through $InQ becomes a row of TaskTable, one row of
// StepTable for each step, and the task's folder.
#include <cstdint>
#include <string>

namespace vq {

struct Server;

inline const std::string kSubmitUserFile = "VqSubmitUser$.$$$";

// Reads $InQ/`fileName`, checks it and adds the task to the queue. True when the server is
// done with the file in an ordinary way (a file that has gone and one that can't be read
// count so); false after the failure path, whose message is in the server log. The input
// file is deleted in every case. `fileName` is a bare name inside $InQ: any other text
// names no file there and is refused without touching anything. `newKey`, when given,
// receives the RowKey of a task that was added in full, else the empty text.
bool SubmitTask(Server& server, const std::string& fileName, std::string* newKey = nullptr);

// Writes VqSubmitUser$.$$$ into `folder`: one line "server/domain/user". False, with a line
// in the server log, when it can't be written.
bool WriteSubmitUser(Server& server, const std::string& subUser, const std::string& subDomain,
                     const std::string& subServer, const std::string& folder);

// The starting queue priority of a task file's QUEUEPRIORITY code, capped by the QP of the
// class named by `classLetter`.
int32_t SubmittedQueuePriority(Server& server, const std::string& code,
                               const std::string& classLetter);

}  // namespace vq
