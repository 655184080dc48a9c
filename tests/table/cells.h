// SPDX-License-Identifier: MIT
// What the tests of cells share: a cell of each type, and writing with its outcome as a text.
#pragma once

#include "base/exception.h"
#include "table/field.h"

#include <QMetaType>

#include <functional>
#include <limits>

inline constexpr auto infinity = std::numeric_limits<double>::infinity();
inline constexpr auto quietNan = std::numeric_limits<double>::quiet_NaN();

inline const FieldDef columns[] = {{FieldType::Integer, 0},  {FieldType::Integer64, 0},
                                   {FieldType::Double, 0},   {FieldType::Decimal, 2},
                                   {FieldType::VarChar, 12}, {FieldType::DateTime, 0},
                                   {FieldType::XDecimal, 3}, {FieldType::BoardList, 0}};
inline constexpr int columnCount = 8;

inline datetime someDate()
{
    return datetime(QStringLiteral("2017.03.01 10:00:00.250"));
}

inline boardlist someBoards()
{
    boardlist boards;
    boards.append(9, 1);
    boards.append(10, 2);
    return boards;
}

/// A cell of each column with a value in it.
inline FieldValue sample(int column)
{
    FieldValue value(columns[column].type, columns[column].length, true);
    if (value.type() == FieldType::BoardList)
        value = someBoards();
    else if (value.type() == FieldType::DateTime)
        value = someDate();
    else
        value = -3;
    return value;
}

/// What `action` gives as text, or what it throws, behind a letter for the kind of the object.
template <class Action>
QString outcome(const Action& action)
{
    try {
        return action();
    } catch (const Exception& e) {
        return "E:" + e.message();
    } catch (const QString& text) {
        return "Q:" + text;
    } catch (const char* text) {
        return QString("C:") + text;
    }
}

/// What writing into the cell does: its text afterwards, "NULL", or what is thrown.
template <class Action>
QString written(Field field, const Action& write)
{
    return outcome([&] {
        write(field);
        return field.isNull() ? QString("NULL") : field.toString();
    });
}

/// The cell's bytes and its null byte.
inline QByteArray bytesOf(const FieldValue& value)
{
    const auto width = int(value.columnDef()->size + 7) / 8 * 8;
    return QByteArray(reinterpret_cast<const char*>(value.data()), width + 1);
}

using Write = std::function<void(Field&)>;
Q_DECLARE_METATYPE(Write)
using Read = std::function<QString(const Field&)>;
Q_DECLARE_METATYPE(Read)
Q_DECLARE_METATYPE(FieldType::Type)
Q_DECLARE_METATYPE(FieldConstValue)
