#pragma once
// A console row on the bus: a{ss}, cell name to text, keeping the order of the columns (a
// QMap would sort the names). Server and clients register the types before the first call.
#include <QDBusArgument>
#include <QList>
#include <QMetaType>
#include <QPair>
#include <QString>

#include "access/ConsoleQueries.h"

namespace vq {

struct BusRow {
    QList<QPair<QString, QString>> cells;
    // The text of a cell, empty when the row has none of that name.
    QString Cell(const QString& name) const;
};
using BusRows = QList<BusRow>;

BusRow ToBusRow(const ConsoleRow& row);
BusRows ToBusRows(const std::vector<ConsoleRow>& rows);
void RegisterBusRowTypes();

QDBusArgument& operator<<(QDBusArgument& argument, const BusRow& row);
const QDBusArgument& operator>>(const QDBusArgument& argument, BusRow& row);

// The error names of the server's refusals: the domain and the kind of ConsoleRefusal.
inline constexpr const char* kErrorPrefix = "com.halvenor.OrvantisServer.Error.";

}  // namespace vq

Q_DECLARE_METATYPE(vq::BusRow)
Q_DECLARE_METATYPE(vq::BusRows)
