#include "access/servertask/BusRows.h"

#include <QDBusMetaType>

namespace vq {

QString BusRow::Cell(const QString& name) const {
    for (const auto& [key, text] : cells)
        if (key == name) return text;
    return {};
}

namespace {

// Rows name their cells alike, so the names of the first row are converted once and shared.
BusRow ConvertRow(const ConsoleRow& row, const ConsoleRow* first, const BusRow* firstConverted) {
    BusRow busRow;
    busRow.cells.reserve(static_cast<qsizetype>(row.size()));
    for (size_t i = 0; i < row.size(); ++i) {
        const auto& [name, text] = row[i];
        const bool same = first && i < first->size() && (*first)[i].first == name;
        busRow.cells.append({same ? firstConverted->cells[static_cast<qsizetype>(i)].first
                                  : QString::fromStdString(name),
                             QString::fromStdString(text)});
    }
    return busRow;
}

}  // namespace

BusRow ToBusRow(const ConsoleRow& row) { return ConvertRow(row, nullptr, nullptr); }

BusRows ToBusRows(const std::vector<ConsoleRow>& rows) {
    BusRows busRows;
    busRows.reserve(static_cast<qsizetype>(rows.size()));
    for (const ConsoleRow& row : rows)
        busRows.append(busRows.isEmpty() ? ToBusRow(row)
                                         : ConvertRow(row, &rows.front(), &busRows.front()));
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
