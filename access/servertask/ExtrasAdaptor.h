#pragma once
// The server's members beyond ServerTask, on the same object: bring the window forward, a
// submission that also answers with the new task's key, and what a console without a window
// needs: the rows of the task and step lists, a task's report, starting and stopping the
// queue, and removing a finished task. A refusal is a D-Bus error named
// com.halvenor.OrvantisServer.Error.<kind> whose text names the key.
#include <QDBusAbstractAdaptor>
#include <QDBusMessage>
#include <QString>
#include <QStringList>
#include <functional>

#include "access/ServerTaskCalls.h"
#include "access/servertask/BusRows.h"

namespace vq {

class ExtrasAdaptor : public QDBusAbstractAdaptor {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "com.halvenor.OrvantisServer.Extras")
    Q_PROPERTY(bool QueueRuns READ QueueRuns)
  public:
    ExtrasAdaptor(QObject* parent, Server& server, std::function<bool()> showWindow);

    // The queue cycle is on.
    bool QueueRuns() const;

  public Q_SLOTS:
    bool ShowWindow();
    // As ServerTask.SubmitTask; TaskKey is the new task's key, empty when no task was added
    // (the file had gone or could not be read).
    bool SubmitTaskAndKey(const QString& InputQFile, QString& TaskKey);
    // The task list; an empty Phase for the whole queue, else Running, Ready, Waiting or
    // Complete.
    vq::BusRows TaskRows(const QString& Phase, const QDBusMessage& message);
    // As TaskRows with only the named cells, in that order: less to send for a short table.
    vq::BusRows TaskRowCells(const QString& Phase, const QStringList& Cells,
                             const QDBusMessage& message);
    // TaskRows as one JSON array of objects, cell names as keys: one text is much quicker to
    // send than a dictionary for every row.
    QString TaskRowsJson(const QString& Phase, const QDBusMessage& message);
    vq::BusRow TaskRow(const QString& TaskKey, const QDBusMessage& message);
    vq::BusRows StepRows(const QString& TaskKey, const QDBusMessage& message);
    QString TaskReport(const QString& TaskKey, const QDBusMessage& message);
    // As the window's Start Queue and Stop Queue.
    void StartQueue();
    void StopQueue();
    // Only a finished task; any other is refused with NotFinished.
    void RemoveTask(const QString& TaskKey, const QDBusMessage& message);

  private:
    ServerTaskCalls calls_;
    Server& server_;
    std::function<bool()> showWindow_;
};

}  // namespace vq
