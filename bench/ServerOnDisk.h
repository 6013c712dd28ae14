#pragma once
// A server with nobody to ask and a clock that stands still, on a queue root of its own in the
// temporary folder, removed with everything in it at the end. For benchmarks and fuzz targets
// that drive the engine over real files.
#include <stdlib.h>

#include <cstdlib>
#include <filesystem>
#include <string>

#include "access/QueueFolders.h"
#include "core/Server.h"
#include "platform/Files.h"
#include "storage/Settings.h"

namespace vq::bench {

class StillClock final : public Clock {
public:
    explicit StillClock(VqDate now = 46000.5) : now_(now) {}
    VqDate Now() override { return now_; }
    void Sleep(int) override {}

private:
    VqDate now_;
};

class SilentOperator final : public Operator {
public:
    void Message(const std::string&, MessageIcon, const std::string&) override {}
    bool AskYesNo(const std::string&, const std::string&, int) override { return true; }
    void Beep() override {}
};

struct ServerOnDisk {
    explicit ServerOnDisk(const std::string& computerName, VqDate now = 46000.5)
        : folder(MakeFolder()),
          root(folder + "queue/"),
          clock(now),
          registry(folder + "registry.db", folder + "autostart"),
          server(clock, op, registry, screen) {
        BuildColumns(server.tables, registry);
        MakeFolders(root);
        SaveRegSetting(registry, "ServerSettings", "ServPath", root);
        server.ServerPath = root;
        server.InQueuePath = root + "$InQ/";
        server.DataPath = root + "$Data/";
        server.ComputerName = computerName;
        CheckQueueFolders(server, root);
    }
    ~ServerOnDisk() {
        std::error_code ignored;
        std::filesystem::remove_all(folder, ignored);
    }
    ServerOnDisk(const ServerOnDisk&) = delete;
    ServerOnDisk& operator=(const ServerOnDisk&) = delete;

    static std::string MakeFolder() {
        std::string pattern = std::filesystem::temp_directory_path().string() + "/vqserver.XXXXXX";
        if (!::mkdtemp(pattern.data())) std::abort();
        return pattern + "/";
    }

    std::string folder, root;
    StillClock clock;
    SilentOperator op;
    Screen screen;
    Registry registry;
    Server server;
};

}  // namespace vq::bench
