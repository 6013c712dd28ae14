#include "access/Logon.h"

#include <dirent.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <exception>
#include <memory>

#include "core/Server.h"
#include "platform/Error.h"
#include "platform/Files.h"
#include "reports/ServerLog.h"

namespace vq {
namespace {

char AsciiUpper(char c) { return c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c; }

bool SameAsciiText(const std::string& a, const std::string& b) {
    if (a.size() != b.size()) return false;
    for (size_t i = 0; i < a.size(); ++i)
        if (AsciiUpper(a[i]) != AsciiUpper(b[i])) return false;
    return true;
}

struct DirCloser {
    void operator()(DIR* dir) const { closedir(dir); }
};

}  // namespace

bool IsRequestFileName(const std::string& name) {
    return name.size() > 4 && name[0] != '.' && SameAsciiText(name.substr(name.size() - 4), ".urf");
}

std::string SplitUserName(const std::string& userName, std::string& namePart) {
    const size_t at = userName.find('@');
    if (at == std::string::npos) return userName;
    namePart = userName.substr(0, at);
    const size_t dot = userName.find('.', at + 1);
    if (dot == std::string::npos) return userName.substr(at + 1);
    return userName.substr(at + 1, dot - at - 1);
}

std::string ValidateLogon(Server& server, std::string& userName, const std::string& password,
                          const std::string& domain, const std::string& clientUserId) {
    try {
        const bool noDomain = SameAsciiText(domain, "$ADS$") || SameAsciiText(domain, "$LOCALS$");
        // The domain decides nothing here: only the name part is compared.
        std::string workingDomain = noDomain ? std::string() : domain;
        if (workingDomain.empty()) {
            std::string namePart = userName;
            const std::string split = SplitUserName(userName, namePart);
            if (split != userName) {
                workingDomain = split;
                userName = namePart;
            }
        }
        return SameAsciiText(userName, "$LOCALUSER$") ? kGranted : kOnlyCurrentUser;
    } catch (const std::exception& e) {
        WriteServerLog(server, std::string("Unknown Error Occurred On Logon Procedure.\n\n") + e.what());
        return kDenied;
    }
}

bool HandleRequest(Server&, const std::string&) { return true; }

bool CheckRequests(Server& server) {
    try {
        std::unique_ptr<DIR, DirCloser> dir{opendir(server.InQueuePath.c_str())};
        if (!dir) throw VqError(server.InQueuePath + ": " + ErrnoText(errno));
        while (dirent* entry = readdir(dir.get())) {
            const std::string name = entry->d_name;
            if (!IsRequestFileName(name)) continue;
            const std::string path = server.InQueuePath + name;
            struct stat st {};
            if (::lstat(path.c_str(), &st) != 0 || S_ISDIR(st.st_mode)) continue;
            HandleRequest(server, path);
            if (::unlink(path.c_str()) != 0 && errno != ENOENT)
                throw VqError(path + ": " + ErrnoText(errno));
        }
        return true;
    } catch (const std::exception& e) {
        WriteServerLog(server, std::string("Error occurred while checking for requests!\n") + e.what());
        return false;
    }
}

}  // namespace vq
