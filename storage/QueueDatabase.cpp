#include "storage/QueueDatabase.h"

#include <algorithm>

#include "calendar/Common.h"
#include "core/Server.h"
#include "platform/Files.h"
#include "storage/Settings.h"

namespace vq {

// Placeholder until the queue database lands: nothing is loaded, the queue may start.
bool RecoverQueueDatabase(Server&) { return true; }

// Placeholder until the queue database lands: nothing is written.
bool SaveQueueDatabase(Server&) { return true; }

int32_t JobNumberStore(Server& server, bool save) {
    if (server.NextTaskNumber >= 999999) server.NextTaskNumber = 0;
    const std::string file = server.DataPath + "TaskNO.dat";
    if (save) {
        SaveRegSetting(server.registry, "ServerSettings", "JobNumber", std::to_string(server.NextTaskNumber));
        WriteFileAtomic(file, std::to_string(server.NextTaskNumber) + "\r\n");
        return server.NextTaskNumber;
    }
    const int64_t stored = GetSettingNumber(server.registry, "ServerSettings", "JobNumber");
    std::string content;
    int64_t inFile = 0;
    if (ReadWholeFile(file, content)) inFile = Val(content.substr(0, content.find_first_of("\r\n")));
    const int64_t larger = std::max(stored, inFile);
    return static_cast<int32_t>(std::clamp<int64_t>(larger, 0, 999999));
}

}  // namespace vq
