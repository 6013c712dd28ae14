#include "app/ServerProcess.h"

#include <sys/socket.h>
#include <unistd.h>

#include <QCoreApplication>
#include <QDBusConnection>
#include <csignal>
#include <cstdlib>

#include "access/servertask/ExtrasAdaptor.h"
#include "access/servertask/ServerTaskAdaptor.h"
#include "core/Monitor.h"
#include "core/QueueCycle.h"
#include "reports/ServerLog.h"

namespace vq {
namespace {

int g_signalFds[2] = {-1, -1};

void OnPosixSignal(int) {
    const char byte = 1;
    [[maybe_unused]] ssize_t n = ::write(g_signalFds[1], &byte, 1);
}

}  // namespace

ServerProcess::ServerProcess() {
    registry_ = std::make_unique<Registry>(Registry::DefaultDatabasePath(), Registry::DefaultAutostartDir());
    server_ = std::make_unique<Server>(clock_, operator_, *registry_, static_cast<Screen&>(*this));
    // A headless message goes to the log as well, unless the engine logged that text already.
    operator_.SetLogSink([this](const std::string& text) {
        if (text.find(server_->LastLogText) == std::string::npos || server_->LastLogText.empty())
            WriteServerLog(*server_, text);
    });
    connect(&timer1_, &QTimer::timeout, this, &ServerProcess::OnTimer1);
    connect(&timer3_, &QTimer::timeout, this, &ServerProcess::OnTimer3);
}

ServerProcess::~ServerProcess() = default;

int ServerProcess::TickInterval() {
    const char* value = std::getenv("VQS_TICK_MS");
    const int ms = value ? std::atoi(value) : 0;
    return ms > 0 ? ms : 2000;
}

bool ServerProcess::AnotherServerRuns() {
    const std::string path = registry_->DatabasePath();
    lock_ = std::make_unique<InstanceLock>(path.substr(0, path.find_last_of('/') + 1) + "server.lock");
    if (lock_->TryAcquire() != InstanceLock::Result::HeldByAnother) return false;
    InstanceBus::AskRunningServerToShow();
    return true;
}

int ServerProcess::Start(const StartRequest& request) {
    QCoreApplication::setApplicationName(QString::fromStdString(kAppTitle));
    switch (ProcessStart(*server_, request, *this)) {
        case StartResult::EndQuietly: return 0;
        case StartResult::EndFailed: return 1;
        case StartResult::Serve: break;
    }
    // Owned by bus_, which the server outlives.
    new ServerTaskAdaptor(&bus_, *server_);
    new ExtrasAdaptor(&bus_, *server_, [this] { return bus_.ShowWindow(); });
    if (!QDBusConnection::sessionBus().isConnected())
        WriteServerLog(*server_, "No session bus was found: clients can't reach this server.");
    else if (!bus_.Register())
        WriteServerLog(*server_, "The server could not take its name on the session bus: clients can't reach it.");

    // The closing path runs on the event loop when a signal arrives.
    if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, g_signalFds) == 0) {
        signalNotifier_ = std::make_unique<QSocketNotifier>(g_signalFds[0], QSocketNotifier::Read);
        connect(signalNotifier_.get(), &QSocketNotifier::activated, this, &ServerProcess::OnSignal);
        struct sigaction action {};
        action.sa_handler = OnPosixSignal;
        sigemptyset(&action.sa_mask);
        action.sa_flags = SA_RESTART;
        for (int sig : {SIGTERM, SIGINT, SIGHUP}) sigaction(sig, &action, nullptr);
    }
    ::signal(SIGPIPE, SIG_IGN);

    const int interval = TickInterval();
    timer1_.setInterval(interval);
    timer3_.setInterval(interval);
    QueueSwitched(server_->QueueStarted);
    timer3_.start();
    std::fprintf(stderr, "%s serving the queue %s\n", MainWindowTitle().c_str(), server_->ServerPath.c_str());
    return -1;
}

void ServerProcess::QueueSwitched(bool started) {
    if (started)
        timer1_.start();
    else
        timer1_.stop();
}

void ServerProcess::OnTimer1() { Timer1_Timer(*server_); }

void ServerProcess::OnTimer3() { Timer3_Timer(*server_); }

void ServerProcess::OnSignal() {
    char byte;
    [[maybe_unused]] ssize_t n = ::read(g_signalFds[0], &byte, 1);
    if (CloseServer(*server_, true)) QCoreApplication::quit();
}

}  // namespace vq
