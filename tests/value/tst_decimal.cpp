// SPDX-License-Identifier: MIT
#include "support/numberoracle.h"
#include "value/decimal.h"
#include "value/xdecimal.h"

#include <QDataStream>
#include <QLocale>
#include <QtTest>

#include <cmath>
#include <functional>
#include <limits>

using namespace Oracle;

namespace {

constexpr qint64 end56 = qint64(1) << 56;

Number<Big> numberOf(decimal value)
{
    return {Big(value.mantissa()), value.scale()};
}

// By way of its text, which the digit layer's tests vouch for.
Number<Big> numberOf(const xdecimal& value)
{
    QString text = value.toString();
    text.remove(u'.');
    if (value.scale() < 0 && text != u'0')
        text.chop(-value.scale());
    const bool negative = text.startsWith(u'-');
    text.remove(QRegularExpression(QStringLiteral("^-?0*(?=.)")));
    const Big n(text.toStdString());
    return {negative ? Big(-n) : n, value.scale()};
}

// What an operation threw, or nothing.
QString errorOf(const std::function<void()>& operation)
{
    try {
        operation();
    } catch (const QString& message) {
        return message;
    } catch (const char* message) {
        return QLatin1String("C string ") + QLatin1String(message);
    }
    return QString();
}

// The largest scale from `highest` down at which `number`, rounded half away from zero, fits.
template <typename Fits>
Number<Big> atLargestScale(const Number<Big>& number, int highest, Fits fits)
{
    for (int scale = highest;; --scale) {
        const Stored<Big> stored = store(number, 160, scale, BCDII_ROUND_HALF_UP);
        if (fits(stored.n))
            return {stored.n, scale};
    }
}

bool fitsMantissa(const Big& n)
{
    return n >= -Big(end56) && n < Big(end56);
}

bool fits26(const Big& n)
{
    return abs(n) < power<Big>(26);
}

QByteArray show(const Number<Big>& number)
{
    return QByteArray::fromStdString(number.n.str()) + " at " + QByteArray::number(number.scale);
}

decimal anyDecimal(Random& random, int spread = 127)
{
    qint64 mantissa = static_cast<qint64>(random.digits(16));
    switch (random.below(8)) {
    case 0:
        mantissa = random.below(2) ? end56 - 1 - random.below(3) : -end56 + random.below(3);
        break;
    case 1:
        mantissa = static_cast<qint64>(random.engine()) >> (7 + random.below(56));
        break;
    }
    return decimal::fromMantissa(mantissa, random.below(spread) - spread / 2);
}

} // namespace

class TestDecimal : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void words();
    void texts_data();
    void texts();
    void extendedTexts_data();
    void extendedTexts();
    void printing_data();
    void printing();
    void printedTextReadsBack();
    void arithmetic();
    void extendedArithmetic();
    void conversions();
    void outOfRange();
    void doubles_data();
    void doubles();
    void systemTexts();
    void anyText();
    void variants_data();
    void variants();
    void streamsAndHashes();
    void foreignBytes();
};

void TestDecimal::words()
{
    QCOMPARE(decimal::zero.raw(), 0LL);
    QCOMPARE(decimal::maximum.mantissa(), 4503599627370495LL);
    QCOMPARE(decimal::minimum.mantissa(), -4503599627370495LL);
    QCOMPARE(decimal::maximum.scale(), short(-63));
    QCOMPARE(decimal::minimum.scale(), short(-63));
    QCOMPARE(quint64(decimal(-1, 2).raw()), Q_UINT64_C(0x82FFFFFFFFFFFFFF));
    QCOMPARE(quint64(decimal(5, -1).raw()), Q_UINT64_C(0x7F00000000000005));
    Random random;
    for (int i = 0; i < 20000; ++i) { // every word is some mantissa and scale, and made of them
        const auto word = static_cast<qint64>(random.engine());
        const decimal value = decimal::fromRaw(word);
        QVERIFY(fitsMantissa(value.mantissa()) && value.scale() >= -64 && value.scale() <= 63);
        QCOMPARE(decimal::fromMantissa(value.mantissa(), value.scale()).raw(), word);
    }
    QCOMPARE(decimal(end56).mantissa(), end56 / 10);
    QCOMPARE(decimal(-end56).mantissa(), -end56);
    QCOMPARE(decimal(std::numeric_limits<qint64>::min()).mantissa(), -9223372036854775LL);
    QCOMPARE(decimal(std::numeric_limits<quint64>::max()).mantissa(), 18446744073709551LL);
    QCOMPARE(decimal(std::numeric_limits<quint64>::max()).scale(), short(-3));
    QCOMPARE(decimal(1234, 65).mantissa(), 12LL);
    QCOMPARE(decimal(12, -66).mantissa(), 1200LL);
    QCOMPARE(decimal(0, 1000).scale(), short(63));
}

