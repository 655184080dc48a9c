// SPDX-License-Identifier: MIT
// How a value from an editor gets into a cell.
#include "base/exception.h"
#include "model/tablemodel_p.h"
#include "table/recordstrans.h"
#include "table/recordupdater.h"

#include <cmath>

namespace {

/// Runs `action`; null, or what it throws as text.
template <typename Action>
QString failureOf(Action action)
{
    try {
        action();
        return QString();
    } catch (const Exception& e) {
        return e.message();
    } catch (const QString& text) {
        return text.isEmpty() ? QStringLiteral("unknown error") : text;
    } catch (const char* text) {
        return QString::fromUtf8(text);
    } catch (const std::exception& e) {
        return QString::fromUtf8(e.what());
    } catch (...) {
        return QStringLiteral("unknown error");
    }
}

// Throw a QString for what Field would cut, clamp or unset in silence.
void assignText(FieldValue& cell, const QString& text)
{
    const TableColumnDef& def = *cell.columnDef();
    if (def.type == FieldType::VarChar && text.size() > def.length)
        throw QStringLiteral("it is longer than %1 characters").arg(def.length);
    if (text.contains(QChar(0)))
        throw QStringLiteral("it has a zero character");
    if (def.type == FieldType::DateTime) {
        bool isRead = false;
        const datetime value = datetime::fromString(QStringRef(&text), &isRead);
        if (!isRead)
            throw QStringLiteral("it must have the form %1").arg(datetime::defaultFormat);
        cell = value;
        return;
    }
    cell.fromText(text);
}

void assignDouble(FieldValue& cell, double value)
{
    const FieldType::Type type = cell.columnDef()->type;
    if (type == FieldType::Integer || type == FieldType::Integer64) {
        if (value != std::floor(value) || std::fabs(value) > 9007199254740992.0)
            throw QStringLiteral("it is not a whole number");
        assignText(cell, QString::number(static_cast<qint64>(value)));
    } else if (type == FieldType::VarChar || type == FieldType::DateTime) {
        assignText(cell, QString::number(value, 'g', 17));
    } else {
        if (type != FieldType::Double && !std::isfinite(value))
            throw QStringLiteral("it is not a finite number");
        cell = value;
    }
}

void assign(FieldValue& cell, const QVariant& value)
{
    const FieldType::Type type = cell.columnDef()->type;
    const bool isExact = type == FieldType::Decimal || type == FieldType::XDecimal;
    if (value.userType() == QMetaType::Double || value.userType() == QMetaType::Float)
        assignDouble(cell, value.toDouble());
    else if (value.userType() == qMetaTypeId<decimal>() && isExact)
        cell = value.value<decimal>();
    else if (value.userType() == qMetaTypeId<decimal>())
        assignText(cell, value.value<decimal>().toString());
    else if (value.userType() == qMetaTypeId<xdecimal>() && isExact)
        cell = value.value<xdecimal>();
    else if (value.userType() == qMetaTypeId<xdecimal>())
        assignText(cell, value.value<xdecimal>().toString());
    else if (value.userType() == qMetaTypeId<datetime>())
        assignText(cell, value.value<datetime>().toString());
    else if (value.userType() == QMetaType::QDateTime)
        assignText(cell, datetime::fromQDateTime(value.toDateTime()).toString());
    else if (value.userType() == QMetaType::Bool)
        assignText(cell, QString::number(int(value.toBool())));
    else if (value.canConvert<QString>())
        assignText(cell, value.toString());
    else
        throw QStringLiteral("values of the type %1 are not known")
            .arg(QString::fromLatin1(value.typeName()));
}

bool isEmptyValue(const QVariant& value)
{
    return !value.isValid() ||
           (value.userType() == QMetaType::QString && value.toString().isEmpty());
}

} // namespace

QString TableModelPrivate::write(const Record& record, int column, const QVariant& value)
{
    const TableLockScope lock(table);
    if (!table || !record.inTable())
        return QStringLiteral("The row is not in the table any more.");
    const TableColumnDef& def = *table->columnDef(column);
    FieldValue cell(&def);
    if (!isEmptyValue(value)) {
        const QString reason = failureOf([&] { assign(cell, value); });
        if (!reason.isNull())
            return QStringLiteral("'%1' is no value for the column '%2' (%3): %4")
                .arg(value.toString(), def.name,
                     FieldType::typeNameWithLength(def.type, def.length), reason);
    }
    if (cell.isNull() && !def.nullable)
        return QStringLiteral("The column '%1' must hold a value.").arg(def.name);
    const QString failure = failureOf([&] {
        RecordsTrans changes(table);
        RecordUpdater row(changes, record);
        row.data(column) = cell;
        row.commit();
        changes.execute();
    });
    listener.frozen.release(record); // who has typed a value sees it
    return failure.isNull() ? failure
                            : QStringLiteral("An index of the table failed: %1").arg(failure);
}
