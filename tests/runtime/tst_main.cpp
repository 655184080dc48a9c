// SPDX-License-Identifier: MIT
#include "runtime/hrunnable.h"
#include "runtime/main.h"
#include "table/record.h"
#include "table/table.h"
#include "value/datetime.h"
#include "value/decimal.h"
#include "value/xdecimal.h"

#include <QDataStream>
#include <QSequentialIterable>
#include <QtTest>

namespace {

const char* const names[] = {"datetime", "decimal",   "xdecimal",
                             "Record",   "HRunnable", "QVector<int>"};

QStringList warnings;

void collectWarnings(QtMsgType, const QMessageLogContext&, const QString& text)
{
    warnings.append(text);
}

// Before any code of this program's has named the types to Qt.
const auto idsAtStart = [] {
    QVector<int> ids;
    for (const char* name : names)
        ids.append(QMetaType::type(name));
    return ids;
}();

template <class T>
int compared(const T& a, const T& b)
{
    int result = -2;
    return QMetaType::compare(&a, &b, qMetaTypeId<T>(), &result) ? result : -3;
}

QVariant streamed(const QVariant& value)
{
    QByteArray bytes;
    QDataStream out(&bytes, QIODevice::WriteOnly);
    out << value;
    QDataStream in(bytes);
    QVariant back;
    in >> back;
    return back;
}

} // namespace

class TestMain : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void typesAreKnownAtLoad();
    void valuesCompare();
    void valuesConvertToText();
    void decimalsStream();
    void recordsTravelInQueuedSignals();
    void handlesTravelAsArguments();
    void vectorsAreSequences();
    void secondRegistrationIsSilent();

public Q_SLOTS:
    void take(const Record& record, HRunnable handle)
    {
        taken = record;
        takenHandle = handle;
    }

private:
    Record taken;
    HRunnable takenHandle = nullptr;
};

void TestMain::typesAreKnownAtLoad()
{
    QVERIFY(!idsAtStart.contains(QMetaType::UnknownType));
    QCOMPARE(idsAtStart, QVector<int>({qMetaTypeId<datetime>(), qMetaTypeId<decimal>(),
                                       qMetaTypeId<xdecimal>(), qMetaTypeId<Record>(),
                                       int(QMetaType::VoidStar), qMetaTypeId<QVector<int>>()}));
    // Registered in this order.
    QVERIFY(idsAtStart.at(0) < idsAtStart.at(1) && idsAtStart.at(1) < idsAtStart.at(2) &&
            idsAtStart.at(2) < idsAtStart.at(3) && idsAtStart.at(3) < idsAtStart.at(5));
}

void TestMain::valuesCompare()
{
    QCOMPARE(compared(datetime(1), datetime(2)), -1);
    QCOMPARE(compared(datetime(2), datetime(2)), 0);
    QCOMPARE(compared(decimal(150, 2), decimal(15, 1)), 0);
    QCOMPARE(compared(decimal(151, 2), decimal(15, 1)), 1);
    QCOMPARE(compared(xdecimal("-2"), xdecimal("1.5")), -1);
    QVERIFY(decimal(150, 2).toVariant() == decimal(15, 1).toVariant());
    QVERIFY(QVariant::fromValue(datetime(1)) != QVariant::fromValue(datetime(2)));
}

void TestMain::valuesConvertToText()
{
    const datetime date(QStringLiteral("2017.03.01"));
    QCOMPARE(QVariant::fromValue(date).toString(), date.toString());
    QCOMPARE(decimal(-150, 2).toVariant().toString(), QString("-1.50"));
    QCOMPARE(xdecimal("0.50").toVariant().toString(), QString("0.50"));
}

void TestMain::decimalsStream()
{
    const QVariant price = decimal(-150, 2).toVariant();
    QCOMPARE(streamed(price).userType(), qMetaTypeId<decimal>());
    QCOMPARE(streamed(price).value<decimal>().raw(), price.value<decimal>().raw());
    const QVariant sum = xdecimal("12345678901234567890.12").toVariant();
    QCOMPARE(streamed(sum).userType(), qMetaTypeId<xdecimal>());
    QCOMPARE(streamed(sum).toString(), sum.toString());
    datetime date(1);
    QDataStream none;
    QVERIFY(!QMetaType::save(none, qMetaTypeId<datetime>(), &date));
}

void TestMain::recordsTravelInQueuedSignals()
{
    Table table("t", QString(), nullptr);
    table.addColumn("a", FieldType::Integer, 0, true, QString(), true, QString());
    const Record record(&table);
    QVERIFY(QMetaObject::invokeMethod(this, "take", Qt::QueuedConnection, Q_ARG(Record, record),
                                      Q_ARG(HRunnable, nullptr)));
    QCOMPARE(record.referenceCount(), 2); // the posted call holds the row
    QCoreApplication::processEvents();
    QCOMPARE(taken, record);
    taken = Record();
    QCOMPARE(record.referenceCount(), 1);
    QCOMPARE(QVariant::fromValue(record).value<Record>(), record);
}

void TestMain::handlesTravelAsArguments()
{
    HRunnable handle = &takenHandle;
    QVERIFY(QMetaObject::invokeMethod(this, "take", Qt::QueuedConnection, Q_ARG(Record, Record()),
                                      Q_ARG(HRunnable, handle)));
    QCoreApplication::processEvents();
    QCOMPARE(takenHandle, handle);
}

void TestMain::vectorsAreSequences()
{
    const QVariant value = QVariant::fromValue(QVector<int>({3, 1, 2}));
    QVERIFY(value.canConvert<QVariantList>());
    QVector<int> walked;
    for (const QVariant& element : value.value<QSequentialIterable>())
        walked.append(element.toInt());
    QCOMPARE(walked, QVector<int>({3, 1, 2}));
}

void TestMain::secondRegistrationIsSilent()
{
    const QtMessageHandler previous = qInstallMessageHandler(collectWarnings);
    const Database::Main again;
    qInstallMessageHandler(previous);
    QCOMPARE(warnings, QStringList());
    QCOMPARE(compared(decimal(1), decimal(2)), -1);
    Q_UNUSED(again)
}

QTEST_GUILESS_MAIN(TestMain)

#include "tst_main.moc"