void TestDecimal::texts_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<bool>("hasForm");
    QTest::addColumn<qint64>("mantissa");
    QTest::addColumn<int>("scale"); // 99: refused, 100: refused because of the exponent
    const auto row = [](const QString& text, bool hasForm, qint64 mantissa = 0, int scale = 99) {
        QTest::addRow("'%s'", qPrintable(text)) << text << hasForm << mantissa << scale;
    };
    row("1.50", true, 150, 2);
    row("+7", true, 7, 0);
    row("-.5", true, -5, 1);
    row("-0", true, 0, 0);
    row("0.00", true, 0, 2);
    row("1.5e3", true, 15, -2);
    row("5.e-3", true, 5, 3);
    row("00000000000000000000012", true, 12, 0);
    for (const char* text : {"", "-", ".", "5.", ".e5", "1e", "1e+", " 1", "1 ", "1E5", "0x1",
                             "1.2.3", "--1", "1e5.0", "nan"})
        row(text, false);
    for (const char* text : {"1,5", ",5", "1,5e2", "1,e2"})
        row(text, true);
    row(QStringLiteral("\u0663"), true); // a digit, but not one of ours
    row("72057594037927935", true, end56 - 1, 0);
    row("72057594037927936", true, 7205759403792793, -1);
    row("-72057594037927936", true, -end56, 0);
    row("-72057594037927936.0", true, -end56, 0);
    row("-72057594037927937", true, -7205759403792793, -1);
    row("9223372036854775807", true, 9223372036854775, -3);
    row("-9223372036854775808", true, -9223372036854775, -3);
    row("9223372036854775808", true);
    row("99999999999999999999", true);
    row("99999999999999999999.5", true);
    row("1.99999999999999999999", true, 19999999999999999, 16);
    row("72057594037927936.9", true, 7205759403792793, -1);
    row("0." + QString(62, u'0') + "19", true, 1, 63);
    row("1e-63", true, 1, 63);
    row("12e63", true, 12, -63);
    row("1e64", true, 0, 100);
    row("1e-64", true, 0, 100);
    row("1.5e-63", true, 1, 63);
    row("72057594037927936e63", true, 0, 100);
    row("1e99999999999999999999", true, 0, 100);
}

void TestDecimal::texts()
{
    QFETCH(QString, text);
    QFETCH(bool, hasForm);
    QFETCH(qint64, mantissa);
    QFETCH(int, scale);
    QCOMPARE(decimal::canConvert(text, false), hasForm);
    QCOMPARE(decimal::canConvert(text, true), hasForm || text.isEmpty());
    decimal value = decimal::maximum;
    const QByteArray bytes = text.toLatin1();
    decimal ofBytes = decimal::maximum;
    QCOMPARE(decimal::tryParse(text, &value), scale < 99);
    QCOMPARE(decimal::tryParse(bytes.data(), bytes.size(), &ofBytes), scale < 99);
    QCOMPARE(ofBytes.raw(), value.raw());
    if (scale < 99) {
        QCOMPARE(value.mantissa(), mantissa);
        QCOMPARE(int(value.scale()), scale);
        QCOMPARE(decimal(QStringRef(&text)).raw(), value.raw());
        QCOMPARE(decimal(text).raw(), decimal::fromString(text).raw());
        return;
    }
    QCOMPARE(value.raw(), decimal::maximum.raw());
    QString message = QString::fromUtf8("Невозможно создать decimal по строке '") + text + u'\'';
    if (scale == 100)
        message += " (" + text.section(u'e', 1) + u')';
    QCOMPARE(errorOf([&] { decimal::fromString(text); }), message);
}

