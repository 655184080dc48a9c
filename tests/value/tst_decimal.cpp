// SPDX-License-Identifier: MIT
#include "support/decimaloracle.h"
#include "support/outcome.h"

#include <QDataStream>
#include <QLocale>
#include <QtTest>

#include <cmath>
#include <functional>
#include <limits>

using namespace Oracle;

namespace {

constexpr qint64 end56 = qint64(1) << 56;
constexpr quint64 maximum64 = std::numeric_limits<quint64>::max();

// Whether the byte that an even scale leaves unused is 0, so that equal numbers are saved as equal
// bytes.
bool isPadded(const xdecimal& value)
{
    return value.type() & 1 || static_cast<const quint8*>(value.data())[15] == 0;
}

// The largest scale from `highest` down at which the number, rounded half away from zero, fits.
template <typename Fits>
Number atLargestScale(const Number& number, int highest, Fits fits)
{
    while (!fits(store(number, 160, highest).n))
        --highest;
    return {store(number, 160, highest).n, highest};
}

bool fitsMantissa(const Big& n)
{
    return n >= -Big(end56) && n < Big(end56);
}

bool fits26(const Big& n)
{
    return abs(n) < power(26);
}

decimal anyDecimal(Random& random, int spread = 127)
{
    qint64 mantissa = static_cast<qint64>(random.digits(16));
    if (random.below(8) == 0) // at the ends of what fits
        mantissa = random.below(2) ? end56 - 1 - random.below(3) : -end56 + random.below(3);
    return decimal::fromMantissa(mantissa, random.below(spread) - spread / 2);
}

xdecimal anyXDecimal(Random& random)
{
    const int scale = random.below(3) ? random.below(20) - 5 : random.below(125) - 62;
    return xdecimal(QString::fromStdString(random.digits(26).str()) + 'e' +
                    QString::number(-scale));
}

QByteArray show(const Number& number)
{
    return QByteArray::fromStdString(number.n.str()) + '@' + QByteArray::number(number.scale);
}

} // namespace

