// SPDX-License-Identifier: MIT
#include "runtime/hrunnable.h"
#include "runtime/main.h"
#include "table/table.h"
#include "value/datetime.h"
#include "value/xdecimal.h"

#include <QSequentialIterable>
#include <QtTest>

namespace {

// Before any code of this program's has named the types to Qt.
const auto idsAtStart = [] {
    QVector<int> ids;
    for (const char* name : {"datetime", "decimal", "xdecimal", "Record", "QVector<int>"})
        ids.append(QMetaType::type(name));
    return ids;
}();

} // namespace

class TestMain : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void typesAreKnownAtLoad()
    {
        const QVector<int> ids = {qMetaTypeId<datetime>(), qMetaTypeId<decimal>(),
                                  qMetaTypeId<xdecimal>(), qMetaTypeId<Record>(),
                                  qMetaTypeId<QVector<int>>()};
        QVERIFY(ids.first() >= QMetaType::User && std::is_sorted(ids.begin(), ids.end()));
        QCOMPARE(idsAtStart, ids);
        QCOMPARE(QMetaType::type("HRunnable"), int(QMetaType::VoidStar));
        const QVariant vector = QVariant::fromValue(QVector<int>({3, 1}));
        QCOMPARE(vector.value<QSequentialIterable>().at(1).toInt(), 1);
        QCOMPARE(QVariant::fromValue(datetime(-1)).toString(), QString("1969.12.31 23:59:59.999"));
        QCOMPARE(xdecimal("-1.50").toVariant().toString(), QString("-1.50"));
        int result = 0;
        const decimal a(150, 2), b(15, 0);
        QVERIFY(QMetaType::compare(&a, &b, qMetaTypeId<decimal>(), &result) && result == -1);
        static int warnings = 0;
        const QtMessageHandler previous = qInstallMessageHandler(
            [](QtMsgType, const QMessageLogContext&, const QString&) { ++warnings; });
        Database::Main();
        qInstallMessageHandler(previous);
        QCOMPARE(warnings, 0); // of a second registration
    }

    void recordsAndHandlesTravel()
    {
        Table table("t", QString(), nullptr);
        const Record record(&table);
        QVERIFY(QMetaObject::invokeMethod(this, "take", Qt::QueuedConnection, Q_ARG(Record, record),
                                          Q_ARG(HRunnable, this)));
        QCOMPARE(record.referenceCount(), 2); // the posted call holds the row
        QCoreApplication::processEvents();
        QVERIFY(taken == record && takenHandle == this);
        taken = Record();
        QCOMPARE(record.referenceCount(), 1);
    }

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

QTEST_GUILESS_MAIN(TestMain)

#include "tst_main.moc"
