#pragma once
// The server process around the engine: the two timers, the closing path on SIGTERM, SIGINT
// and SIGHUP, one server per user, and the seams of a server with or without a window.
#include <QObject>
#include <QSocketNotifier>
#include <QTimer>
#include <functional>
#include <memory>

#include "app/InstanceBus.h"
#include "core/Server.h"
#include "core/Startup.h"
#include "platform/HeadlessOperator.h"
#include "platform/InstanceLock.h"

namespace vq {

class ServerProcess : public QObject, private Screen, private InstanceGuard {
    Q_OBJECT
public:
    // Without an operator of the window's, messages and questions go to the log and stderr.
    explicit ServerProcess(Operator* windowOperator = nullptr);
    ~ServerProcess() override;
    // Blocks SIGTERM, SIGINT and SIGHUP in this thread and every thread started after it;
    // they are taken from a signalfd once the event loop runs. First thing in main.
    static void HoldCloseSignals();
    // Runs the start; the exit code when the process must end at once, else -1.
    int Start(const StartRequest& request);
    Server& GetServer() { return *server_; }
    // The window, once made: it hears what the engine asks of the screen, a close signal
    // closes it as the system's close, and a second server brings it forward.
    void SetWindow(Screen* screen, std::function<void()> closeBySystem,
                   std::function<void()> bringForward);

private:
    void LoadTree() override { window_.LoadTree(); }
    void SaveColumnWidths() override { window_.SaveColumnWidths(); }
    void QueueSwitched(bool started) override;
    bool AnotherServerRuns() override;

    void OnTimer1();
    void OnTimer3();
    void OnSignal();
    void TakeCloseSignals();
    void TellWhereAndHow() const;
    static int TickInterval();

    SystemClock clock_;
    HeadlessOperator headless_;
    ScreenRelay window_;
    std::function<void()> closeBySystem_;
    std::unique_ptr<Registry> registry_;
    std::unique_ptr<Server> server_;
    std::unique_ptr<InstanceLock> lock_;
    StartRequest request_;
    UniqueFd signalFd_;
    InstanceBus bus_;
    QTimer timer1_;
    QTimer timer3_;
    std::unique_ptr<QSocketNotifier> signalNotifier_;
};

}  // namespace vq
