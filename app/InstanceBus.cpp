#include "app/InstanceBus.h"

#include <QDBusConnection>
#include <QDBusInterface>
#include <QDBusReply>

namespace vq {

bool InstanceBus::Register() {
    QDBusConnection bus = QDBusConnection::sessionBus();
    if (!bus.isConnected()) return false;
    if (!bus.registerService(QString::fromLatin1(kBusName))) return false;
    // Both interfaces, ServerTask and the extras, are adaptors of this object.
    return bus.registerObject(QString::fromLatin1(kBusPath), this, QDBusConnection::ExportAdaptors);
}

bool InstanceBus::AskRunningServerToShow() {
    QDBusConnection bus = QDBusConnection::sessionBus();
    if (!bus.isConnected()) return false;
    QDBusInterface server(QString::fromLatin1(kBusName), QString::fromLatin1(kBusPath),
                          QString::fromLatin1(kExtrasInterface), bus);
    server.setTimeout(2000);
    QDBusReply<bool> reply = server.call(QStringLiteral("ShowWindow"));
    return reply.isValid();
}

bool InstanceBus::ShowWindow() {
    if (bringForward_) bringForward_();
    return true;
}

}  // namespace vq
