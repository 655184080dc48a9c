// SPDX-License-Identifier: MIT
#pragma once

#include "base/export.h"
#include "table/fieldtype.h"
#include "table/staticstring.h"
#include "table/tablecolumndef.h"
#include "value/boardlist.h"
#include "value/datetime.h"
#include "value/decimal.h"
#include "value/xdecimal.h"

#include <QChar>
#include <QString>
#include <QStringRef>
#include <QVariant>

#include <memory>
#include <type_traits>

class QDebug;
class Table;

/**
 * A typed view of one cell: reads it as and writes it from any of the value types, converting
 * between the column's type and the caller's.
 *
 * **Lifetime.** Three pointers and a mask into a row; owns nothing. Valid while the row is neither
 * freed nor moved (adding a column moves every row) and the column's definition lives. Copying
 * makes another view of the same cell, but *assigning a Field writes the cell*: take fields by
 * value and never reassign one, nor keep them in a container that does.
 *
 * **Threads.** Plain reads and writes: hold the table's lock, or work on a row that no other thread
 * can reach. Writing a row of a table in place tells no view; see Table for how changes are made.
 *
 * **Errors.** The numeric and date readers throw Exception("Incorrect type conversion."), those of
 * text and characters a bare QString. Writing throws as told below; a write that throws leaves the
 * cell as it was. Errors of decimal (QString) and xdecimal (C strings, QString) pass through.
 *
 * **Cost.** Nanoseconds; nothing allocates where no text is made or read.
 *
 * @code
 * Field price = record.data(2);
 * price = decimal(QStringLiteral("12.50"));
 * if (!price.isNull() && price.toDouble() > 12)
 *     qInfo() << price;
 * @endcode
 */
class LIVETABLE_EXPORT Field
{
public:
    /// A cell of undefined type that is NULL. Every value written to it throws.
    Field() noexcept;

    /// The cell at `data`, described by `def`; it holds a value when the bits of `nullMask` are set
    /// in *nullByte.
    Field(const TableColumnDef* def, unsigned char* data, unsigned char* nullByte,
          quint8 nullMask) noexcept
        : m_def(def)
        , m_data(data)
        , m_nullByte(nullByte)
        , m_nullMask(nullMask)
    {}

    /// Another view of the same cell.
    Field(const Field& other) noexcept = default;

    /// The column's definition; never null.
    const TableColumnDef* columnDef() const noexcept { return m_def; }
    /// The column's type.
    FieldType::Type type() const noexcept { return m_def->type; }

    /// The type's name for messages. Not FieldType::typeName(): "Invalid" for undefined, "String"
    /// for VarChar, "undefined" for BoardList and for numbers above 8.
    const char* typeName() const noexcept;

    /// Whether the cell is NULL: it has no value.
    bool isNull() const noexcept { return (*m_nullByte & m_nullMask) != m_nullMask; }

    /// Makes the cell NULL, also one of a column that is not nullable. Its bytes stay.
    void setNull() noexcept;

    /// The cell's bytes, for code that copies rows. Null for a cell of undefined type.
    unsigned char* data() const noexcept { return m_data; }

    // --- reading -----------------------------------------------------------------------------
    //
    // A NULL cell of any type reads as zero (a null string, an unset date) unless told otherwise.
    // Each reader takes the types that it names and throws for the others.

    /// Integer; Integer64, brought to the nearest 32-bit number.
    int toInteger() const;
    /// Integer, Integer64.
    qint64 toInteger64() const;
    /// Integer, Integer64, Double, Decimal, XDecimal.
    double toDouble() const;
    /// Decimal.
    decimal toDecimal() const;
    /// XDecimal; Decimal, exactly and with its scale.
    xdecimal toXDecimal() const;
    /// DateTime; VarChar, as the datetime constructor reads it.
    datetime toDatetime() const;
    /// BoardList.
    boardlist toBoardList() const;

    /// Any type as text: numbers in the C locale with every digit that they have, "[BoardList]" for
    /// a board list, a null string for an undefined type. Throws the QString "Incorrect type of
    /// field." for a type number outside 0..8.
    QString toString() const;

    /// The same by the rules of QLocale::system(); a Double with 6 significant digits, a board list
    /// as its text.
    QString toSystemString() const;

    /// The one unit of a VarChar of length 1. A null character for a column of length 0; for other
    /// lengths, whatever text is stored, throws the QString "String length is not 1 for QChar: %1."
    /// with the length; for other types "Incorrect type of field.".
    QChar toChar() const;

    /// As toChar(), but a column of length 0 throws the length message too, and a NULL cell of any
    /// type the QString "String is null for QChar".
    QChar asChar() const;

