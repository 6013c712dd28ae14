#include "access/servertask/ExtrasAdaptor.h"

#include <utility>

namespace vq {

ExtrasAdaptor::ExtrasAdaptor(QObject* parent, Server& server, std::function<bool()> showWindow)
    : QDBusAbstractAdaptor(parent), calls_(server), showWindow_(std::move(showWindow)) {}

bool ExtrasAdaptor::ShowWindow() { return showWindow_ ? showWindow_() : true; }

bool ExtrasAdaptor::SubmitTaskAndKey(const QString& InputQFile, QString& TaskKey) {
    std::string key;
    const bool result = calls_.SubmitTask(InputQFile.toStdString(), &key);
    TaskKey = QString::fromStdString(key);
    return result;
}

}  // namespace vq
