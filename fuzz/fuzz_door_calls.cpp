// The members of ServerTask that take names, fed any text: SubmitTask with a fuzzed file name
// and with a fuzzed task file, MkZkDir with fuzzed arguments, RaiseChkIfReq with a fuzzed
// request file name. The first byte chooses the member; "@ROOT@" in the text stands for the
// queue root, so that the fuzzer can reach paths inside it. Nothing may crash, and nothing
// outside $InQ may be deleted, nor anything made outside the queue root.
#include <sys/stat.h>
#include <unistd.h>

#include <climits>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include "access/ServerTaskCalls.h"
#include "bench/ServerOnDisk.h"
#include "platform/Files.h"
#include "storage/QueueDatabase.h"

namespace {

using namespace vq;

struct Door : bench::ServerOnDisk {
    Door() : ServerOnDisk("FUZZ"), calls(server) {
        AppendToFile(folder + "outside.urf", "keep");
        AppendToFile(root + "inside.urf", "keep");
        realRoot = std::filesystem::canonical(root).string() + "/";
    }

    // What a run left behind goes, so that the tables and the disk don't grow without end.
    void Reset() {
        server.tables.TaskTable.ClearRows();
        server.tables.StepTable.ClearRows();
        std::error_code ignored;
        for (const auto& entry : std::filesystem::directory_iterator(root, ignored)) {
            const std::string name = entry.path().filename().string();
            if (name != "$InQ" && name != "$JobQ" && name != "$JobR" && name != "$Data" && name != "Orvantis.ctf" &&
                name != "inside.urf")
                std::filesystem::remove_all(entry.path(), ignored);
        }
        std::filesystem::remove(server.DataPath + "SrvLog.txt", ignored);
        std::filesystem::remove(server.DataPath + kJournalFile, ignored);
    }

    // Every sentinel is still there: nothing outside $InQ was deleted.
    void CheckSentinels() const {
        if (!PathExists(folder + "outside.urf") || !PathExists(root + "inside.urf")) std::abort();
    }

    // A folder that MkZkDir reported as made lies under the queue root.
    void CheckMadeInside(const std::string& path) const {
        char resolved[PATH_MAX];
        if (!::realpath(path.c_str(), resolved)) return;
        const std::string real = std::string(resolved) + "/";
        if (real.compare(0, realRoot.size(), realRoot) != 0) std::abort();
    }

    std::string realRoot;
    ServerTaskCalls calls;
};

std::string WithRoot(std::string text, const std::string& root) {
    const std::string token = "@ROOT@";
    for (size_t at = text.find(token); at != std::string::npos; at = text.find(token, at + root.size()))
        text.replace(at, token.size(), root);
    return text;
}

std::vector<std::string> Fields(const std::string& text, size_t count) {
    std::vector<std::string> fields(count);
    size_t begin = 0;
    for (size_t i = 0; i < count && begin <= text.size(); ++i) {
        const size_t end = i + 1 == count ? text.size() : std::min(text.find('\n', begin), text.size());
        fields[i] = text.substr(begin, end - begin);
        begin = end + 1;
    }
    return fields;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static Door door;
    if (size == 0) return 0;
    const std::string text = WithRoot(std::string(reinterpret_cast<const char*>(data) + 1, size - 1), door.root);
    switch (data[0] % 4) {
        case 0:
            AppendToFile(door.server.InQueuePath + "x.vqf", "not a task file");
            door.calls.SubmitTask(text);
            break;
        case 1: {
            WriteFileAtomic(door.server.InQueuePath + "in.vqf", text);
            std::string key;
            door.calls.SubmitTask("in.vqf", &key);
            if (PathExists(door.server.InQueuePath + "in.vqf")) std::abort();  // always deleted
            break;
        }
        case 2: {
            const std::vector<std::string> f = Fields(text, 4);
            if (door.calls.MkZkDir(f[0], f[1], f[2], f[3])) door.CheckMadeInside(f[2]);
            break;
        }
        default:
            AppendToFile(door.server.InQueuePath + "a.urf", "request");
            door.calls.RaiseChkIfReq(text);
            break;
    }
    door.CheckSentinels();
    door.Reset();
    return 0;
}
