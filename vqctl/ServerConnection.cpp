#include "vqctl/ServerConnection.h"

#include <fcntl.h>
#include <unistd.h>

#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QDBusVariant>
#include <cerrno>
#include <cstdio>

#include "access/ConsoleQueries.h"
#include "access/servertask/BusNames.h"
#include "access/servertask/BusRows.h"
#include "calendar/Common.h"
#include "platform/Files.h"

namespace vqctl {
namespace {

constexpr const char* kNoServer =
    "no server is running for this user: start it with 'vqserv --headless' "
    "(or 'bash scripts/start.sh' in the source folder), then try again";

// The exit code of one of the server's refusals, 0 for another error.
int RefusalExitCode(const QString& errorName) {
    const QString prefix = QString::fromLatin1(vq::kErrorPrefix);
    if (!errorName.startsWith(prefix)) return 0;
    const std::string kind = errorName.mid(prefix.size()).toStdString();
    return kind == vq::kNoSuchTask || kind == vq::kNoSuchPhase || kind == vq::kNoSuchCell ? 2 : 1;
}

// Copies `source` into $InQ under a name of its own; the name.
std::string CopyIntoInputFolder(const std::string& command, const std::string& inQueue,
                                const std::string& source) {
    std::string content;
    if (!vq::ReadWholeFile(source, content)) Fail(command, 1, source + ": " + vq::ErrnoText(errno));
    std::string stem = source.substr(source.find_last_of('/') + 1);
    if (stem.size() > 4 && stem.compare(stem.size() - 4, 4, ".vqf") == 0)
        stem.resize(stem.size() - 4);
    std::string path = inQueue + stem + "-XXXXXX.vqf";
    const int fd = ::mkstemps(path.data(), 4);
    if (fd < 0) Fail(command, 1, "cannot write into " + inQueue + ": " + vq::ErrnoText(errno));
    const bool written =
        ::write(fd, content.data(), content.size()) == static_cast<ssize_t>(content.size());
    ::close(fd);
    if (!written) {
        ::unlink(path.c_str());
        Fail(command, 1, "cannot write " + path);
    }
    return path.substr(inQueue.size());
}

}  // namespace

QString ToQString(const std::string& text) { return QString::fromStdString(text); }

void Fail(const std::string& command, int exitCode, const std::string& message) {
    std::fprintf(stderr, "vqctl %s: %s\n", command.c_str(), message.c_str());
    throw Refusal{exitCode};
}

int Guarded(const std::function<int()>& body) {
    try {
        return body();
    } catch (const Refusal& refusal) {
        return refusal.exitCode;
    }
}

ServerConnection::ServerConnection(std::string command) : command_(std::move(command)) {
    if (!QCoreApplication::instance()) app_ = std::make_unique<QCoreApplication>(argc_, argv_);
    vq::RegisterBusRowTypes();
    QDBusConnection bus = QDBusConnection::sessionBus();
    if (!bus.isConnected())
        Fail(command_, 2, std::string(kNoServer) + " (no session bus was found)");
    if (!bus.interface()->isServiceRegistered(ToQString(vq::servertask::kBusName)).value())
        Fail(command_, 2, kNoServer);
}

QVariant ServerConnection::Call(const char* interface, const char* member,
                                const QVariantList& args) {
    QDBusMessage call = QDBusMessage::createMethodCall(ToQString(vq::servertask::kBusName),
                                                       ToQString(vq::servertask::kObjectPath),
                                                       ToQString(interface), ToQString(member));
    call.setArguments(args);
    // A submission may wait for the writer of its file; a tick may be running.
    const QDBusMessage reply = QDBusConnection::sessionBus().call(call, QDBus::Block, 60000);
    if (reply.type() == QDBusMessage::ErrorMessage) {
        if (const int exitCode = RefusalExitCode(reply.errorName()))
            Fail(command_, exitCode, reply.errorMessage().toStdString());
        Fail(command_, 2, "the server did not answer: " + reply.errorMessage().toStdString());
    }
    if (reply.type() != QDBusMessage::ReplyMessage) Fail(command_, 2, "the server did not answer");
    answer_ = reply.arguments();
    return answer_.isEmpty() ? QVariant() : answer_.front();
}

QVariant ServerConnection::Call(const char* member, const QVariantList& args) {
    return Call(vq::servertask::kInterface, member, args);
}

QVariant ServerConnection::Property(const char* interface, const char* name) {
    return Call("org.freedesktop.DBus.Properties", "Get", {ToQString(interface), ToQString(name)})
        .value<QDBusVariant>()
        .variant();
}

QVariant ServerConnection::Property(const char* name) {
    return Property(vq::servertask::kInterface, name);
}

std::string ServerConnection::QueueRoot() {
    return vq::WithBackslash(Property("QueueLocation").toString().toStdString());
}

int SubmitFile(ServerConnection& server, const std::string& file) {
    const std::string& command = server.Command();
    const std::string root = server.QueueRoot();
    const std::string name = CopyIntoInputFolder(command, root + "$InQ/", file);
    const bool accepted =
        server.Call(kExtrasInterface, "SubmitTaskAndKey", {ToQString(name)}).toBool();
    const std::string key =
        server.Answer().size() > 1 ? server.Answer()[1].toString().toStdString() : "";
    const std::string log = root + "$Data/SrvLog.txt";
    if (!accepted) Fail(command, 1, "the server refused the task; its log says why: " + log);
    if (key.empty())
        Fail(command, 1, "the server took no task from " + file + "; its log says why: " + log);
    std::printf("%s\n", key.c_str());
    return 0;
}

}  // namespace vqctl
