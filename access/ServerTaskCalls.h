#pragma once
// The twelve members of ServerTask, the one door of the server for client programs, as plain
// calls on the server: each finds the row and forwards. None of them throws: a member that
// fails answers false (or "Denied").
#include <cstdint>
#include <string>

namespace vq {

struct Server;

class ServerTaskCalls {
public:
    explicit ServerTaskCalls(Server& server) : server_(server) {}

    // `newKey`, when given, receives the key of a task that was added, else the empty text.
    bool SubmitTask(const std::string& inputQFile, std::string* newKey = nullptr);
    static int16_t ServerType() { return 2; }
    static std::string ServerVersion();
    std::string QueueLocation() const;
    // Empty `fName`: every request file of $InQ. Else that one file, by its full path or its
    // name in $InQ; only a request file directly in $InQ is handled and deleted.
    bool RaiseChkIfReq(const std::string& fName);
    // Makes a folder of the tree; only a path under the queue root is made.
    bool MkZkDir(const std::string& user, const std::string& domain, const std::string& path,
                 const std::string& securityLevel);
    std::string ValidateCredentials(const std::string& username, const std::string& password,
                                    const std::string& domain, const std::string& cUserId);
    bool CancelTask(const std::string& taskKey);
    bool ResumeTask(const std::string& taskKey);
    bool HoldTask(const std::string& taskKey);
    bool WriteTaskInfo(const std::string& infoKey);
    bool TaskExist(const std::string& taskKey);

private:
    Server& server_;
};


}  // namespace vq
