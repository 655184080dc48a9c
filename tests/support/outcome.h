// SPDX-License-Identifier: MIT
#pragma once

#include "base/exception.h"

#include <type_traits>

/// What `action` gives as text, or what it throws, behind a letter for the kind of the object.
template <class Action>
QString outcome(const Action& action)
{
    try {
        if constexpr (std::is_void_v<decltype(action())>)
            action();
        else
            return action();
    } catch (const Exception& e) {
        return "E:" + e.message();
    } catch (const QString& text) {
        return "Q:" + text;
    } catch (const char* text) {
        return QString("C:") + text;
    }
    return QString();
}
