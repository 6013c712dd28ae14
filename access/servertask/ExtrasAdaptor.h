#pragma once
// The server's members beyond ServerTask, on the same object: bring the window forward, and a
// submission that also answers with the new task's key.
#include <QDBusAbstractAdaptor>
#include <QString>
#include <functional>

#include "access/ServerTaskCalls.h"

namespace vq {

class ExtrasAdaptor : public QDBusAbstractAdaptor {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "com.halvenor.OrvantisServer.Extras")
public:
    ExtrasAdaptor(QObject* parent, Server& server, std::function<bool()> showWindow);

public Q_SLOTS:
    bool ShowWindow();
    // As ServerTask.SubmitTask; TaskKey is the new task's key, empty when no task was added
    // (the file had gone or could not be read).
    bool SubmitTaskAndKey(const QString& InputQFile, QString& TaskKey);

private:
    ServerTaskCalls calls_;
    std::function<bool()> showWindow_;
};

}  // namespace vq