void TestDecimal::extendedTexts_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<bool>("hasForm");
    QTest::addColumn<QString>("printed"); // null: refused, "e": because of the exponent
    const auto row = [](const QString& text, bool hasForm, const QString& printed = QString()) {
        QTest::addRow("'%s'", qPrintable(text)) << text << hasForm << printed;
    };
    row("0.50", true, "0.50");
    row("-.5", true, "-0.5");
    row("-0.0", true, "0.0");
    row("1.5e3", true, "1500");
    row("12e-3", true, "0.012");
    row("1.e3", false);
    row("1,e3", true);
    row("1,5", true);
    row("NaN", false);
    row("", false);
    row(QString(26, u'9'), true, QString(26, u'9'));
    row(QString(27, u'9'), true);
    row(QString(200, u'9'), true);
    row(QString(26, u'9') + "e1", true, QString(26, u'9') + u'0');
    row("1234567." + QString(20, u'3'), true, "1234567." + QString(19, u'3'));
    row("9." + QString(40, u'9'), true, "10." + QString(24, u'0'));
    row(QString(26, u'9') + ".4", true, QString(26, u'9'));
    row(QString(26, u'9') + ".5", true);
    row("0." + QString(61, u'0') + "15", true, "0." + QString(61, u'0') + '2');
    row("0." + QString(300, u'0') + "1", true, "0." + QString(62, u'0'));
    row("1234567890123456789012345678901e-31", true, "0.12345678901234567890123457");
    row("1e62", true, '1' + QString(62, u'0'));
    row("1e63", true, "e");
    row("1e-63", true, "e");
    row("1e-999999999999", true, "e");
}

void TestDecimal::extendedTexts()
{
    QFETCH(QString, text);
    QFETCH(bool, hasForm);
    QFETCH(QString, printed);
    QCOMPARE(xdecimal::canConvert(text, false), hasForm);
    QString message = QString::fromUtf8("Невозможно создать xdecimal по строке '") + text + u'\'';
    if (printed == u'e')
        message += " (" + text.section(u'e', 1) + u')';
    else if (!printed.isNull())
        message.clear();
    QString found;
    QCOMPARE(errorOf([&] { found = xdecimal::fromString(text).toString(); }), message);
    if (message.isEmpty()) {
        QCOMPARE(found, printed);
        QCOMPARE(xdecimal(QStringRef(&text)).toString(), printed);
        QCOMPARE(xdecimal(qPrintable(text)).toString(), printed);
    }
}

void TestDecimal::printing_data()
{
    QTest::addColumn<qint64>("mantissa");
    QTest::addColumn<int>("scale");
    QTest::addColumn<QString>("text");
    const auto row = [](qint64 mantissa, int scale, const QString& text) {
        QTest::addRow("%lld at %d", mantissa, scale) << mantissa << scale << text;
    };
    row(5, 3, "0.005");
    row(-5, 3, "-0.005");
    row(5, -2, "500");
    row(0, -2, "0");
    row(0, 2, "0.00");
    row(123, 3, "0.123");
    row(-1, 63, "-0." + QString(62, u'0') + '1');
    row(-end56, -64, "-72057594037927936" + QString(64, u'0'));
    row(end56 - 1, 0, "72057594037927935");
    row(end56 - 1, 2, "720575940379279.36"); // as a double would
    row((qint64(1) << 53) + 1, 1, "900719925474099.2");
}

void TestDecimal::printing()
{
    QFETCH(qint64, mantissa);
    QFETCH(int, scale);
    QFETCH(QString, text);
    QCOMPARE(decimal(mantissa, scale).toString(), text);
}

