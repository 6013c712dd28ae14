#include "reports/TaskReport.h"

#include <unistd.h>

#include <cerrno>
#include <exception>

#include "access/QueueFolders.h"
#include "calendar/Common.h"
#include "core/Server.h"
#include "platform/Error.h"
#include "platform/Files.h"
#include "reports/ServerLog.h"

namespace vq {

// Placeholder until the task report lands: writes nothing and reports success.
bool WriteReport(Server&, const std::string&, const std::string&, bool, const std::string&, int,
                 int32_t) {
    return true;
}

// Placeholder until the task report lands: the report is not rewritten.
bool RefreshReport(Server&, int, const std::string&) { return true; }

bool DeleteActiveMarker(Server& server, const std::string& taskKey) {
    std::string path;
    try {
        path = WithBackslash(GetCell(server.tables, kTaskTable, taskKey, "RF")) + kActiveMarker;
        if (::unlink(path.c_str()) != 0 && errno != ENOENT) throw VqError(ErrnoText(errno));
        return true;
    } catch (const std::exception& e) {
        WriteServerLog(server, "Error occurred while deleting \"" + path + "\"!\r\n" + e.what());
        return false;
    }
}

}  // namespace vq
