#include "access/servertask/BusRows.h"

#include <QDBusMetaType>

namespace vq {

QString BusRow::Cell(const QString& name) const {
    for (const auto& [key, text] : cells)
        if (key == name) return text;
    return {};
}

BusRow ToBusRow(const ConsoleRow& row) {
    BusRow busRow;
    busRow.cells.reserve(static_cast<qsizetype>(row.size()));
    for (const auto& [name, text] : row)
        busRow.cells.append({QString::fromStdString(name), QString::fromStdString(text)});
    return busRow;
}

BusRows ToBusRows(const std::vector<ConsoleRow>& rows) {
    BusRows busRows;
    busRows.reserve(static_cast<qsizetype>(rows.size()));
    for (const ConsoleRow& row : rows) busRows.append(ToBusRow(row));
    return busRows;
}

void RegisterBusRowTypes() {
    qDBusRegisterMetaType<BusRow>();
    qDBusRegisterMetaType<BusRows>();
}

QDBusArgument& operator<<(QDBusArgument& argument, const BusRow& row) {
    argument.beginMap(QMetaType::fromType<QString>(), QMetaType::fromType<QString>());
    for (const auto& [name, text] : row.cells) {
        argument.beginMapEntry();
        argument << name << text;
        argument.endMapEntry();
    }
    argument.endMap();
    return argument;
}

const QDBusArgument& operator>>(const QDBusArgument& argument, BusRow& row) {
    row.cells.clear();
    argument.beginMap();
    while (!argument.atEnd()) {
        QString name, text;
        argument.beginMapEntry();
        argument >> name >> text;
        argument.endMapEntry();
        row.cells.append({name, text});
    }
    argument.endMap();
    return argument;
}

}  // namespace vq