class TestDecimal : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void words()
    {
        QCOMPARE(decimal::minimum.raw(), decimal(1 - (1LL << 52), -63).raw());
        QCOMPARE(quint64(decimal(5, -1).raw()), Q_UINT64_C(0x7F00000000000005));
        Random random;
        for (int i = 0; i < 20000; ++i) { // every word is some mantissa and scale, and made of them
            const decimal value = decimal::fromRaw(static_cast<qint64>(random.engine()));
            QVERIFY(fitsMantissa(value.mantissa()) && value.scale() >= -64 && value.scale() <= 63);
            QCOMPARE(decimal::fromMantissa(value.mantissa(), value.scale()).raw(), value.raw());
        }
        QCOMPARE(decimal(end56).raw(), decimal(end56 / 10, -1).raw());
        QCOMPARE(decimal(maximum64).raw(), decimal(18446744073709551LL, -3).raw());
        QCOMPARE(decimal(1298, 65).raw(), decimal(12, 63).raw());
        QCOMPARE(decimal(0, 1000).raw(), decimal(0, 63).raw());
    }

    // Each text as a decimal (mantissa, "@", scale) and as an xdecimal, or why it is none: "-" it
    // has no form, "!" it has one and does not fit, "e" its exponent leads too far.
    void texts()
    {
        const auto row = [](const QString& text, const QString& word, const QString& printed) {
            const auto messageOf = [&text](const char* type, const QString& result) {
                const QString message =
                    QString::fromUtf8("Q:Невозможно создать %1 по строке '%2'%3");
                const QString detail =
                    result == u'e' ? " (" + text.section(u'e', 1) + u')' : QString();
                return result.size() == 1 && !result.at(0).isDigit()
                           ? message.arg(type, text, detail)
                           : QString();
            };
            QCOMPARE(decimal::canConvert(text, false), word != u'-');
            QCOMPARE(decimal::canConvert(text, true), word != u'-' || text.isEmpty());
            QCOMPARE(xdecimal::canConvert(text, false), printed != u'-');
            decimal value = decimal::maximum;
            decimal ofBytes = decimal::maximum;
            const QByteArray bytes = text.toLatin1();
            const QString message = messageOf("decimal", word);
            QCOMPARE(outcome([&] { value = decimal(text); }), message);
            QCOMPARE(decimal::tryParse(bytes.data(), bytes.size(), &ofBytes), message.isNull());
            QCOMPARE(ofBytes.raw(), value.raw());
            if (message.isNull())
                QCOMPARE(QStringLiteral("%1@%2").arg(value.mantissa()).arg(value.scale()), word);
            const QString xmessage = messageOf("xdecimal", printed);
            QString found = printed;
            QCOMPARE(outcome([&] { found = xdecimal(text).toString(); }), xmessage);
            QCOMPARE(found, printed);
            QCOMPARE(outcome([&] { xdecimal(QStringRef(&text)); }), xmessage);
        };
        for (const char* text :
             {"", "-", ".", "5.", ".e5", "1e", "1e+", " 1", "1 ", "1E5", "1.2.3"})
            row(text, "-", "-");
        for (const char* text : {"1,5", ",5", "1,5e2", "1,e2", "\u0663"})
            row(QString::fromUtf8(text), "!", "!");
        const QString nines(26, u'9');
        const QString zeros(61, u'0');
        const std::tuple<QString, QString, QString> rows[] = {
            {"1.50", "150@2", "1.50"},
            {"-.5", "-5@1", "-0.5"},
            {"1.5e3", "15@-2", "1500"},
            {"5.e-3", "5@3", "-"},
            {"72057594037927935", "72057594037927935@0", "72057594037927935"},
            {"-72057594037927936", "-72057594037927936@0", "-72057594037927936"},
            {"-72057594037927937", "-7205759403792793@-1", "-72057594037927937"},
            {"99999999999999999999", "!", "99999999999999999999"},
            {"9223372036854775808", "!", "9223372036854775808"},
            {"-9223372036854775808", "-9223372036854775@-3", "-9223372036854775808"},
            {"1.99999999999999999999", "19999999999999999@16", "1.99999999999999999999"},
            {"72057594037927936.9", "7205759403792793@-1", "72057594037927936.9"},
            {"0." + zeros + "129", "12@63", "0." + zeros + '1'},
            {"1e-63", "1@63", "e"},
            {"1e-64", "e", "e"},
            {nines, "!", nines},
            {nines + "e1", "!", nines + u'0'},
            {nines + ".4", "!", nines},
            {nines + ".5", "!", "!"},
            {"9." + QString(40, u'9'), "9999999999999999@15", "10." + QString(24, u'0')},
            {"0." + QString(300, u'0') + "1", "0@63", "0." + QString(62, u'0')},
            {"1234567890123456789012345678901e-31", "!", "0.12345678901234567890123457"}};
        for (const auto& [text, word, printed] : rows)
            row(text, word, printed);
    }

    void printing()
    {
        QCOMPARE(decimal(0, -2).toString(), "0");
        QCOMPARE(decimal(end56 - 1, 2).toString(), "720575940379279.36"); // as a double would
        Random random;
        for (int i = 0; i < 20000; ++i) {
            const decimal value = anyDecimal(random);
            if (value.mantissa() == 0 || (value.scale() > 0 && qAbs(value.mantissa()) > 1LL << 53))
                continue;
            QString expected =
                QString::number(qAbs(value.mantissa())) + QString(-value.scale(), u'0');
            if (value.scale() > 0) {
                expected = expected.rightJustified(value.scale() + 1, u'0');
                expected.insert(expected.size() - value.scale(), u'.');
            }
            QCOMPARE(value.toString(), (value.mantissa() < 0 ? "-" : "") + expected);
            if (value.scale() >= 0)
                QCOMPARE(decimal(value.toString()).raw(), value.raw());
            if (value.scale() >= -62 && value.scale() <= 62)
                QCOMPARE(xdecimal(value).toString(), value.toString());
        }
    }

    void decimalArithmetic()
    {
        // A digit far behind the last place kept decides a tie.
        QCOMPARE((decimal(1) - decimal(5000000000000001, 32)).mantissa(), 9999999999999999LL);
        QCOMPARE((decimal(1) - decimal(5000000000000000, 32)).mantissa(), 10000000000000000LL);
        QVERIFY(decimal(1) < decimal(10000000000000001, 16));
        Random random;
        for (int i = 0; i < 40000; ++i) {
            const decimal a = anyDecimal(random, i % 2 ? 20 : 127);
            decimal b = anyDecimal(random, i % 3 ? 20 : 127);
            if (i % 4 == 0) { // equal to a but for the scale, or next to it
                b = a;
                b.setScale(static_cast<short>(a.scale() + random.below(9) - 4));
                const qint64 next = b.mantissa() + random.below(3) - 1;
                b = decimal::fromMantissa(qBound(-end56, next, end56 - 1), b.scale());
            }
            const Number x = numberOf(a);
            const Number y = numberOf(b);
            const QByteArray message = show(x) + ", " + show(y);
            const int order = x.compare(y);
            QVERIFY2(a.compare(b) == order && b.compare(a) == -order, message);
            QVERIFY2((a == b) == (order == 0) && (a < b) == (order < 0) && (a >= b) == (order >= 0),
                     message);
            QVERIFY2(order != 0 || qHash(a, 5) == qHash(b, 5), message);

            const auto agrees = [&](const Number& exact,
                                    const std::function<decimal()>& operation) {
                const Number expected =
                    atLargestScale(exact, std::max(x.scale, y.scale), fitsMantissa);
                return expected.scale < -64 || same(numberOf(operation()), expected);
            };
            QVERIFY2(agrees(x + y, [&] { return a + b; }), message);
            QVERIFY2(agrees(x + -y, [&] { return a - b; }), message);

            // More digits as long as they fit, fewer by rounding.
            const auto target = static_cast<short>(random.below(150) - 75);
            Number expected{0, std::min(std::max<int>(target, -64), 63)};
            while (expected.scale > x.scale && !fitsMantissa(x.at(expected.scale)))
                --expected.scale;
            expected.n = store(x, 160, expected.scale).n;
            decimal scaled = a;
            QVERIFY2(same(numberOf(scaled.setScale(target)), expected), message);
        }
    }

    void xdecimalArithmetic()
    {
        Random random;
        for (int i = 0; i < 8000; ++i) {
            const xdecimal a = anyXDecimal(random);
            const xdecimal b = anyXDecimal(random);
            const Number x = numberOf(a);
            const Number y = numberOf(b);
            const QByteArray message = show(x) + ", " + show(y);
            QVERIFY2(a.compare(b) == x.compare(y), message);
            const auto agrees = [](const std::function<xdecimal()>& operation, const Number& exact,
                                   int highest) {
                const Number expected = atLargestScale(exact, highest, fits26);
                xdecimal found;
                const QString error = outcome([&] { found = operation(); });
                return expected.scale < -62
                           ? error == u"C:xdecimal:overflow"
                           : error.isNull() && same(numberOf(found), expected) && isPadded(found);
            };
            const int larger = std::max(x.scale, y.scale);
            QVERIFY2(agrees([&] { return a + b; }, x + y, larger), message);
            QVERIFY2(agrees([&] { return a - b; }, x + -y, larger), message);
            const int both = std::min(std::max(x.scale + y.scale, -62), 62);
            QVERIFY2(agrees([&] { return a * b; }, x * y, both), message);

            const auto target = static_cast<short>(random.below(125) - 62);
            const Stored expected = store(x, 26, target);
            xdecimal scaled = a;
            unsigned int flags = 0;
            const QString error = outcome([&] { flags = scaled.setScale(target); });
            QVERIFY2(error.isNull() != expected.isMarked(), message);
            QCOMPARE(scaled.isNaN(), expected.isMarked());
            if (!scaled.isNaN()) {
                QVERIFY2(same(numberOf(scaled), {expected.n, target}), message);
                QCOMPARE(flags, expected.flags & ~static_cast<unsigned int>(BCDII_RESULT_ROUNDED));
                QVERIFY2(scaled != a || qHash(scaled) == qHash(a), message);
            }
        }
    }

    void conversions()
    {
        Random random;
        for (int i = 0; i < 128 * 50; ++i) {
            const int scale = i % 128 - 64;
            const decimal value(anyDecimal(random).mantissa(), scale);
            const int kept = qBound(-62, scale, 62); // the largest scale an xdecimal has is 62
            QVERIFY(same(numberOf(xdecimal(value)), {store(numberOf(value), 26, kept).n, kept}));

            const xdecimal large = anyXDecimal(random);
            const Number expected = atLargestScale(numberOf(large), large.scale(), fitsMantissa);
            decimal found;
            const QString error = outcome([&] { found = large.toDecimal(); });
            QVERIFY2(expected.scale < -63 ? error == u"Q:decimal:overflow"
                                          : same(numberOf(found), expected),
                     show(expected));
        }
        QCOMPARE(xdecimal::minimum().toString(), '-' + QString(26, u'9') + QString(62, u'0'));
        QCOMPARE(-xdecimal::d[0], xdecimal::maximum());
    }

    void errorsAndDoubles()
    {
        const char* overflow = "Q:decimal:overflow";
        const decimal largest(end56 - 1, -64);
        QCOMPARE(outcome([] { decimal(end56, -63); }), overflow);
        QCOMPARE(outcome([] { decimal(maximum64, -61); }), overflow);
        QCOMPARE(outcome([&] { largest + largest; }), overflow);
        const char* xoverflow = "C:xdecimal:overflow";
        for (const double v :
             {72057594037927936.0, -72057594037927936.0, 1e17, HUGE_VAL, std::nan("")}) {
            QCOMPARE(outcome([=] { decimal::fromDouble(v, 0); }), overflow);
            QCOMPARE(outcome([=] { xdecimal::fromDouble(v, 12); }), xoverflow);
        }
        QCOMPARE(outcome([] { decimal::fromLocaleString("12x", QLocale::c(), 2); }),
                 "Q:Error in input local string '12x'");

        const char* operand = "C:xdecimal:bad operand";
        const char* nan = "C:xdecimal:nan";
        xdecimal mark(QString(26, u'9') + "e1");
        QCOMPARE(outcome([&] { mark.setScale(63); }), operand);
        QVERIFY(!mark.isNaN());
        QCOMPARE(outcome([&] { mark.setScale(0); }), operand); // 27 digits
        QVERIFY(mark.isNaN() && mark.toString() == "NaN" && mark.toSystemString() == "NaN");
        QVERIFY(std::isnan(mark.toDouble()) && mark > xdecimal(1));
        QCOMPARE(outcome([] { xdecimal::fromDouble(1, -63); }), operand);
        QCOMPARE(outcome([&] { mark.toDecimal(); }), nan);
        QCOMPARE(outcome([&] { -mark; }), nan);
        QCOMPARE(outcome([&] { xdecimal(1) + mark; }), nan);
        QCOMPARE(outcome([&] { mark* xdecimal(1); }), nan);

        QCOMPARE(decimal::fromDouble(2.7, 0).toString(), "2"); // cut, at scales above 0 rounded
        QCOMPARE(decimal::fromDouble(-2.75, 1).toString(), "-2.8");
        QCOMPARE(decimal::fromDouble(72057594037927928.0, 0).mantissa(), 72057594037927928LL);
        QCOMPARE(xdecimal::fromDouble(-2.75, 1).toString(), "-2.8");
        QCOMPARE(decimal(1, 40).toDouble(), 1e-40);
    }

    // Run by ctest under two locales.
    void systemTexts()
    {
        const QLocale system = QLocale::system();
        const bool russian = system.language() == QLocale::Russian;
        QCOMPARE(decimal(123456750, 2).toSystemString(),
                 russian ? QStringLiteral("1\u00A0234\u00A0567,50")
                         : QStringLiteral("1,234,567.50"));
        const QString point = russian ? "," : ".";
        QCOMPARE(decimal(-1500, 3).toSystemStringShort(), "-1" + point + '5');
        QCOMPARE(xdecimal("-1234.56").toExcelString(), "-1234" + point + "56");
        Random random;
        for (int i = 0; i < 2000; ++i) {
            const auto mantissa = qint64(random.engine() >> (20 + random.below(43))); // below 2^44
            const decimal value(i % 2 ? mantissa : -mantissa, random.below(15));
            const QString text = system.toString(value.toDouble(), 'f', value.scale());
            QCOMPARE(value.toSystemString(), text);
            QCOMPARE(xdecimal(value).toSystemString(), text);
            QCOMPARE(xdecimal::fromSystemString(text).toString(), value.toString());
            if (mantissa < 1LL << 40) // more than this the steps from a double blur
                QCOMPARE(decimal::fromSystemString(text, value.scale()).raw(), value.raw());
        }
        const QLocale german(QLocale::German);
        QCOMPARE(decimal::fromLocaleString("1.234,56", german, 2).toString(), "1234.56");
        QCOMPARE(xdecimal::fromLocaleString("-1.234,560", german).toString(), "-1234.560");
        QCOMPARE(xdecimal::fromLocaleString("12,E3", german).toString(), "12000");

        bool ok = false;
        QCOMPARE(decimal::fromAnyString("1" + point + "250", &ok, 1).toString(),
                 russian ? "1.3" : "1.250");
        QCOMPARE(xdecimal::fromAnyString("1" + point + "250").toString(), "1.250");
        QVERIFY(ok);
        for (const char* text : {"", "abc", "1e999"}) {
            QVERIFY(decimal::fromAnyString(text, &ok, 2).raw() == 0 && !ok);
            QVERIFY(xdecimal::fromAnyString(text, &ok).toString() == u'0' && !ok);
        }
    }

    void streams()
    {
        QByteArray bytes;
        QDataStream writer(&bytes, QIODevice::WriteOnly);
        writer << decimal(-150, 2) << xdecimal("-1.5");
        QCOMPARE(bytes.toHex(), QByteArray("82ffffffffffff6a1a018000000000000000000000000132"));
        for (const int size : {7, 8, 23, 24, 25}) {
            bytes[23] = size == 25 ? 55 : 50; // a digit behind the scale
            QDataStream reader(bytes.left(size));
            decimal value;
            xdecimal extended("7");
            reader >> value >> extended;
            QCOMPARE(value.raw(), size < 8 ? 0 : decimal(-150, 2).raw());
            QVERIFY((reader.status() == QDataStream::Ok) == (size == 24));
            QCOMPARE(extended.toString(), size == 24 ? "-1.5" : "0");
        }
    }

    // Bytes of no xdecimal must not get past the door.
    void foreignBytes()
    {
        Random random;
        quint8 bytes[16] = {};
        QCOMPARE(xdecimal::fromRaw(bytes).toString(), "0");
        int numbers = 0;
        for (int i = 0; i < 20000; ++i) {
            for (quint8& byte : bytes)
                byte = static_cast<quint8>(random.below(i % 4 ? 100 : 256));
            const unsigned int type = BCDIITYPE(26, random.below(128) - 64);
            if (i % 2)
                std::memcpy(bytes, &type, 2);
            const xdecimal value = xdecimal::fromRaw(bytes);
            const unsigned int found = BCDIICheck(value.data());
            QVERIFY(value.isNaN() ? found == 0xA0 : (found & BCDII_RESULT_INVALID) == 0);
            QVERIFY(value.compare(value) == 0 && !value.toString().isEmpty());
            bytes[15] = value.type() & 1 ? bytes[15] : 0;
            quint8 again[16];
            value.toRaw(again);
            QVERIFY(value.isNaN() || std::memcmp(bytes, again, 16) == 0);
            numbers += !value.isNaN();
        }
        QVERIFY(numbers > 1000);
    }
};

QTEST_GUILESS_MAIN(TestDecimal)
#include "tst_decimal.moc"