void TestDecimal::printedTextReadsBack()
{
    Random random;
    for (int i = 0; i < 20000; ++i) {
        const decimal value = anyDecimal(random);
        if (value.scale() > 0 && qAbs(value.mantissa()) > (qint64(1) << 53))
            continue;
        const QString printed = value.toString();
        QString expected = QString::fromLatin1(
            Oracle::text(Big(value.mantissa()), value.mantissa() ? value.scale() : 0));
        if (value.mantissa() == 0)
            expected = u'0' + (value.scale() > 0 ? u'.' + QString(value.scale(), u'0') : QString());
        else
            expected.replace(QRegularExpression(QStringLiteral("^(-?)\\.")),
                             QStringLiteral("\\10."));
        QCOMPARE(printed, expected);
        if (value.scale() >= 0)
            QCOMPARE(decimal(printed).raw(), value.raw());
    }
}

void TestDecimal::arithmetic()
{
    // A digit far behind the last place kept decides a tie.
    QCOMPARE((decimal(1) - decimal(5000000000000001, 32)).mantissa(), 9999999999999999LL);
    QCOMPARE((decimal(1) - decimal(5000000000000000, 32)).mantissa(), 10000000000000000LL);
    Random random;
    for (int i = 0; i < 60000; ++i) {
        const decimal a = anyDecimal(random, i % 2 ? 20 : 127);
        decimal b = anyDecimal(random, i % 3 ? 20 : 127);
        if (i % 4 == 0) { // equal to a but for the scale, or next to it
            b = a;
            b.setScale(static_cast<short>(a.scale() + random.below(9) - 4));
            const qint64 next = b.mantissa() + random.below(3) - 1;
            b = decimal::fromMantissa(qBound(-end56, next, end56 - 1), b.scale());
        }
        const Number<Big> x = numberOf(a);
        const Number<Big> y = numberOf(b);
        const QByteArray message = show(x) + ", " + show(y);
        const int order = Oracle::compare(x, y);
        QVERIFY2(a.compare(b) == order && b.compare(a) == -order, message);
        QVERIFY2((a == b) == (order == 0) && (a < b) == (order < 0) && (a >= b) == (order >= 0),
                 message);
        QVERIFY2(order != 0 || qHash(a, 5) == qHash(b, 5), message);

        const int highest = std::max(x.scale, y.scale);
        const Number<Big> plus = atLargestScale(sum(x, y), highest, fitsMantissa);
        const Number<Big> minus = atLargestScale(sum(x, {-y.n, y.scale}), highest, fitsMantissa);
        if (plus.scale >= -64 && minus.scale >= -64) {
            QVERIFY2(numberOf(a + b).n == plus.n && (a + b).scale() == plus.scale, message);
            QVERIFY2(numberOf(a - b).n == minus.n && (a - b).scale() == minus.scale, message);
        }

        // More digits as long as they fit, fewer by rounding.
        const short target = static_cast<short>(random.below(150) - 75);
        Number<Big> expected{x.n, std::min(std::max<int>(target, -64), 63)};
        if (expected.scale > x.scale && x.n != 0) {
            while (!fitsMantissa(raised(x, expected.scale)))
                --expected.scale;
        }
        expected.n = store(x, 160, expected.scale, BCDII_ROUND_HALF_UP).n;
        decimal scaled = a;
        QCOMPARE(&scaled.setScale(target), &scaled);
        QVERIFY2(numberOf(scaled).n == expected.n && scaled.scale() == expected.scale, message);
    }
}

