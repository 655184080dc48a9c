// SPDX-License-Identifier: MIT
#include "runtime/main.h"

#include "runtime/hrunnable.h"
#include "table/record.h"
#include "value/datetime.h"
#include "value/decimal.h"
#include "value/xdecimal.h"

#include <QMetaType>
#include <QVector>

namespace {

template <class T>
void registerValue(const char* name)
{
    qRegisterMetaType<T>(name);
    QMetaType::registerComparators<T>();
}

bool registerTypes()
{
    registerValue<datetime>("datetime");
    QMetaType::registerConverter<datetime, QString>(&datetime::toString);

    registerValue<decimal>("decimal");
    qRegisterMetaTypeStreamOperators<decimal>("decimal");
    QMetaType::registerConverter<decimal, QString>(&decimal::toString);

    registerValue<xdecimal>("xdecimal");
    qRegisterMetaTypeStreamOperators<xdecimal>("xdecimal");
    QMetaType::registerConverter<xdecimal, QString>(&xdecimal::toString);

    qRegisterMetaType<Record>("Record");
    qRegisterMetaType<HRunnable>("HRunnable");
    qRegisterMetaType<QVector<int>>("QVector<int>"); // Qt adds the converter to a sequence
    return true;
}

} // namespace

Database::Main::Main()
{
    // A second registration of comparators or converters would fail with a warning.
    static const bool registered = registerTypes();
    Q_UNUSED(registered)
}

Database::Main Database::main;
