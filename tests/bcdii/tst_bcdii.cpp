// SPDX-License-Identifier: MIT
#include "bcdii/bcdii.h"
#include "support/bcdiioracle.h"

#include <QtTest>

#include <cmath>
#include <functional>
#include <limits>

#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

using namespace Oracle;

namespace {

constexpr BCDIIroundstyle styles[] = {BCDII_ROUND_HALF_UP, BCDII_ROUND_CEILING, BCDII_ROUND_FLOOR,
                                      BCDII_ROUND_UP, BCDII_ROUND_DOWN};

unsigned int anyType(Random& random)
{
    return BCDIITYPE(1 + random.below(63), random.below(125) - 62);
}

// A type whose digits overlap with those of `other`.
unsigned int typeNear(Random& random, unsigned int other)
{
    const int scale = static_cast<signed char>(other & 255U) + random.below(17) - 8;
    return BCDIITYPE(1 + random.below(63), std::clamp(scale, -62, 62));
}

} // namespace

class TestBcdii : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void everyTypeHasItsSizeAndEnds()
    {
        for (unsigned int type = 0; type < 0x10000; ++type) {
            const int precision = static_cast<int>(type >> 8);
            const int scale = static_cast<signed char>(type & 255U);
            const bool valid = precision >= 1 && precision <= 63 && scale >= -62 && scale <= 62;
            QCOMPARE(BCDIICheckType(type | 0xFFFF0000U), valid);
            if (!valid)
                continue;
            const double ends =
                std::floor((precision - scale + 1) / 2.0) + std::floor((scale + 1) / 2.0);
            QCOMPARE(BCDIISIZE(type), static_cast<unsigned int>(ends));
            Buffer buffer(type);
            BCDIIInit(buffer.bytes, type);
            QCOMPARE(BCDIICheck(buffer.bytes), 0xA0U);
            const Big nines = power(precision) - 1;
            BCDIISetMax(buffer.bytes);
            QVERIFY(agrees("max", 0U, buffer, {0, nines}));
            BCDIISetMin(buffer.bytes);
            QVERIFY(agrees("min", 4U, buffer, {4, -nines}));
            QVERIFY(agrees("neg", BCDIINeg(buffer.bytes), buffer, {0, nines}));
            QCOMPARE(BCDIINeg(buffer.bytes), 4U);
            BCDIISetZero(buffer.bytes);
            QVERIFY(agrees("zero", BCDIINeg(buffer.bytes), buffer, {2, 0}));
        }
    }

    void allTypes()
    {
        Random random;
        for (int i = 0; i < 63 * 125 * 8; ++i) {
            const unsigned int aType = BCDIITYPE(1 + i / 8 % 63, i / 8 / 63 - 62);
            const unsigned int bType = i & 1 ? anyType(random) : typeNear(random, aType);
            const unsigned int resType = i & 2 ? anyType(random) : typeNear(random, bType);
            const Buffer a(random.digits(int(aType >> 8)), aType);
            Buffer b(random.digits(int(bType >> 8)), bType);
            const Stored near = store(-a.number, b.precision(), b.scale(), BCDII_ROUND_DOWN);
            if (i % 8 > 4 && !near.isMarked()) // -a or a neighbour of it: the sum cancels
                b = Buffer(near.n, bType);
            QVERIFY(operationsAgree(a, b, resType, styles[random.below(5)]));

            // The self-describing forms, in place.
            const auto inPlace = [](const char* operation, const Buffer& at, const Number& number,
                                    const std::function<unsigned int(Buffer&)>& operate) {
                Buffer same = at;
                const unsigned int flags = operate(same);
                return agrees(operation, flags, same, store(number, at.precision(), at.scale()));
            };
            QVERIFY(inPlace("a += b", a, a.number + b.number, [&](Buffer& same) {
                return BCDIIAdd(same.bytes, same.bytes, b.bytes);
            }));
            QVERIFY(inPlace("b *= a", b, a.number * b.number, [&](Buffer& same) {
                return BCDIIMul(same.bytes, a.bytes, same.bytes);
            }));
            QVERIFY(inPlace("copy", Buffer(resType), a.number, [&](Buffer& same) {
                std::memcpy(same.digits(), a.digits(), BCDIISIZE(aType));
                const unsigned int flags =
                    BCDIICopy(same.digits(), resType, same.digits(), aType, BCDII_ROUND_HALF_UP);
                std::memset(same.digits() + BCDIISIZE(resType), 0xEE, 33 - BCDIISIZE(resType));
                return flags;
            }));
        }
    }

    void bytesThatAreNoNumber()
    {
        const std::tuple<unsigned int, const char*, unsigned int> rows[] = {
            {0x0503, "0c2232", 0},    // 12.345
            {0x0503, "0c2237", 0x20}, // a digit behind the scale
            {0x0503, "0c6432", 0x20}, // a byte of 100
            {0x0502, "0a172d", 0x20}, // two digits for one
            {0x0503, "800000", 0x20}, // negative zero
            {0x0503, "e50000", 0x20}, // the mark with a sign
            {0x0503, "65ffff", 0xA0}, // the mark
            {0x053F, "010203", 0x20}, // no type
        };
        for (const auto& [type, hex, flags] : rows)
            QVERIFY2(BCDIICheck(QByteArray::fromHex(hex), type) == flags, hex);

        const Buffer one(10, BCDIITYPE(5, 1));
        Buffer mark = one;
        BCDIIInit(mark.bytes, one.type());
        Buffer res = one;
        QVERIFY(BCDIICopy(res.bytes, mark.bytes) == 0xB0 && res.digits()[0] == 101);
        res = one;
        QVERIFY(BCDIIAdd(res.bytes, mark.bytes, one.bytes) == 0xB0 && res.digits()[0] == 101);
        res = one;
        QVERIFY(BCDIIMul(res.bytes, one.bytes, mark.bytes) == 0xB0 && res.digits()[0] == 101);
        QCOMPARE(BCDIINeg(mark.bytes), 0xB0U);
        QCOMPARE(BCDIICmp(mark.bytes, Buffer(99999, one.type()).bytes), 1);
        long long n = 7;
        double v = 7;
        QVERIFY(BCDII2Int64(&n, mark.bytes, 0) == 0xB0 && n == 7);
        QVERIFY(BCDII2Double(&v, mark.bytes) == 0xB0 && v == 7);
        // A type without digits: what is discarded is all there is, and one unit has no room.
        const unsigned int flags[] = {0x42, 0x15, 0x42, 0x11, 0x42};
        for (const BCDIIroundstyle style : styles)
            QCOMPARE(BCDIICopy(res.digits(), 2, Buffer(4, 0x0303).digits(), 0x0303, style),
                     flags[style]);
    }

    void integers()
    {
        Random random;
        const Big limit = std::numeric_limits<qint64>::max();
        for (int i = 0; i < 60000; ++i) {
            const auto bits = i % 9 ? random.engine() >> random.below(64) : quint64(1) << 63;
            const auto n = static_cast<qint64>(bits);
            const int scale = random.below(8) ? random.below(41) - 20 : random.below(300) - 150;
            const unsigned int type = typeNear(random, static_cast<unsigned int>(scale));
            Buffer found(type);
            const auto expected = [&](const Big& number) {
                return store({number, scale}, found.precision(), found.scale(), BCDII_ROUND_DOWN);
            };
            unsigned int flags = BCDIIGetFromUInt64(found.bytes, bits, scale);
            QVERIFY(agrees("from uint64", flags, found, expected(bits)));
            found = Buffer(type);
            flags = BCDIIGetFromInt64(found.bytes, n, scale);
            QVERIFY(n >= 0 || (found.digits()[0] & 128 && flags & BCDII_RESULT_NEGATIVE));
            if (n < 0 && expected(n).n == 0) { // what is left has a sign that it should not have
                found.digits()[0] ^= 128;
                flags ^= BCDII_RESULT_NEGATIVE;
            }
            QVERIFY(agrees("from int64", flags, found, expected(n)));

            const BCDIIroundstyle style = styles[random.below(5)];
            Number value{random.digits(found.precision()), found.scale()};
            int outScale = scale;
            if (i % 2 && found.precision() > 20) { // next to the ends of what fits
                value.n = (limit + random.below(3)) * 10 + random.below(21) - 10;
                value.n *= random.below(2) ? 1 : -1;
                outScale = value.scale - 1;
            }
            const Stored kept = store(value, 19, outScale, style);
            const bool fits = !kept.isMarked() && kept.n >= -limit - 1 && kept.n <= limit;
            long long out = 7;
            flags = BCDII2Int64(&out, Buffer(value.n, type).digits(), type, outScale, style);
            QCOMPARE(flags, fits ? kept.flags : 0x11U);
            QVERIFY(out == (fits ? kept.n : Big(7)));
        }
    }

    void doubles()
    {
        Random random;
        for (int i = 0; i < 60000; ++i) {
            // Eighths are exact, so is their product with the power: the digits are known.
            const int eighths = random.below(1 << random.below(30)) * (random.below(2) ? 1 : -1);
            Buffer found(BCDIITYPE(1 + random.below(20), random.below(7)));
            Stored expected = store({Big(eighths) * 125, 3}, 40, found.scale());
            if (abs(expected.n) >= power(found.precision()))
                expected = {0x11, 0};
            expected.flags &= ~static_cast<unsigned int>(BCDII_RESULT_ROUNDED);
            const unsigned int flags = BCDIIGetFromDouble(found.bytes, eighths / 8.0);
            QVERIFY(agrees("from double", flags, found, expected));

            // A quotient of two exact doubles is the double nearest to the text.
            const int places = random.below(22);
            const auto n = static_cast<qint64>(random.engine() >> (14 + random.below(50)));
            double v = -1;
            BCDII2Double(&v, Buffer(n, BCDIITYPE(18, places)).bytes);
            QCOMPARE(v, (QByteArray::number(n) + "e-" + QByteArray::number(places)).toDouble());

            // Integers beyond 2^53 keep the precision of a double.
            const double large = std::ldexp(1.0 + random.below(1 << 20) / 1048576.0, 53 + i % 33);
            found = Buffer(BCDIITYPE(26, i % 2 * -3));
            QCOMPARE(BCDIIGetFromDouble(found.bytes, -large), 4U);
            BCDII2Double(&v, found.bytes);
            QVERIFY(std::fabs(v + large) <= 500.0 * (i % 2) + large * 2e-15);
        }
        for (const double v : {1e25, 1e300, -HUGE_VAL, std::nan("")}) {
            Buffer found(BCDIITYPE(25, 0));
            QVERIFY(agrees("too large", BCDIIGetFromDouble(found.bytes, v), found, {0x11, 0}));
        }
    }

    void texts()
    {
        for (const char* text : {"0", "-0.00", ".00", " ,0x", "", "abc", ".", "+-5", "- 5"}) {
            const bool isZero = std::strchr(text, '0');
            unsigned int type = BCDIITYPE(2, 4);
            Buffer buffer(type);
            bool ok = !isZero;
            QCOMPARE(BCDIIFromString(buffer.digits(), type, text), isZero ? 2U : 0x30U);
            QCOMPARE(type, buffer.type());
            QCOMPARE(BCDIIFromString(buffer.bytes, text, &ok), isZero ? 2U : 0xA0U);
            QCOMPARE(ok, isZero);
            QCOMPARE(BCDIIFromString(buffer.bytes, nullptr), 0xA0U);
        }
        Random random;
        const auto digits = [&](int size) {
            QByteArray all;
            for (const int zeros = random.below(3) ? 0 : random.below(size + 1); all.size() < size;)
                all += static_cast<char>('0' + (all.size() < zeros ? 0 : random.below(10)));
            return all;
        };
        char* written = nullptr;
        for (int i = 0; i < 60000; ++i) {
            const unsigned int oldType = anyType(random);
            const int precision = int(oldType >> 8);
            const QByteArray whole = digits(random.below(i % 8 ? 12 : 80));
            const QByteArray fraction = digits(random.below(i % 3 ? 12 : 100));
            const QByteArray sign = random.below(2) ? "-" : "";
            QByteArray number = whole + fraction;
            number.remove(0, int(std::strspn(number, "0"))); // or Boost takes it for octal
            if (number.isEmpty())
                continue;
            Buffer found(oldType);
            const bool tooLong = number.size() - fraction.size() > precision - found.scale();
            const int scale = tooLong ? found.scale() : qMin(62, fraction.size());
            const Number exact{Big((sign + number).toStdString()), fraction.size()};
            const Stored expected = tooLong ? Stored{0x11, 0} : store(exact, precision, scale);
            const QByteArray text = (i % 4 ? "" : " \t\r\n") + sign + whole +
                                    (random.below(2) ? '.' : ',') + fraction + (i % 5 ? "" : ".5");
            unsigned int type = oldType;
            const unsigned int flags = BCDIIFromString(found.digits(), type, text);
            QCOMPARE(type, BCDIITYPE(precision, scale));
            bool ok = expected.isMarked();
            found = Buffer(oldType);
            BCDIIFromString(found.bytes, text, &ok);
            QCOMPARE(ok, !expected.isMarked());
            QVERIFY2(agrees("from text", flags, found, expected), text);
            if (!ok)
                continue;
            QByteArray printed = QByteArray::fromStdString(Big(abs(expected.n)).str());
            printed = printed.rightJustified(scale + 1, '0');
            printed.remove(0, int(std::strspn(printed.left(printed.size() - scale), "0")));
            if (scale)
                printed.insert(printed.size() - scale, '.');
            written = BCDII2StringSequence(found.bytes, written);
            QCOMPARE(QByteArray(written), (expected.n < 0 ? "-" : "") + printed);
        }
        written = BCDII2StringSequence(Buffer(-12, BCDIITYPE(3, -3)).bytes, written);
        QCOMPARE(written, "-12000");
        std::free(written);
    }

    void misuseAborts()
    {
        const auto dies = [](const char* function, const char* expression, const auto& call) {
            int ends[2] = {};
            const pid_t child = ::pipe(ends) ? -1 : ::fork();
            if (child == 0) {
                ::dup2(ends[1], STDERR_FILENO);
                ::signal(SIGABRT, SIG_DFL);
                call();
                ::_exit(0);
            }
            ::close(ends[1]);
            char text[1024];
            const QByteArray message(text, qMax(0, int(::read(ends[0], text, sizeof text))));
            ::close(ends[0]);
            int status = 0;
            ::waitpid(child, &status, 0);
            return WIFSIGNALED(status) && WTERMSIG(status) == SIGABRT &&
                   message.contains(function) && message.contains(expression) &&
                   message.contains("src/database/bcdii: ");
        };
        Buffer bad(0x1A3F);
        std::memset(bad.digits(), 0, 32);
        const char* type = "BCDIICheckType(type)";
        QVERIFY(dies("BCDIIInit", type, [&] { BCDIIInit(bad.bytes, bad.type()); }));
        QVERIFY(dies("_quickSetNULL", type, [&] { BCDIISetZero(bad.bytes); }));
        QVERIFY(dies("_quickIsNULL", type, [&] { BCDIINeg(bad.bytes); }));
        QVERIFY(dies("round_internal", "!\"Wrong roundstyle parameter\"", [&] {
            BCDIICopy(bad.digits(), BCDIITYPE(1, 0), Buffer(15, 0x0201).digits(), 0x0201,
                      BCDIIroundstyle(5));
        }));
    }
};

QTEST_GUILESS_MAIN(TestBcdii)
#include "tst_bcdii.moc"
