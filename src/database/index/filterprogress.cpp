// SPDX-License-Identifier: MIT
#include "index/filterprogress.h"

FilterProgress::FilterProgress() = default;
FilterProgress::~FilterProgress() = default;

FilterProgressTrue::FilterProgressTrue() = default;
FilterProgressTrue::~FilterProgressTrue() = default;

bool FilterProgressTrue::operator()(int, int)
{
    return true;
}

bool FilterProgressTrue::filter(const Record&) const
{
    return true;
}
