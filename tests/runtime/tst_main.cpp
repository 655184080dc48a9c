// SPDX-License-Identifier: MIT
#include "runtime/hrunnable.h"
#include "runtime/main.h"
#include "table/table.h"
#include "value/datetime.h"
#include "value/xdecimal.h"

#include <QDataStream>
#include <QSequentialIterable>
#include <QtTest>

namespace {

int warnings = 0;

// Before any code of this program's has named the types to Qt.
const auto idsAtStart = [] {
    QVector<int> ids;
    for (const char* name : {"datetime", "decimal", "xdecimal", "Record", "QVector<int>"})
        ids.append(QMetaType::type(name));
    return ids;
}();

template <class T>
int compared(const T& a, const T& b)
{
    int result = -2;
    return QMetaType::compare(&a, &b, qMetaTypeId<T>(), &result) ? result : -3;
}

} // namespace

class TestMain : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void typesAreKnownAtLoad();
    void valuesCompareAndConvert();
    void decimalsStream();
    void recordsAndHandlesTravel();
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
    QVERIFY(idsAtStart.first() >= QMetaType::User);
    QVERIFY(std::is_sorted(idsAtStart.begin(), idsAtStart.end()));
    QCOMPARE(idsAtStart,
             QVector<int>({qMetaTypeId<datetime>(), qMetaTypeId<decimal>(), qMetaTypeId<xdecimal>(),
                           qMetaTypeId<Record>(), qMetaTypeId<QVector<int>>()}));
    QCOMPARE(QMetaType::type("HRunnable"), int(QMetaType::VoidStar));
}

void TestMain::valuesCompareAndConvert()
{
    QCOMPARE(compared(datetime(1), datetime(2)), -1);
    QCOMPARE(compared(decimal(150, 2), decimal(15, 1)), 0);
    QCOMPARE(compared(xdecimal("-2"), xdecimal("-2.5")), 1);
    QVERIFY(decimal(150, 2).toVariant() == decimal(15, 1).toVariant());

    QCOMPARE(QVariant::fromValue(datetime(-1)).toString(), QString("1969.12.31 23:59:59.999"));
    QCOMPARE(decimal(-150, 2).toVariant().toString(), QString("-1.50"));
    QCOMPARE(xdecimal("0.50").toVariant().toString(), QString("0.50"));
}

void TestMain::decimalsStream()
{
    for (const QVariant& value : {decimal(-150, 2).toVariant(), xdecimal("0.50").toVariant()}) {
        QByteArray bytes;
        QDataStream out(&bytes, QIODevice::WriteOnly);
        out << value;
        QDataStream in(bytes);
        QVariant back;
        in >> back;
        QCOMPARE(back.userType(), value.userType());
        QCOMPARE(back.toString(), value.toString());
    }
}

void TestMain::recordsAndHandlesTravel()
{
    Table table("t", QString(), nullptr);
    const Record record(&table);
    QVERIFY(QMetaObject::invokeMethod(this, "take", Qt::QueuedConnection, Q_ARG(Record, record),
                                      Q_ARG(HRunnable, this)));
    QCOMPARE(record.referenceCount(), 2); // the posted call holds the row
    QCoreApplication::processEvents();
    QCOMPARE(taken, record);
    QCOMPARE(takenHandle, static_cast<void*>(this));
    taken = Record();
    QCOMPARE(record.referenceCount(), 1);
    QCOMPARE(QVariant::fromValue(record).value<Record>(), record);
}

void TestMain::vectorsAreSequences()
{
    const QVariant value = QVariant::fromValue(QVector<int>({3, 1}));
    const auto sequence = value.value<QSequentialIterable>();
    QCOMPARE(sequence.size(), 2);
    QCOMPARE(sequence.at(0).toInt(), 3);
}

void TestMain::secondRegistrationIsSilent()
{
    const QtMessageHandler previous = qInstallMessageHandler(
        [](QtMsgType, const QMessageLogContext&, const QString&) { ++warnings; });
    const Database::Main again;
    qInstallMessageHandler(previous);
    Q_UNUSED(again)
    QCOMPARE(warnings, 0);
}

QTEST_GUILESS_MAIN(TestMain)

#include "tst_main.moc"
