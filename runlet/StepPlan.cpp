#include "runlet/StepPlan.h"

#include <algorithm>
#include <unordered_set>

#include "calendar/Common.h"

namespace vq {
namespace {

std::string TrimLineEnds(std::string_view text) {
    const size_t first = text.find_first_not_of(" \t\r\n");
    if (first == std::string_view::npos) return {};
    const size_t last = text.find_last_not_of(" \t\r\n");
    return std::string(text.substr(first, last - first + 1));
}

}  // namespace

std::string TrimRight(std::string_view text) {
    const size_t last = text.find_last_not_of(' ');
    return last == std::string_view::npos ? std::string() : std::string(text.substr(0, last + 1));
}

std::string FolderOf(std::string_view path) {
    const size_t slash = path.rfind('/');
    if (slash == std::string_view::npos) return {};
    if (slash == 0) return "/";
    return std::string(path.substr(0, slash));
}

std::string ExpandWorkDir(std::string_view workDir, std::string_view taskFolder) {
    if (workDir.empty()) return std::string(taskFolder);
    static constexpr std::string_view kMarker = "%VQS%";
    std::string result;
    size_t at = 0;
    while (at < workDir.size()) {
        if (at + kMarker.size() <= workDir.size() && EqualsNoCase(workDir.substr(at, kMarker.size()), kMarker)) {
            result += taskFolder;
            at += kMarker.size();
        } else {
            result += workDir[at++];
        }
    }
    return result;
}

bool UserAllowed(std::string_view userName, std::string_view login) {
    return EqualsNoCase(userName, "$LOCALUSER$") || (!login.empty() && userName == login);
}

std::string LoginOfUser(std::string_view passwdText, unsigned uid) {
    const std::string wanted = std::to_string(uid);
    size_t at = 0;
    while (at < passwdText.size()) {
        size_t end = passwdText.find('\n', at);
        if (end == std::string_view::npos) end = passwdText.size();
        const std::string_view line = passwdText.substr(at, end - at);
        at = end + 1;
        // name:password:uid:...
        const size_t first = line.find(':');
        const size_t second = first == std::string_view::npos ? first : line.find(':', first + 1);
        const size_t third = second == std::string_view::npos ? second : line.find(':', second + 1);
        if (third == std::string_view::npos || first == 0) continue;
        if (line.substr(second + 1, third - second - 1) == wanted) return std::string(line.substr(0, first));
    }
    return {};
}

std::optional<int> NiceForPriority(int code) {
    static constexpr int kNiceOfClass[] = {19, 10, 0, -5, -10, -15};
    if (code < 0 || code > 59) return std::nullopt;
    return kNiceOfClass[code / 10];
}

void AddEnvironBlock(std::vector<std::string>& environment, std::string_view block,
                     std::vector<std::string>& notes) {
    int lineNumber = 0;
    size_t at = 0;
    while (at < block.size()) {
        size_t end = block.find('\n', at);
        if (end == std::string_view::npos) end = block.size();
        std::string_view line = block.substr(at, end - at);
        at = end + 1;
        ++lineNumber;
        if (!line.empty() && line.back() == '\r') line.remove_suffix(1);
        if (line.empty()) continue;
        const size_t equals = line.find('=');
        if (equals == std::string_view::npos || equals == 0 || line.find('\0') != std::string_view::npos) {
            notes.push_back("Environ line " + std::to_string(lineNumber) + " is not NAME=VALUE and was left out: \"" +
                            std::string(line.substr(0, 80)) + "\"");
            continue;
        }
        environment.emplace_back(line);
    }
}

std::vector<std::string> MergeEnvironment(const std::vector<std::string>& entries) {
    std::unordered_set<std::string_view> seen;
    std::vector<std::string> merged;
    for (auto entry = entries.rbegin(); entry != entries.rend(); ++entry) {
        const std::string_view text = *entry;
        if (seen.insert(text.substr(0, text.find('='))).second) merged.push_back(*entry);
    }
    std::reverse(merged.begin(), merged.end());
    return merged;
}

StepPlan MakeStepPlan(const StepInput& input, const std::vector<std::string>& baseEnvironment,
                      std::string_view login) {
    const StartRecord& start = input.start;
    StepPlan plan;
    const std::string userName = TrimRight(start.UserName);
    if (!UserAllowed(userName, login)) {
        plan.refusal = "The step was not started: user \"" + userName +
                       "\" is neither $LOCALUSER$ nor the server's user \"" + std::string(login) + "\".";
        return plan;
    }
    plan.outputFile = TrimRight(start.OutputFile);
    plan.taskFolder = FolderOf(plan.outputFile);
    plan.workDir = ExpandWorkDir(TrimRight(start.WorkDir), plan.taskFolder);
    if (plan.workDir.empty()) plan.workDir = ".";
    plan.arguments = {"sh", "-c", input.command};

    const std::string fileRc = TrimLineEnds(input.fileRc);
    if (!fileRc.empty()) plan.fileRcPath = fileRc.front() == '/' ? fileRc : plan.workDir + "/" + fileRc;

    plan.nice = NiceForPriority(start.Priority);
    if (!plan.nice)
        plan.notes.push_back("Unknown CPU priority code " + std::to_string(start.Priority) +
                             "; the step runs at the runner's own priority.");

    std::vector<std::string> environment = baseEnvironment;
    AddEnvironBlock(environment, input.environ, plan.notes);
    std::string taskId = TrimRight(start.TaskIdText);
    if (taskId.empty()) taskId = std::to_string(start.TaskId);
    // The task's own variables come last, so that they win.
    environment.insert(environment.end(), {"ORVANTIS_TASK_ID=" + taskId,
                                           "ORVANTIS_TASK_NAME=" + TrimRight(start.TaskName),
                                           "ORVANTIS_STEP=" + std::to_string(start.StepNumber),
                                           "ORVANTIS_TASK_FOLDER=" + plan.taskFolder,
                                           "ORVANTIS_TASK_RC=" + std::to_string(start.TaskRc)});
    plan.environment = MergeEnvironment(environment);
    return plan;
}

std::string PriorityText(int code) {
    if (code < 0 || code > 59) return "code " + std::to_string(code);
    const char digits[] = {static_cast<char>('0' + code / 10), static_cast<char>('0' + code % 10), '\0'};
    return PriorityName(digits);
}

}  // namespace vq