    /// The text of a VarChar without a copy, empty when NULL: see StaticString for how long it may
    /// be used. Throws the QString "Incorrect type of field." for other types.
    StaticString asStaticString() const;

    /// int, qlonglong, double, decimal, xdecimal, QString, QDateTime (in UTC; an unset one gives
    /// the first millisecond of 1970), or a board list's text. Invalid for NULL and undefined
    /// types. Never throws.
    QVariant toVariant() const;

    /**
     * -1, 0 or 1: the order of two cells, of one column or of different ones. Both must be of types
     * 0..8. Nothing is thrown; nothing is allocated unless texts must be made.
     *
     * NULL equals NULL and is below every value. Cells of the same type compare as their values:
     * decimals at any scales, texts by UTF-16 units (upper case first), board lists by their bytes;
     * a NaN equals a NaN and is below every number. That is a strict weak order, fit for sorting.
     *
     * Numbers of different types compare exactly, but as doubles when one is a Double: the Double
     * 0.1 equals the Decimal 0.10. All other pairs compare as their toString(). Such mixed
     * comparisons serve look-ups and filters; they need not be transitive.
     */
    int compare(const Field& other) const;

    // --- writing -----------------------------------------------------------------------------
    //
    // A successful write makes the cell hold a value. Where no conversion exists, Exception("Can't
    // convert from %1 to %2") names the source's type (Decimal for both decimals, VarChar for
    // texts) and the column's. Two pairs have messages of their own: "Can't convert double to
    // datetime." and, for both decimals, "Can't convert from decimal to datetime.".

    /// Integer: stored, beyond its range the nearest number. Integer64, Double: converted. Decimal,
    /// XDecimal: converted and brought to the column's length as scale. VarChar: the digits.
    Field& operator=(int value);
    Field& operator=(qlonglong value);
    Field& operator=(unsigned value) { return *this = qlonglong(value); }
    Field& operator=(long value) { return *this = qlonglong(value); }
    Field& operator=(unsigned long value) { return *this = qulonglong(value); }
    Field& operator=(qulonglong value);

    /// 1 or 0.
    template <class Bool, std::enable_if_t<std::is_same_v<Bool, bool>, int> = 0>
    Field& operator=(Bool value)
    {
        return *this = int(value);
    }

    /// Integer, Integer64: cut toward zero; beyond the range the nearest number, a NaN gives 0.
    /// Double: stored. Decimal, XDecimal: by fromDouble at scale 6, then brought to the column's
    /// length as scale. VarChar: in fixed notation with 6 decimals.
    Field& operator=(double value);

    /// Integer, Integer64: through a double, cut toward zero. Double: converted. Decimal, XDecimal:
    /// kept with its own scale. VarChar: its toString().
    Field& operator=(const decimal& value);
    Field& operator=(const xdecimal& value);

    /// DateTime: stored. VarChar: its toString(), so that an unset date gives NULL.
    Field& operator=(const datetime& value);

    /// BoardList: stored. The source is named BoardList in messages.
    Field& operator=(const boardlist& value);

    /**
     * A text. An empty one makes a cell of any type NULL. VarChar: stored, cut at the column's
     * length. The others must read the whole text: Integer, Integer64 and Double as
     * QString::toInt() and its kin do, or Exception("Can't convert from '%1'' to %2") with the text
     * and the column's type; Decimal and XDecimal by their own fromString() and with its scale and
     * errors; DateTime as its constructor does (unset when it cannot read the text).
     */
    Field& operator=(const QStringRef& text);
    Field& operator=(const QString& text);
    /// UTF-8; a null pointer is an empty text.
    Field& operator=(const char* text);

    /**
     * Writes the other cell's value here. NULL gives NULL. Between cells of one type the value is
     * copied as it is (texts are cut at the column's length); otherwise it is read in its own type
     * and written as above. A BoardList or undefined cell goes into no other type.
     */
    Field& operator=(const Field& other);

    /// Throw the Exception for a conversion that does not exist: into this cell's type, or into the
    /// type given first.
    [[noreturn]] void incompatibleType(FieldType::Type sourceType) const;
    [[noreturn]] static void incompatibleType(FieldType::Type columnType,
                                              FieldType::Type sourceType);

protected:
    /// Makes this a view of another cell, without writing.
    void setView(const Field& other) noexcept
    {
        m_def = other.m_def;
        m_data = other.m_data;
        m_nullByte = other.m_nullByte;
        m_nullMask = other.m_nullMask;
    }