void TestDecimal::extendedArithmetic()
{
    Random random;
    const auto any = [&random] {
        const Big n = random.digits(26);
        const int scale = random.below(3) ? random.below(20) - 5 : random.below(125) - 62;
        return xdecimal(QString::fromStdString(n.str()) + 'e' + QString::number(-scale));
    };
    for (int i = 0; i < 8000; ++i) {
        const xdecimal a = any();
        const xdecimal b = any();
        const Number<Big> x = numberOf(a);
        const Number<Big> y = numberOf(b);
        const QByteArray message = show(x) + ", " + show(y);
        QVERIFY2(a.compare(b) == Oracle::compare(x, y), message);
        const auto agrees = [](const std::function<xdecimal()>& operation, const Number<Big>& exact,
                               int highest) {
            const Number<Big> expected = atLargestScale(exact, highest, fits26);
            xdecimal found;
            const QString error = errorOf([&] { found = operation(); });
            if (expected.scale < -62)
                return error == u"C string xdecimal:overflow";
            return error.isEmpty() && found.scale() == expected.scale &&
                   numberOf(found).n == expected.n;
        };
        QVERIFY2(agrees([&] { return a + b; }, sum(x, y), std::max(x.scale, y.scale)), message);
        QVERIFY2(agrees([&] { return a - b; }, sum(x, {-y.n, y.scale}), std::max(x.scale, y.scale)),
                 message);
        const int highest = std::min(std::max(x.scale + y.scale, -62), 62);
        QVERIFY2(agrees([&] { return a * b; }, product(x, y), highest), message);

        const short target = static_cast<short>(random.below(125) - 62);
        const Stored<Big> expected = store(x, 26, target, BCDII_ROUND_HALF_UP);
        xdecimal scaled = a;
        unsigned int flags = 0;
        const QString error = errorOf([&] { flags = scaled.setScale(target); });
        QCOMPARE(error.isEmpty(), !expected.isMarked());
        QCOMPARE(scaled.isNaN(), expected.isMarked());
        if (!scaled.isNaN()) {
            QVERIFY2(numberOf(scaled).n == expected.n && scaled.scale() == target, message);
            QCOMPARE(flags, expected.flags & ~static_cast<unsigned int>(BCDII_RESULT_ROUNDED));
            QVERIFY2(scaled != a || qHash(scaled) == qHash(a), message);
        }
    }
}

// decimal to xdecimal and back: exact, but for what has no room.
void TestDecimal::conversions()
{
    Random random;
    for (int scale = -64; scale <= 63; ++scale) {
        for (int i = 0; i < 100; ++i) {
            decimal value = anyDecimal(random);
            value = decimal::fromMantissa(value.mantissa(), scale);
            const xdecimal extended(value);
            if (scale < 63) {
                QCOMPARE(Oracle::compare(numberOf(extended), numberOf(value)), 0);
                QCOMPARE(int(extended.scale()), std::max(scale, -62));
                if (scale >= -62)
                    QCOMPARE(extended.toDecimal().raw(), value.raw());
            } else {
                QVERIFY(numberOf(extended).n ==
                        store(numberOf(value), 26, 62, BCDII_ROUND_HALF_UP).n);
            }
        }
    }
    for (int i = 0; i < 5000; ++i) {
        const int scale = random.below(125) - 62;
        const Number<Big> exact{random.digits(26), scale};
        const xdecimal value(QString::fromStdString(exact.n.str()) + 'e' + QString::number(-scale));
        const Number<Big> expected = atLargestScale(exact, scale, fitsMantissa);
        decimal found;
        const QString error = errorOf([&] { found = value.toDecimal(); });
        QCOMPARE(error.isEmpty(), expected.scale >= -63);
        QVERIFY2(!error.isEmpty() ||
                     (numberOf(found).n == expected.n && found.scale() == expected.scale),
                 show(exact));
    }
    QCOMPARE(xdecimal(std::numeric_limits<qint64>::min()).toString(), "-9223372036854775808");
    QCOMPARE(xdecimal(std::numeric_limits<quint64>::max()).toString(), "18446744073709551615");
    QCOMPARE(xdecimal::fromInt64(-1205, 3).toString(), "-1.205");
}

