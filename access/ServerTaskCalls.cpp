#include "access/ServerTaskCalls.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <climits>
#include <cstdlib>
#include <exception>

#include "access/Logon.h"
#include "access/QueueFolders.h"
#include "access/Submission.h"
#include "calendar/Common.h"
#include "core/Server.h"
#include "core/TaskControl.h"
#include "core/TaskHold.h"
#include "reports/ServerLog.h"
#include "reports/TaskInfo.h"

namespace vq {

bool ServerTaskCalls::SubmitTask(const std::string& inputQFile, std::string* newKey) {
    try {
        return vq::SubmitTask(server_, inputQFile, newKey);
    } catch (const std::exception&) {
        return false;
    }
}

std::string ServerTaskCalls::ServerVersion() {
    return VersionNumberText();
}

std::string ServerTaskCalls::QueueLocation() const { return server_.ServerPath; }

bool ServerTaskCalls::RaiseChkIfReq(const std::string& fName) {
    try {
        if (fName.empty()) return CheckRequests(server_);
        const std::string path =
            fName.find('/') == std::string::npos ? server_.InQueuePath + fName : fName;
        const std::string name = path.substr(path.find_last_of('/') + 1);
        struct stat st {};
        // Only the name is deleted, never what a link names, so the folder is all to check.
        if (ParentOf(path) + "/" != server_.InQueuePath || !IsRequestFileName(name) ||
            ::lstat(path.c_str(), &st) != 0 || S_ISDIR(st.st_mode)) {
            WriteServerLog(server_, "The request file \"" + CutAtNul(fName) +
                                        "\" is no request file in $InQ: nothing was deleted.");
            return false;
        }
        HandleRequest(server_, path);
        return ::unlink(path.c_str()) == 0;
    } catch (const std::exception&) {
        return false;
    }
}

bool ServerTaskCalls::MkZkDir(const std::string& user, const std::string& domain,
                              const std::string& path, const std::string& securityLevel) {
    try {
        if (!IsInsideFolder(server_.ServerPath, path)) {
            WriteServerLog(server_, "The folder \"" + CutAtNul(path) +
                                        "\" is not under the queue root: nothing was made.");
            return false;
        }
        return MakeQueueFolder(server_, user, domain, path, securityLevel);
    } catch (const std::exception&) {
        return false;
    }
}

std::string ServerTaskCalls::ValidateCredentials(const std::string& username, const std::string& password,
                                                 const std::string& domain, const std::string& cUserId) {
    std::string result = kDenied;
    try {
        std::string name = username;
        result = ValidateLogon(server_, name, password, domain, cUserId);
    } catch (const std::exception&) {
        result = kDenied;
    }
    return result.empty() ? kDenied : result;
}

bool ServerTaskCalls::CancelTask(const std::string& taskKey) {
    try {
        if (!TaskExist(taskKey)) return false;
        SetCell(server_.tables, kTaskTable, taskKey, "RepCancel", "0");
        return RequestCancel(server_, taskKey);
    } catch (const std::exception&) {
        return false;
    }
}

bool ServerTaskCalls::ResumeTask(const std::string& taskKey) {
    return TaskExist(taskKey) && ReleaseTaskRow(server_, taskKey);
}

bool ServerTaskCalls::HoldTask(const std::string& taskKey) {
    return TaskExist(taskKey) && HoldTaskRow(server_, taskKey);
}

bool ServerTaskCalls::WriteTaskInfo(const std::string& infoKey) {
    try {
        return vq::WriteTaskInfo(server_, infoKey);
    } catch (const std::exception&) {
        return false;
    }
}

bool ServerTaskCalls::TaskExist(const std::string& taskKey) {
    std::string text;
    return GetRowText(server_.tables, kTaskTable, taskKey, text);
}

}  // namespace vq
