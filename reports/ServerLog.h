#pragma once
// The server log, SrvLog.txt in the $Data folder: one entry for each failure or notice.
#include <string>

#include "calendar/DateTime.h"

namespace vq {

struct Server;

inline const std::string kServerLogName = "SrvLog.txt";

// The bytes of one entry: an empty line, the upper-cased header with the date, 47 hyphens,
// the message, 47 hyphens, each line closed by CR LF.
std::string ServerLogEntry(const std::string& text, VqDate now);
// Appends an entry to `logPath`, creating the file; false after a failure, which is swallowed.
bool AppendServerLog(const std::string& logPath, const std::string& text, VqDate now);
// Appends an entry to DataPath + SrvLog.txt.
bool WriteServerLog(Server& server, const std::string& text);

}  // namespace vq
