// SPDX-License-Identifier: MIT
#include "table/cell_p.h"
#include "table/field.h"

#include <cstring>

using namespace LiveTable;

// --- FieldValue ----------------------------------------------------------------------------------

FieldValue::FieldValue() noexcept = default;

FieldValue::FieldValue(FieldType::Type type, int length, bool nullable)
{
    TableColumnDef def;
    def.type = type;
    def.length = length;
    def.nullable = nullable;
    adopt(def, nullptr);
}

FieldValue::FieldValue(const TableColumnDef* def)
{
    init(def);
}

FieldValue::FieldValue(const Field& other)
    : Field()
{
    if (other.type() != FieldType::Undefined)
        adopt(*other.columnDef(), &other);
}

FieldValue::FieldValue(const FieldValue& other)
    : FieldValue(static_cast<const Field&>(other))
{}

FieldValue::~FieldValue() = default;

FieldValue& FieldValue::operator=(const FieldValue& other)
{
    if (this == &other)
        return *this;
    if (other.type() != FieldType::Undefined)
        adopt(*other.columnDef(), &other);
    else
        init(nullptr);
    return *this;
}

void FieldValue::init(const TableColumnDef* def)
{
    if (def)
        adopt(*def, nullptr);
    else
        setView(Field());
}

/// Takes a copy of the definition and, if given, of the value of a cell of that definition. Neither
/// may be this object's own.
void FieldValue::adopt(const TableColumnDef& def, const Field* content)
{
    const qint64 size = FieldType::typeLength(def.type, def.length);
    const auto width = static_cast<size_t>((size + 7) / 8 * 8);
    TableColumnDef ownDef(nullptr, def);
    ownDef.size = size;
    std::unique_ptr<unsigned char[]> heap;
    if (width > inlineWidth)
        heap.reset(new unsigned char[width + 1]);

    // Nothing fails from here on.
    unsigned char* const data = heap ? heap.get() : m_inline;
    std::memset(data, 0, width + 1);
    if (content && !content->isNull()) {
        std::memcpy(data, content->data(), static_cast<size_t>(size));
        data[width] = 1;
    }
    m_ownDef = std::move(ownDef);
    m_heap = std::move(heap);
    setView(Field(&m_ownDef, data, data + width, 1));
}

// --- FieldConstValue -----------------------------------------------------------------------------

template <class T>
FieldConstValue::FieldConstValue(FieldType::Type type, const T& value)
    : FieldValue(type, 0, false)
{
    store(data(), value);
    setPresent();
}

FieldConstValue::FieldConstValue()
    : FieldValue(FieldType::Integer, 0, true)
{}

FieldConstValue::FieldConstValue(const QChar& value)
    : FieldValue(FieldType::VarChar, 1, false)
{
    store(data(), value.unicode());
    setPresent();
}

FieldConstValue::FieldConstValue(const QString& value)
    : FieldValue(FieldType::VarChar, value.size(), false)
{
    FieldType::setString(data(), value.size(), value);
    setPresent();
}

FieldConstValue::FieldConstValue(const char* value)
    : FieldConstValue(QString::fromLatin1(value))
{}

FieldConstValue::FieldConstValue(const int& value)
    : FieldConstValue(FieldType::Integer, qint32(value))
{}

FieldConstValue::FieldConstValue(const long long& value)
    : FieldConstValue(FieldType::Integer64, qint64(value))
{}

FieldConstValue::FieldConstValue(const double& value)
    : FieldConstValue(FieldType::Double, value)
{}

FieldConstValue::FieldConstValue(const decimal& value)
    : FieldConstValue(FieldType::Decimal, value)
{}

FieldConstValue::FieldConstValue(const xdecimal& value)
    : FieldConstValue(FieldType::XDecimal, value)
{}

FieldConstValue::FieldConstValue(const datetime& value)
    : FieldConstValue(FieldType::DateTime, value)
{}

FieldConstValue::FieldConstValue(const FieldConstValue& other) = default;
FieldConstValue::~FieldConstValue() = default;
FieldConstValue& FieldConstValue::operator=(const FieldConstValue& other) = default;

FieldConstValue FieldConstValue::fromValue(const Field& field)
{
    if (field.isNull())
        return FieldConstValue();
    switch (field.type()) {
    case FieldType::Integer:
        return FieldConstValue(field.toInteger());
    case FieldType::Integer64:
        return FieldConstValue(field.toInteger64());
    case FieldType::Double:
        return FieldConstValue(field.toDouble());
    case FieldType::Decimal:
        return FieldConstValue(field.toDecimal());
    case FieldType::VarChar:
        if (field.columnDef()->length == 1)
            return FieldConstValue(field.toChar());
        return FieldConstValue(field.toString());
    case FieldType::DateTime:
        return FieldConstValue(field.toDatetime());
    case FieldType::XDecimal:
        return FieldConstValue(field.toXDecimal());
    default:
        return FieldConstValue();
    }
}
