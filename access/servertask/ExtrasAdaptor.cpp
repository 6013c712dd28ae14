#include "access/servertask/ExtrasAdaptor.h"

#include <QDBusConnection>
#include <exception>
#include <nlohmann/json.hpp>
#include <type_traits>
#include <utility>

#include "core/QueueCycle.h"
#include "core/Server.h"

namespace vq {
namespace {

void Refuse(const QDBusMessage& message, const std::string& kind, const char* text) {
    message.setDelayedReply(true);
    QDBusConnection::sessionBus().send(message.createErrorReply(
        QString::fromLatin1(kErrorPrefix) + QString::fromStdString(kind), QString::fromUtf8(text)));
}

// The answer of `body`, or an error reply for a refusal or a failure; never an exception
// into the bus.
template <typename Body>
auto Answer(const QDBusMessage& message, Body body) -> decltype(body()) {
    try {
        return body();
    } catch (const ConsoleRefusal& refusal) {
        Refuse(message, refusal.Kind(), refusal.what());
    } catch (const std::exception& failure) {
        Refuse(message, "Failed", failure.what());
    }
    if constexpr (!std::is_void_v<decltype(body())>) return {};
}

}  // namespace

ExtrasAdaptor::ExtrasAdaptor(QObject* parent, Server& server, std::function<bool()> showWindow)
    : QDBusAbstractAdaptor(parent),
      calls_(server),
      server_(server),
      showWindow_(std::move(showWindow)) {
    RegisterBusRowTypes();
}

bool ExtrasAdaptor::QueueRuns() const { return server_.QueueStarted; }

bool ExtrasAdaptor::ShowWindow() { return showWindow_ ? showWindow_() : true; }

bool ExtrasAdaptor::SubmitTaskAndKey(const QString& InputQFile, QString& TaskKey) {
    std::string key;
    const bool result = calls_.SubmitTask(InputQFile.toStdString(), &key);
    TaskKey = QString::fromStdString(key);
    return result;
}

BusRows ExtrasAdaptor::TaskRows(const QString& Phase, const QDBusMessage& message) {
    return Answer(message, [&] { return ToBusRows(vq::TaskRows(server_, Phase.toStdString())); });
}

BusRows ExtrasAdaptor::TaskRowCells(const QString& Phase, const QStringList& Cells,
                                    const QDBusMessage& message) {
    return Answer(message, [&] {
        std::vector<std::string> names;
        for (const QString& name : Cells) names.push_back(name.toStdString());
        return ToBusRows(vq::TaskRows(server_, Phase.toStdString(), names));
    });
}

QString ExtrasAdaptor::TaskRowsJson(const QString& Phase, const QDBusMessage& message) {
    return Answer(message, [&] {
        nlohmann::ordered_json rows = nlohmann::ordered_json::array();
        for (const ConsoleRow& row : vq::TaskRows(server_, Phase.toStdString())) {
            nlohmann::ordered_json object = nlohmann::ordered_json::object();
            for (const auto& [name, text] : row) object.emplace(name, text);
            rows.push_back(std::move(object));
        }
        // Cells are 8-bit text as the tables hold them; what is no UTF-8 is replaced.
        return QString::fromStdString(
            rows.dump(2, ' ', false, nlohmann::ordered_json::error_handler_t::replace));
    });
}

BusRow ExtrasAdaptor::TaskRow(const QString& TaskKey, const QDBusMessage& message) {
    return Answer(message, [&] { return ToBusRow(vq::TaskRow(server_, TaskKey.toStdString())); });
}

BusRows ExtrasAdaptor::StepRows(const QString& TaskKey, const QDBusMessage& message) {
    return Answer(message, [&] { return ToBusRows(vq::StepRows(server_, TaskKey.toStdString())); });
}

QString ExtrasAdaptor::TaskReport(const QString& TaskKey, const QDBusMessage& message) {
    return Answer(message, [&] {
        // The report is 8-bit text as the server wrote it; the bus wants UTF-8.
        const std::string text = TaskReportText(server_, TaskKey.toStdString());
        return QString::fromLocal8Bit(text.data(), static_cast<qsizetype>(text.size()));
    });
}

void ExtrasAdaptor::StartQueue() { QSS(server_, true); }

void ExtrasAdaptor::StopQueue() { QSS(server_, false); }

void ExtrasAdaptor::RemoveTask(const QString& TaskKey, const QDBusMessage& message) {
    Answer(message, [&] { RemoveFinishedTask(server_, TaskKey.toStdString()); });
}

}  // namespace vq