void TestDecimal::outOfRange()
{
    const QString overflow = QStringLiteral("decimal:overflow");
    const QString badOperand = QStringLiteral("C string xdecimal:bad operand");
    QCOMPARE(errorOf([] { decimal(end56, -63); }), overflow);
    QCOMPARE(errorOf([] { decimal(1, -82); }), overflow);
    QCOMPARE(errorOf([] { decimal(std::numeric_limits<quint64>::max(), -61); }), overflow);
    const decimal largest(end56 - 1, -64);
    QCOMPARE(errorOf([&] { largest + largest; }), overflow);
    QCOMPARE(errorOf([&] { -largest - largest; }), overflow);
    QCOMPARE((-decimal(-end56)).mantissa(), 7205759403792794LL);
    QCOMPARE(errorOf([] { xdecimal::maximum().toDecimal(); }), overflow);
    QCOMPARE(xdecimal::maximum().toString(), QString(26, u'9') + QString(62, u'0'));
    QCOMPARE(xdecimal::minimum().toString(), '-' + xdecimal::maximum().toString());
    QCOMPARE(&xdecimal::d[1], &xdecimal::maximum());
    QCOMPARE(xdecimal::zero.type(), 0x1A00U);

    xdecimal value(QString(26, u'9') + "e1");
    QCOMPARE(errorOf([&] { value.setScale(63); }), badOperand);
    QCOMPARE(value.toString(), QString(26, u'9') + '0'); // left alone
    QCOMPARE(errorOf([&] { value.setScale(0); }), badOperand);
    QVERIFY(value.isNaN());
    QCOMPARE(value.toString(), "NaN");
    QVERIFY(std::isnan(value.toDouble()));
    QCOMPARE(errorOf([&] { value.setScale(0); }), badOperand);
    QCOMPARE(errorOf([&] { value.toDecimal(); }), "C string xdecimal:nan");
    QCOMPARE(errorOf([&] { -value; }), "C string xdecimal:nan");
    QCOMPARE(errorOf([&] { xdecimal(1) + value; }), "C string xdecimal:nan");
    QCOMPARE(errorOf([&] { value* xdecimal(1); }), "C string xdecimal:nan");
    QCOMPARE(errorOf([] { xdecimal::fromInt64(1, 63); }), badOperand);
    QCOMPARE(errorOf([] { xdecimal::fromDouble(1, -63); }), badOperand);
    QCOMPARE(errorOf([] { xdecimal::fromDouble(1e26, 0); }), "C string xdecimal:overflow");
    QCOMPARE(errorOf([] { xdecimal::fromDouble(std::nan(""), 0); }), "C string xdecimal:overflow");
    QCOMPARE(xdecimal::fromDouble(-2.75, 1).toString(), "-2.8");
    QCOMPARE(xdecimal::fromDouble(2.5, 0).toString(), "3");
}

void TestDecimal::doubles_data()
{
    QTest::addColumn<double>("v");
    QTest::addColumn<int>("scale");
    QTest::addColumn<QString>("text"); // null: does not fit
    const auto row = [](double v, int scale, const char* text) {
        QTest::addRow("%g at %d", v, scale) << v << scale << QString::fromLatin1(text);
    };
    row(2.7, 0, "2");
    row(-2.7, 0, "-2");
    row(2.75, 1, "2.8");
    row(-2.75, 1, "-2.8");
    row(0.0, 2, "0.00");
    row(1290.0, -2, "1200");
    row(0.0, 100, "0.000000000000000000000000000000000000000000000000000000000000000");
    row(72057594037927928.0, 0, "72057594037927928");
    row(72057594037927936.0, 0, nullptr);
    row(-72057594037927936.0, 0, nullptr);
    row(1e17, 0, nullptr);
    row(1e15, 2, nullptr);
    row(std::numeric_limits<double>::infinity(), -5, nullptr);
    row(std::nan(""), 2, nullptr);
}

void TestDecimal::doubles()
{
    QFETCH(double, v);
    QFETCH(int, scale);
    QFETCH(QString, text);
    QString found;
    const QString error = errorOf([&] { found = decimal::fromDouble(v, short(scale)).toString(); });
    QCOMPARE(error, text.isNull() ? QStringLiteral("decimal:overflow") : QString());
    QCOMPARE(found, text);
    QCOMPARE(decimal(-125, 2).toDouble(), -1.25);
    QCOMPARE(decimal(7, -2).toDouble(), 700.0);
    QCOMPARE(decimal(1, 40).toDouble(), 1e-40);
}

