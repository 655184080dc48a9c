// SPDX-License-Identifier: MIT
#include "io/fielddefconvertor.h"

FieldDefConvertor::FieldDefConvertor() = default;
FieldDefConvertor::~FieldDefConvertor() = default;

void FieldDefConvertor::convert(Field& target, const Field& source)
{
    target = source;
}
