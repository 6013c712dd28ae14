#include "app/ServerProcess.h"

#include <fcntl.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <QCoreApplication>
#include <QDBusConnection>
#include <csignal>
#include <cstdlib>
#include <fstream>

#include "access/QueueFolders.h"
#include "access/servertask/ExtrasAdaptor.h"
#include "access/servertask/ServerTaskAdaptor.h"
#include "core/Monitor.h"
#include "core/QueueCycle.h"
#include "platform/Files.h"
#include "reports/ServerLog.h"

namespace vq {
namespace {

sigset_t CloseSignals() {
    sigset_t set;
    sigemptyset(&set);
    for (int sig : {SIGTERM, SIGINT, SIGHUP}) sigaddset(&set, sig);
    return set;
}

// What the lock file tells a second server: the process id, then the queue root served.
struct RunningServer {
    std::string pid, root;
};

RunningServer ReadRunningServer(const std::string& lockPath) {
    RunningServer running;
    std::ifstream in(lockPath);
    std::getline(in, running.pid);
    std::getline(in, running.root);
    return running;
}

// Written in place: the lock is held on this very file, which a rename would replace.
void WriteRunningServer(const std::string& lockPath, const std::string& root) {
    UniqueFd fd(::open(lockPath.c_str(), O_WRONLY | O_TRUNC | O_CLOEXEC));
    const std::string text = std::to_string(::getpid()) + "\n" + root + "\n";
    if (!fd.Valid()) return;
    [[maybe_unused]] const ssize_t written = ::write(fd.Get(), text.data(), text.size());
}

}  // namespace

void ServerProcess::HoldCloseSignals() {
    const sigset_t set = CloseSignals();
    pthread_sigmask(SIG_BLOCK, &set, nullptr);
}

ServerProcess::ServerProcess(Operator* windowOperator) {
    registry_ = std::make_unique<Registry>(Registry::DefaultDatabasePath(),
                                           Registry::DefaultAutostartDir());
    server_ = std::make_unique<Server>(clock_, windowOperator ? *windowOperator : headless_,
                                       *registry_, static_cast<Screen&>(*this));
    // A headless message goes to the log as well, unless the engine logged that text already.
    headless_.SetLogSink([this](const std::string& text) {
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
    lock_ =
        std::make_unique<InstanceLock>(path.substr(0, path.find_last_of('/') + 1) + "server.lock");
    const InstanceLock::Result result = lock_->TryAcquire();
    if (result == InstanceLock::Result::Acquired) WriteRunningServer(lock_->Path(), "");
    if (result != InstanceLock::Result::HeldByAnother) return false;

    const RunningServer running = ReadRunningServer(lock_->Path());
    const bool asked = InstanceBus::AskRunningServerToShow();
    std::string text = kAppTitle + " already runs for this user (process " + running.pid +
                       ", queue " + (running.root.empty() ? "not settled yet" : running.root) + ")";
    text += asked ? "; it was asked to come forward." : "; it did not answer on the session bus.";
    if (!request_.queueRoot.empty() && NormalQueueRoot(request_.queueRoot) != running.root)
        text += " The queue " + NormalQueueRoot(request_.queueRoot) + " given here is not served.";
    std::fprintf(stderr, "%s\n", text.c_str());
    return true;
}

int ServerProcess::Start(const StartRequest& request) {
    request_ = request;
    QCoreApplication::setApplicationName(QString::fromStdString(kAppTitle));
    switch (ProcessStart(*server_, request, *this)) {
        case StartResult::EndQuietly:
            return 0;
        case StartResult::EndFailed:
            return 1;
        case StartResult::Serve:
            break;
    }
    WriteRunningServer(lock_->Path(), server_->ServerPath);
    // Owned by bus_, which the server outlives.
    new ServerTaskAdaptor(&bus_, *server_);
    new ExtrasAdaptor(&bus_, *server_, [this] { return bus_.ShowWindow(); });
    if (!QDBusConnection::sessionBus().isConnected())
        WriteServerLog(*server_, "No session bus was found: clients can't reach this server.");
    else if (!bus_.Register())
        WriteServerLog(*server_, "The server could not take its name on the session bus: clients can't reach it.");
    TakeCloseSignals();
    ::signal(SIGPIPE, SIG_IGN);

    const int interval = TickInterval();
    timer1_.setInterval(interval);
    timer3_.setInterval(interval);
    QueueSwitched(server_->QueueStarted);
    timer3_.start();
    TellWhereAndHow();
    return -1;
}

// The signals held since main began reach the closing path through the event loop, also one
// that arrived during start-up.
void ServerProcess::TakeCloseSignals() {
    const sigset_t set = CloseSignals();
    signalFd_ = UniqueFd(::signalfd(-1, &set, SFD_CLOEXEC | SFD_NONBLOCK));
    if (!signalFd_.Valid()) {
        std::fprintf(stderr, "vqserv: no signal descriptor (%s): stop the server with SIGKILL\n",
                     ErrnoText(errno).c_str());
        return;
    }
    signalNotifier_ = std::make_unique<QSocketNotifier>(signalFd_.Get(), QSocketNotifier::Read);
    connect(signalNotifier_.get(), &QSocketNotifier::activated, this, &ServerProcess::OnSignal);
}

void ServerProcess::TellWhereAndHow() const {
    const std::string vqctl = server_->ProgramFolder + "vqctl";
    std::fprintf(stderr,
                 "%s serves the queue in %s (process %d, server log %sSrvLog.txt).\n"
                 "Stop it with Ctrl-C here or with: kill %d\n"
                 "From another terminal, try:\n"
                 "  %s add -- echo hello     # hand in a task; prints its key\n"
                 "  %s status                # the queue\n"
                 "  %s config list ServerSettings\n",
                 MainWindowTitle().c_str(), server_->ServerPath.c_str(),
                 static_cast<int>(::getpid()), server_->DataPath.c_str(),
                 static_cast<int>(::getpid()), vqctl.c_str(), vqctl.c_str(), vqctl.c_str());
}

void ServerProcess::SetWindow(Screen* screen, std::function<void()> closeBySystem,
                              std::function<void()> bringForward) {
    window_.SetTarget(screen);
    closeBySystem_ = std::move(closeBySystem);
    bus_.SetBringForward(std::move(bringForward));
}

void ServerProcess::QueueSwitched(bool started) {
    if (started)
        timer1_.start();
    else
        timer1_.stop();
    window_.QueueSwitched(started);
}

void ServerProcess::OnTimer1() { Timer1_Timer(*server_); }

void ServerProcess::OnTimer3() { Timer3_Timer(*server_); }

void ServerProcess::OnSignal() {
    signalfd_siginfo info;
    while (::read(signalFd_.Get(), &info, sizeof info) == static_cast<ssize_t>(sizeof info)) {
    }
    // With a window, its own closing path runs, the question answering itself after 3 s.
    if (closeBySystem_)
        closeBySystem_();
    else if (CloseServer(*server_, true))
        QCoreApplication::quit();
}

}  // namespace vq