// Run by ctest under two locales.
void TestDecimal::systemTexts()
{
    const QLocale system = QLocale::system();
    if (system.language() == QLocale::Russian)
        QCOMPARE(decimal(123456750, 2).toSystemString(), QStringLiteral("1\u00A0234\u00A0567,50"));
    else
        QCOMPARE(decimal(123456750, 2).toSystemString(), QStringLiteral("1,234,567.50"));
    const QString point = system.decimalPoint();
    QCOMPARE(decimal(-1500, 3).toSystemStringShort(), "-1" + point + '5');
    QCOMPARE(decimal(100, 0).toSystemStringShort(), "100");
    QCOMPARE(decimal(100, 2).toSystemStringShort(), "1");
    QCOMPARE(decimal(-1234, 2).toExcelString(), "-12" + point + "34");
    QCOMPARE(xdecimal("1200.0").toSystemStringShort(), system.toString(1200));
    QCOMPARE(xdecimal("-1200.5").toExcelString(), "-1200" + point + '5');
    Random random;
    for (int i = 0; i < 2000; ++i) {
        const decimal value(qint64(random.engine() >> (13 + random.below(50))) * (1 - i % 2 * 2),
                            random.below(15));
        const xdecimal extended(value);
        const QString text = system.toString(value.toDouble(), 'f', value.scale());
        QCOMPARE(value.toSystemString(), text);
        if (qAbs(value.mantissa()) < 10000000000000) { // what a double carries to and fro
            QCOMPARE(extended.toSystemString(), text);
            QCOMPARE(decimal::fromSystemString(text, value.scale()), value);
        }
        const QString exact = extended.toSystemString();
        QCOMPARE(xdecimal::fromSystemString(exact).toString(), extended.toString());
    }
    const QLocale german(QLocale::German);
    QCOMPARE(decimal::fromLocaleString("1.234,56", german, 2).toString(), "1234.56");
    QCOMPARE(xdecimal::fromLocaleString("-1.234,560", german).toString(), "-1234.560");
    QCOMPARE(xdecimal::fromLocaleString("12,E3", german).toString(), "12000");
    QCOMPARE(errorOf([&] { decimal::fromLocaleString("12x", german, 2); }),
             "Error in input local string '12x'");
    QCOMPARE(errorOf([&] { xdecimal::fromLocaleString("12x", german); }),
             QString::fromUtf8("Невозможно создать xdecimal по строке '12x'"));
}

void TestDecimal::anyText()
{
    const QString local = QLocale::system().toString(1234.5, 'f', 2);
    bool ok = false;
    QCOMPARE(decimal::fromAnyString(local, &ok, 1).toString(), "1234.5");
    QVERIFY(ok);
    QCOMPARE(decimal::fromAnyString("2.50", &ok, 0).toString(), "2.50"); // has its own scale
    QVERIFY(ok);
    QCOMPARE(xdecimal::fromAnyString(local, &ok).toString(), "1234.50");
    QVERIFY(ok);
    for (const char* text : {"", "abc", "1e999"}) {
        QCOMPARE(decimal::fromAnyString(text, &ok, 2).raw(), 0LL);
        QVERIFY(!ok);
        QCOMPARE(xdecimal::fromAnyString(text, &ok).toString(), "0");
        QVERIFY(!ok);
    }
}

void TestDecimal::variants_data()
{
    QTest::addColumn<QVariant>("variant");
    QTest::addColumn<QString>("text"); // as a decimal; null: cannot be
    QTest::addColumn<QString>("extended");
    const auto row = [](const char* name, const QVariant& variant, const QString& text,
                        const QString& extended) {
        QTest::newRow(name) << variant << text << extended;
    };
    row("decimal", decimal(150, 2).toVariant(), "1.50", "1.50");
    row("xdecimal", xdecimal("1.50").toVariant(), "1.50", "1.50");
    row("xdecimal out of range", xdecimal::maximum().toVariant(), QString(),
        xdecimal::maximum().toString());
    row("text", QStringLiteral("-1.5"), "-1.5", "-1.5");
    row("bytes", QByteArray("2e1"), "20", "20");
    row("bad text", QStringLiteral("1,5"), QString(), QString());
    row("int", -7, "-7", "-7");
    row("quint64", std::numeric_limits<quint64>::max(), "18446744073709551000",
        "18446744073709551615");
    row("bool", true, "1", "1");
    row("double", 0.1, "0.100000", "0.100000");
    row("large double", 1e12, "1000000000000.0000", "1000000000000.000000");
    row("infinity", std::numeric_limits<double>::infinity(), QString(), QString());
    row("float", 2.5F, "2.500000", "2.500000");
    row("invalid", QVariant(), QString(), QString());
    row("list", QVariantList{1}, QString(), QString());
}

