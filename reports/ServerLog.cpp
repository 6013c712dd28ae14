#include "reports/ServerLog.h"

#include "calendar/Common.h"
#include "core/Server.h"
#include "platform/Files.h"

namespace vq {

std::string ServerLogEntry(const std::string& text, VqDate now) {
    static const std::string kRule(47, '-');
    std::string entry = "\r\n";
    entry += ToUpper("Log Entry - Time: " + FormatLocaleDateTime(now)) + "\r\n";
    entry += kRule + "\r\n";
    entry += text + "\r\n";
    entry += kRule + "\r\n";
    return entry;
}

bool AppendServerLog(const std::string& logPath, const std::string& text, VqDate now) {
    return AppendToFile(logPath, ServerLogEntry(text, now));
}

bool WriteServerLog(Server& server, const std::string& text) {
    server.LastLogText = text;
    if (server.DataPath.empty()) return false;
    return AppendServerLog(server.DataPath + kServerLogName, text, server.clock.Now());
}

}  // namespace vq
