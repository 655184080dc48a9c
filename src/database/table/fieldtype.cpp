// SPDX-License-Identifier: MIT
#include "table/fieldtype.h"

#include "table/cell_p.h"

#include <cstring>

using namespace LiveTable;

qint64 FieldType::typeLength(Type type, int length)
{
    switch (type) {
    case Integer:
        return 4;
    case Integer64:
    case Double:
    case Decimal:
    case DateTime:
        return 8;
    case VarChar:
        if (length <= 0)
            throw QStringLiteral("Length of string can't be zero");
        return qint64(length) * 2;
    case BoardList:
        return 404;
    case XDecimal:
        return 16;
    case Undefined:
        break;
    }
    throw QStringLiteral("Type is undefined.");
}

bool FieldType::typeHasLength(Type type) noexcept
{
    return type == Decimal || type == VarChar || type == XDecimal;
}

const char* FieldType::typeName(Type type) noexcept
{
    switch (type) {
    case Integer:
        return "Integer";
    case Integer64:
        return "Integer64";
    case Double:
        return "Double";
    case Decimal:
        return "Decimal";
    case VarChar:
        return "VarChar";
    case DateTime:
        return "DateTime";
    case BoardList:
        return "BoardList";
    case XDecimal:
        return "XDecimal";
    case Undefined:
        break;
    }
    return "Undefined";
}

QString FieldType::typeNameWithLength(Type type, int length)
{
    const QString name = QLatin1String(typeName(type));
    return typeHasLength(type) ? name + QStringLiteral("[%1]").arg(length) : name;
}

QString FieldType::getString(const unsigned char* cell, int length)
{
    const int size = textLength(cell, length);
    QString text(size, Qt::Uninitialized);
    if (size > 0)
        std::memcpy(text.data(), cell, size_t(size) * sizeof(QChar));
    return text;
}

StaticString FieldType::getStaticString(unsigned char* cell, int length) noexcept
{
    return StaticString(cell, textLength(cell, length));
}

void FieldType::setString(unsigned char* cell, int length, const QString& text) noexcept
{
    setString(cell, length, reinterpret_cast<const unsigned short*>(text.constData()), text.size());
}

void FieldType::setString(unsigned char* cell, int length, const QStringRef& text) noexcept
{
    setString(cell, length, reinterpret_cast<const unsigned short*>(text.unicode()), text.size());
}

void FieldType::setString(unsigned char* cell, int length, const unsigned short* text,
                          int textLength) noexcept
{
    const int kept = qBound(0, textLength, qMax(length, 0));
    if (kept > 0)
        std::memmove(cell, text, size_t(kept) * 2); // the text may lie in this very cell
    if (kept < length)
        std::memset(cell + size_t(kept) * 2, 0, size_t(length - kept) * 2);
}
