#include "access/servertask/ServerTaskAdaptor.h"

namespace vq {
namespace {

std::string Text(const QString& text) { return text.toStdString(); }
QString ToQt(const std::string& text) { return QString::fromStdString(text); }

}  // namespace

ServerTaskAdaptor::ServerTaskAdaptor(QObject* parent, Server& server)
    : QDBusAbstractAdaptor(parent), calls_(server) {}

qint16 ServerTaskAdaptor::ServerType() const { return ServerTaskCalls::ServerType(); }
QString ServerTaskAdaptor::ServerVersion() const { return ToQt(ServerTaskCalls::ServerVersion()); }
QString ServerTaskAdaptor::QueueLocation() const { return ToQt(calls_.QueueLocation()); }

bool ServerTaskAdaptor::SubmitTask(const QString& InputQFile) { return calls_.SubmitTask(Text(InputQFile)); }
bool ServerTaskAdaptor::RaiseChkIfReq(const QString& FName) { return calls_.RaiseChkIfReq(Text(FName)); }

bool ServerTaskAdaptor::MkZkDir(const QString& User, const QString& Domain, const QString& Path,
                                const QString& SecurityLevel) {
    return calls_.MkZkDir(Text(User), Text(Domain), Text(Path), Text(SecurityLevel));
}

QString ServerTaskAdaptor::ValidateCredentials(const QString& Username, const QString& Password,
                                               const QString& Domain, const QString& CUserID) {
    return ToQt(calls_.ValidateCredentials(Text(Username), Text(Password), Text(Domain), Text(CUserID)));
}

bool ServerTaskAdaptor::CancelTask(const QString& TaskKey) { return calls_.CancelTask(Text(TaskKey)); }
bool ServerTaskAdaptor::ResumeTask(const QString& TaskKey) { return calls_.ResumeTask(Text(TaskKey)); }
bool ServerTaskAdaptor::HoldTask(const QString& TaskKey) { return calls_.HoldTask(Text(TaskKey)); }
bool ServerTaskAdaptor::WriteTaskInfo(const QString& InfoKey) { return calls_.WriteTaskInfo(Text(InfoKey)); }
bool ServerTaskAdaptor::TaskExist(const QString& TaskKey) { return calls_.TaskExist(Text(TaskKey)); }

}  // namespace vq
