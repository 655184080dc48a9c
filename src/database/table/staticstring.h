// SPDX-License-Identifier: MIT
#pragma once

#include "base/export.h"

#include <QString>
#include <QStringView>

/**
 * The text of a cell where it lies: the header of a static QString (its data is never freed) that
 * points at the cell. A QString made from it takes no memory and copies nothing.
 *
 * Lifetime: valid while the row lives and the cell is not written. A QString made from a *named*
 * StaticString shares its header and must not outlive it either; copies of that QString share it
 * too. Changing such a QString copies the text first: the cell is never written through it. A
 * QString made from a *temporary* StaticString is a full copy with no strings attached.
 *
 * Not null-terminated. No function throws (a full copy may run out of memory). Reading is safe from
 * any thread while nobody writes the cell.
 *
 * @code
 * const StaticString name = field.asStaticString();
 * if (name.view() == QLatin1String("ABC")) // no allocation
 *     use(name);                            // a QString, no copy
 * @endcode
 */
class LIVETABLE_EXPORT StaticString
{
public:
    /// Empty.
    StaticString() noexcept;

    /// Over `size` UTF-16 units at `text`, aligned to 2 bytes. Empty when `size` is 0 or less.
    StaticString(const unsigned char* text, int size) noexcept;

    StaticString(const StaticString& other) noexcept;
    StaticString& operator=(const StaticString& other) noexcept;

    /// UTF-16 units, without the zeros that fill the cell.
    int size() const noexcept { return m_header.size; }
    /// Whether there are none.
    bool isEmpty() const noexcept { return m_header.size == 0; }

    /// The units, size() of them; never null.
    const QChar* data() const noexcept
    {
        return reinterpret_cast<const QChar*>(reinterpret_cast<quintptr>(&m_header) +
                                              static_cast<quintptr>(m_header.offset));
    }

    /// The text, valid as long as the cell; this object may go.
    QStringView view() const noexcept { return QStringView(data(), size()); }

    /// Shares the text: see above. Never a null string.
    operator QString() const&;

    /// A full copy. Never a null string.
    operator QString() const&&;

private:
    void pointAt(const void* text) noexcept;

    // The text's place is kept relative to the header's own address, so each copy computes it anew.
    QStringData m_header;
};