    /// Says that the cell holds a value.
    void setPresent() noexcept
    {
        *m_nullByte = static_cast<unsigned char>(*m_nullByte | m_nullMask);
    }

private:
    template <class T>
    Field& put(const T& value) noexcept;
    void copyValue(const Field& other);

    const TableColumnDef* m_def;
    unsigned char* m_data;
    unsigned char* m_nullByte;
    quint8 m_nullMask;
};

/// The text of toString() in quotes, or NULL.
LIVETABLE_EXPORT QDebug operator<<(QDebug debug, const Field& field);

/**
 * A free-standing cell: a Field that owns its bytes and its definition.
 *
 * Copies are cells of their own. Assigning a FieldValue replaces type, length and value; assigning
 * anything else writes the value with the conversions of Field. No heap memory is taken by values
 * of up to 16 bytes. Destroying it ends every Field copied from it.
 *
 * @code
 * FieldValue limit(&orders, QStringLiteral("price")); // of that column's type, NULL
 * limit.fromText(QStringLiteral("12.50"));
 * if (record.data("price").compare(limit) > 0) ...
 * @endcode
 */
class LIVETABLE_EXPORT FieldValue : public Field
{
public:
    /// Of undefined type and NULL until init().
    FieldValue() noexcept;

    /// A NULL cell of this type. Throws as FieldType::typeLength().
    FieldValue(FieldType::Type type, int length, bool nullable);

    /// A NULL cell with a copy of the definition (without its owner and its place in a row). Throws
    /// as FieldType::typeLength(). A null pointer gives an undefined cell.
    explicit FieldValue(const TableColumnDef* def);

    /// The same from a column of a table. Throws the QString "Column '%1' not found." for a number
    /// or name (compared exactly) that the table does not have.
    FieldValue(Table* table, int column);
    FieldValue(Table* table, const QString& column);

    /// A copy of the cell: definition, bytes and whether it is NULL.
    FieldValue(const Field& other);
    FieldValue(const FieldValue& other);
    virtual ~FieldValue();

    /// Becomes a copy of `other`, definition included. When it throws (no memory), nothing changed.
    FieldValue& operator=(const FieldValue& other);
    using Field::operator=;

    /// Makes it a NULL cell with a copy of the definition, whatever it was before. Throws as
    /// FieldType::typeLength() and is then as before.
    void init(const TableColumnDef* def);

    /// The value as text: toString().
    QString toText() const { return toString(); }

    /// Writes a text, as assigning it does.
    void fromText(const QString& text) { Field::operator=(text); }
    void fromText(const QStringRef& text) { Field::operator=(text); }

private:
    void adopt(const TableColumnDef& def, const Field* content);

    static constexpr int inlineWidth = 16;

    TableColumnDef m_ownDef;
    std::unique_ptr<unsigned char[]> m_heap;            // of values wider than inlineWidth
    alignas(8) unsigned char m_inline[inlineWidth + 8]; // their null byte comes last in both
};

/**
 * A constant to compare cells with or to filter by: a FieldValue made from a value.
 *
 * All but the default one hold a value and are of a type that is not nullable.
 *
 * @code
 * if (record.data("count").compare(FieldConstValue(100)) >= 0) ...
 * @endcode
 */
class LIVETABLE_EXPORT FieldConstValue : public FieldValue
{
public:
    /// An Integer that is NULL.
    FieldConstValue();

    /// A VarChar of length 1.
    FieldConstValue(const QChar& value);

    /// A VarChar of the text's length. Throws the QString "Length of string can't be zero" for an
    /// empty text.
    FieldConstValue(const QString& value);

    /// The same from Latin-1 bytes; null counts as empty.
    FieldConstValue(const char* value);

    FieldConstValue(const int& value);       ///< Integer
    FieldConstValue(const long long& value); ///< Integer64
    FieldConstValue(const double& value);    ///< Double
    FieldConstValue(const decimal& value);   ///< Decimal, its own scale kept
    FieldConstValue(const xdecimal& value);  ///< XDecimal, its own scale kept
    FieldConstValue(const datetime& value);  ///< DateTime
    FieldConstValue(const FieldConstValue& other);
    ~FieldConstValue() override;

    FieldConstValue& operator=(const FieldConstValue& other);
    using FieldValue::operator=;

    /// A constant of the cell's type and value; the NULL Integer for NULL, undefined and BoardList
    /// cells. A text constant takes the text's length: for an empty text that is not NULL, in a
    /// column longer than 1, this throws as the constructor does.
    static FieldConstValue fromValue(const Field& field);

private:
    template <class T>
    FieldConstValue(FieldType::Type type, const T& value);
};
