#pragma once
// ServerTask on the session bus: the twelve members, in their order, each handed to the
// engine's ServerTaskCalls. It is an adaptor, so that it shares its object with the server's
// other interface; calls arrive on the main thread, one at a time, between the ticks.
#include <QDBusAbstractAdaptor>
#include <QString>

#include "access/ServerTaskCalls.h"

namespace vq {

class ServerTaskAdaptor : public QDBusAbstractAdaptor {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "com.halvenor.OrvantisServer.ServerTask")
    Q_PROPERTY(qint16 ServerType READ ServerType)
    Q_PROPERTY(QString ServerVersion READ ServerVersion)
    Q_PROPERTY(QString QueueLocation READ QueueLocation)
public:
    // Attaches the interface to `parent`, which is then registered with ExportAdaptors.
    ServerTaskAdaptor(QObject* parent, Server& server);

    qint16 ServerType() const;
    QString ServerVersion() const;
    QString QueueLocation() const;

public Q_SLOTS:
    bool SubmitTask(const QString& InputQFile);
    bool RaiseChkIfReq(const QString& FName);
    bool MkZkDir(const QString& User, const QString& Domain, const QString& Path, const QString& SecurityLevel);
    QString ValidateCredentials(const QString& Username, const QString& Password, const QString& Domain,
                                const QString& CUserID);
    bool CancelTask(const QString& TaskKey);
    bool ResumeTask(const QString& TaskKey);
    bool HoldTask(const QString& TaskKey);
    bool WriteTaskInfo(const QString& InfoKey);
    bool TaskExist(const QString& TaskKey);

private:
    ServerTaskCalls calls_;
};

}  // namespace vq
