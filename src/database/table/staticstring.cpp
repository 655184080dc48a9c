// SPDX-License-Identifier: MIT
#include "table/staticstring.h"

namespace {

const QChar noText[1] = {};

} // namespace

StaticString::StaticString() noexcept
    : StaticString(nullptr, 0)
{}

StaticString::StaticString(const unsigned char* text, int size) noexcept
    : m_header{{Q_REFCOUNT_INITIALIZE_STATIC, qMax(size, 0), 0, 0, 0}}
{
    pointAt(size > 0 ? static_cast<const void*>(text) : noText);
}

StaticString::StaticString(const StaticString& other) noexcept
    : m_header{{Q_REFCOUNT_INITIALIZE_STATIC, other.size(), 0, 0, 0}}
{
    pointAt(other.data());
}

StaticString& StaticString::operator=(const StaticString& other) noexcept
{
    m_header.size = other.size();
    pointAt(other.data());
    return *this;
}

StaticString::operator QString() const&
{
    const QStringDataPtr shared = {const_cast<QStringData*>(&m_header)};
    return QString(shared);
}

StaticString::operator QString() const&&
{
    return QString(data(), size());
}

void StaticString::pointAt(const void* text) noexcept
{
    m_header.offset = static_cast<qptrdiff>(reinterpret_cast<quintptr>(text) -
                                            reinterpret_cast<quintptr>(&m_header));
}