void TestDecimal::variants()
{
    QFETCH(QVariant, variant);
    QFETCH(QString, text);
    QFETCH(QString, extended);
    bool ok = text.isNull();
    const decimal value = decimal::fromVariant(variant, &ok);
    QCOMPARE(ok, !text.isNull());
    QCOMPARE(value.toString(), ok ? text : QStringLiteral("0"));
    ok = extended.isNull();
    const xdecimal large = xdecimal::fromVariant(variant, &ok);
    QCOMPARE(ok, !extended.isNull());
    QCOMPARE(large.toString(), ok ? extended : QStringLiteral("0"));
    QVERIFY(decimal::canConvert(variant) || text.isNull());
    QVERIFY(xdecimal::canConvert(variant) || extended.isNull());
    QVERIFY(!decimal::canConvert(QVariant()) && !xdecimal::canConvert(QVariantList{1}));
    QCOMPARE(value.toVariant().userType(), decimal::metatypeId());
    QCOMPARE(QMetaType::type("decimal"), decimal::metatypeId());
    QCOMPARE(QMetaType::type("xdecimal"), xdecimal::metatypeId());
}

void TestDecimal::streamsAndHashes()
{
    const decimal value(-150, 2);
    const xdecimal extended("-1.5");
    QByteArray bytes;
    QDataStream writer(&bytes, QIODevice::WriteOnly);
    writer << value << extended;
    QCOMPARE(bytes.toHex(), QByteArray("82ffffffffffff6a"
                                       "1a018000000000000000000000000132"));
    decimal readValue;
    xdecimal readExtended;
    QDataStream reader(bytes);
    reader >> readValue >> readExtended;
    QCOMPARE(readValue.raw(), value.raw());
    QCOMPARE(readExtended.toString(), extended.toString());
    bytes[8 + 15] = 55; // no digit behind an odd scale
    for (int size : {8, 9, 20, bytes.size()}) {
        QDataStream stream(bytes.left(size));
        readExtended = extended;
        stream >> readValue >> readExtended;
        QCOMPARE(stream.status(),
                 size == bytes.size() ? QDataStream::ReadCorruptData : QDataStream::ReadPastEnd);
        QCOMPARE(readExtended.toString(), "0");
    }
}

// Bytes of no xdecimal must not get past the door.
void TestDecimal::foreignBytes()
{
    Random random;
    quint8 bytes[16] = {};
    QCOMPARE(xdecimal::fromRaw(bytes).toString(), "0");
    int numbers = 0;
    for (int i = 0; i < 20000; ++i) {
        const auto type = i % 2 ? BCDIITYPE(26, random.below(125) - 62) : random.engine();
        std::memcpy(bytes, &type, 2);
        for (int j = 2; j < 16; ++j)
            bytes[j] = static_cast<quint8>(random.below(i % 4 ? 100 : 256));
        if (i % 2 && bytes[0] & 1)
            bytes[15] = static_cast<quint8>(random.below(10) * 10);
        const xdecimal value = xdecimal::fromRaw(bytes);
        numbers += !value.isNaN();
        const unsigned int found = BCDIICheck(value.data());
        QVERIFY(value.isNaN() ? found == 0xA0 : (found & BCDII_RESULT_INVALID) == 0);
        QVERIFY(value.compare(value) == 0 && !value.toString().isEmpty());
        quint8 again[16];
        value.toRaw(again);
        QVERIFY(value.isNaN() || (value.type() & 1) || again[15] == 0);
        QVERIFY(value.isNaN() || std::memcmp(bytes, again, 15) == 0);
    }
    QVERIFY(numbers > 1000);
}

QTEST_GUILESS_MAIN(TestDecimal)
#include "tst_decimal.moc"
