#pragma once
// Who may run tasks here, and the request files that clients leave in $InQ.
#include <string>

namespace vq {

struct Server;

inline const std::string kGranted = "Granted";
inline const std::string kOnlyCurrentUser =
    "You Can Run Tasks On Orvantis Personal Server Only As Current User.";
inline const std::string kDenied = "Denied";

// "Granted" for the reserved name of the user who is logged on, the refusal for any other
// account, "Denied" when the check failed inside. A name that carries its domain behind "@"
// is cut to its name part when no domain is given. `password` and `clientUserId` don't count.
std::string ValidateLogon(Server& server, std::string& userName, const std::string& password,
                          const std::string& domain, const std::string& clientUserId);
// The domain part of "name@domain.tld" (up to the first "." behind the "@"), with the name
// part in `namePart`; a text without "@" is its own result and leaves `namePart` alone.
std::string SplitUserName(const std::string& userName, std::string& namePart);
// Handles and deletes every request file (*.urf) of $InQ; false, with a log line, after a
// failure, which stops the scan.
bool CheckRequests(Server& server);
// A request file's name: it ends in ".urf" (any case) and doesn't start with ".".
bool IsRequestFileName(const std::string& name);
// The handling of one request file: nothing to do in this server but its deletion after it.
bool HandleRequest(Server& server, const std::string& path);

}  // namespace vq
