// SPDX-License-Identifier: MIT
#include "bcdii/bcdii.h"
#include "support/numberoracle.h"

#include <QtTest>

#include <cmath>
#include <limits>

#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

using namespace Oracle;

namespace {

constexpr BCDIIroundstyle styles[] = {BCDII_ROUND_HALF_UP, BCDII_ROUND_CEILING, BCDII_ROUND_FLOOR,
                                      BCDII_ROUND_UP, BCDII_ROUND_DOWN};

QByteArray show(const Buffer& buffer)
{
    const int size = static_cast<int>(BCDIISIZE(buffer.type()));
    return '(' + QByteArray::number(buffer.precision()) + ',' + QByteArray::number(buffer.scale()) +
           ") " + QByteArray(reinterpret_cast<const char*>(buffer.digits()), size).toHex(' ');
}

// Says what went wrong; false.
bool differs(const char* operation, std::initializer_list<Buffer> operands, const QByteArray& found,
             const QByteArray& expected)
{
    QByteArray message = operation;
    for (const Buffer& operand : operands)
        message += "  " + show(operand);
    qWarning("%s gives %s, expected %s", message.constData(), found.constData(),
             expected.constData());
    return false;
}

// Whether an operation stored what the oracle says, with its flags, and nothing beside it.
template <typename Int>
bool stored(const char* operation, std::initializer_list<Buffer> operands, unsigned int flags,
            const Buffer& found, const Stored<Int>& expected)
{
    bool equal = flags == expected.flags && found.guarded();
    Buffer expectedBytes(found.type());
    if (expected.isMarked()) {
        equal = equal && found.digits()[0] == 101 && BCDIICheck(found.bytes) == 0xA0;
    } else {
        const unsigned int state = flags & (BCDII_RESULT_ZERO | BCDII_RESULT_NEGATIVE);
        expectedBytes = encode(expected.n, found.type());
        equal = equal && std::memcmp(expectedBytes.bytes, found.bytes, sizeof found.bytes) == 0 &&
                BCDIICheck(found.bytes) == state;
    }
    return equal || differs(operation, operands, QByteArray::number(flags, 16) + ' ' + show(found),
                            QByteArray::number(expected.flags, 16) + ' ' + show(expectedBytes));
}

// Every two-operand function and the copy of the first one, into resType, against the oracle.
template <typename Int>
bool operationsAgree(const Buffer& a, const Number<Int>& aNumber, const Buffer& b,
                     const Number<Int>& bNumber, unsigned int resType, BCDIIroundstyle style)
{
    Buffer res(resType);
    const int precision = res.precision();
    const int scale = res.scale();
    // Bits above the type word must not matter.
    const unsigned int aType = a.type() | 0xABC0000U;
    unsigned int flags =
        BCDIIAdd(res.digits(), resType, a.digits(), aType, b.digits(), b.type(), style);
    bool good =
        stored("add", {a, b}, flags, res, store(sum(aNumber, bNumber), precision, scale, style));
    res.setType(resType);
    flags = BCDIIMul(res.digits(), resType, a.digits(), aType, b.digits(), b.type(), style);
    good = good && stored("mul", {a, b}, flags, res,
                          store(product(aNumber, bNumber), precision, scale, style));
    res.setType(resType);
    flags = BCDIICopy(res.digits(), resType, a.digits(), aType, style);
    good = good && stored("copy", {a}, flags, res, store(aNumber, precision, scale, style));
    const int order = BCDIICmp(a.digits(), aType, b.digits(), b.type());
    const int expected = compare(aNumber, bNumber);
    return good && (order == expected || differs("cmp", {a, b}, QByteArray::number(order),
                                                 QByteArray::number(expected)));
}

// A type whose digits overlap with those of `other`.
unsigned int typeNear(Random& random, unsigned int other)
{
    const int scale = static_cast<signed char>(other & 255U) + random.below(17) - 8;
    return BCDIITYPE(1 + random.below(63), std::clamp(scale, -62, 62));
}

unsigned int anyType(Random& random)
{
    return BCDIITYPE(1 + random.below(63), random.below(125) - 62);
}

} // namespace

class TestBcdii : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void typesHaveTheirSize();
    void layout_data();
    void layout();
    void checkRefuses_data();
    void checkRefuses();
    void rounding_data();
    void rounding();
    void smallTypes();
    void allTypes();
    void marksPropagate();
    void integers_data();
    void integers();
    void randomIntegers();
    void doubles_data();
    void doubles();
    void randomDoubles();
    void text_data();
    void text();
    void randomText();
    void misuseAborts_data();
    void misuseAborts();
};

void TestBcdii::typesHaveTheirSize()
{
    for (unsigned int type = 0; type < 0x10000; ++type) {
        const int precision = static_cast<int>(type >> 8);
        const int scale = static_cast<signed char>(type & 255U);
        const bool valid = precision >= 1 && precision <= 63 && scale >= -62 && scale <= 62;
        QCOMPARE(BCDIICheckType(type | 0xFFFF0000U), valid);
        if (!valid)
            continue;
        const int ball = static_cast<int>(std::floor((precision - scale + 1) / 2.0) +
                                          std::floor((scale + 1) / 2.0));
        QCOMPARE(BCDIISIZE(type), static_cast<unsigned int>(ball));

        // What an initialised buffer, zero and both ends look like.
        Buffer buffer(type);
        BCDIIInit(buffer.bytes, type);
        QCOMPARE(BCDIICheck(buffer.bytes), 0xA0U);
        const Big nines = power<Big>(precision) - 1;
        BCDIISetMax(buffer.bytes);
        QVERIFY(stored("max", {}, 0U, buffer, Stored<Big>{0, nines}));
        BCDIISetMin(buffer.bytes);
        QVERIFY(stored("min", {}, 4U, buffer, Stored<Big>{4, -nines}));
        QCOMPARE(BCDIINeg(buffer.bytes), 0U);
        QVERIFY(stored("neg", {}, 0U, buffer, Stored<Big>{0, nines}));
        QCOMPARE(BCDIINeg(buffer.bytes), 4U);
        BCDIISetZero(buffer.bytes);
        QVERIFY(stored("zero", {}, 2U, buffer, Stored<Big>{2, 0}));
        QCOMPARE(BCDIINeg(buffer.bytes), 2U);
    }
}

void TestBcdii::layout_data()
{
    QTest::addColumn<unsigned int>("type");
    QTest::addColumn<QByteArray>("text");
    QTest::addColumn<QByteArray>("hex");
    QTest::newRow("even scale") << BCDIITYPE(5, 2) << QByteArray("123.45") << QByteArray("01172d");
    QTest::newRow("negative") << BCDIITYPE(5, 2) << QByteArray("-123.45") << QByteArray("81172d");
    QTest::newRow("odd scale") << BCDIITYPE(5, 3) << QByteArray("12.345") << QByteArray("0c2232");
    QTest::newRow("below the point") << BCDIITYPE(2, 4) << QByteArray(".0012") << QByteArray("0c");
}

void TestBcdii::layout()
{
    QFETCH(unsigned int, type);
    QFETCH(QByteArray, text);
    QFETCH(QByteArray, hex);
    Buffer buffer(type);
    bool ok = false;
    BCDIIFromString(buffer.bytes, text.constData(), &ok);
    QVERIFY(ok);
    QCOMPARE(buffer.type(), type);
    QCOMPARE(QByteArray(reinterpret_cast<char*>(buffer.digits()), int(BCDIISIZE(type))).toHex(),
             hex);
    char* found = BCDII2StringSequence(buffer.bytes, static_cast<char*>(std::malloc(8)));
    QCOMPARE(QByteArray(found), text);
    std::free(found);
}

void TestBcdii::checkRefuses_data()
{
    QTest::addColumn<unsigned int>("type");
    QTest::addColumn<QByteArray>("hex");
    QTest::addColumn<unsigned int>("flags");
    const unsigned int p53 = BCDIITYPE(5, 3);
    QTest::newRow("a digit behind the scale") << p53 << QByteArray("0c2237") << 0x20U;
    QTest::newRow("a last byte of 100") << p53 << QByteArray("0c2264") << 0x20U;
    QTest::newRow("a byte of 100") << p53 << QByteArray("0c6432") << 0x20U;
    QTest::newRow("two digits for one") << BCDIITYPE(5, 2) << QByteArray("0a172d") << 0x20U;
    QTest::newRow("negative zero") << p53 << QByteArray("800000") << 0x20U;
    QTest::newRow("a first byte of 100") << p53 << QByteArray("640000") << 0x20U;
    QTest::newRow("the mark with a sign") << p53 << QByteArray("e50000") << 0x20U;
    QTest::newRow("the mark") << p53 << QByteArray("65ffff") << 0xA0U;
    QTest::newRow("no type") << 0x1A3FU << QByteArray("010203") << 0x20U;
}

void TestBcdii::checkRefuses()
{
    QFETCH(unsigned int, type);
    QFETCH(QByteArray, hex);
    QFETCH(unsigned int, flags);
    QCOMPARE(BCDIICheck(QByteArray::fromHex(hex).constData(), type), flags);
}

void TestBcdii::rounding_data()
{
    QTest::addColumn<QByteArray>("text");
    QTest::addColumn<unsigned int>("type");
    QTest::addColumn<int>("style");
    QTest::addColumn<unsigned int>("flags");
    QTest::addColumn<QByteArray>("result");
    const auto row = [](const char* text, unsigned int type, int style, unsigned int flags,
                        const char* result) {
        QTest::addRow("%s into %04x, style %d", text, type, style)
            << QByteArray(text) << type << style << flags << QByteArray(result);
    };
    row("99.5", BCDIITYPE(2, 0), 0, 0x51, "");
    row("99.5", BCDIITYPE(2, 0), 4, 0x40, "99");
    row("9.95", BCDIITYPE(2, 1), 0, 0x51, "");
    for (int style = 0; style < 5; ++style)
        row("12.34", BCDIITYPE(3, 2), style, 0x11, "");
    row("-0.004", BCDIITYPE(4, 2), 0, 0x42, ".00");
    row("-0.004", BCDIITYPE(4, 2), 2, 0x44, "-.01");
    row("2.50", BCDIITYPE(4, 1), 3, 0x00, "2.5");
    row("-25", BCDIITYPE(2, -1), 0, 0x44, "-30");
}

void TestBcdii::rounding()
{
    QFETCH(QByteArray, text);
    QFETCH(unsigned int, type);
    QFETCH(int, style);
    QFETCH(unsigned int, flags);
    QFETCH(QByteArray, result);
    Buffer source(BCDIITYPE(20, 3));
    BCDIIFromString(source.bytes, text.constData());
    Buffer target(type);
    QCOMPARE(BCDIICopy(target.digits(), type, source.digits(), source.type(), styles[style]),
             flags);
    if (flags & BCDII_RESULT_ERROR) {
        QCOMPARE(target.digits()[0], quint8(101));
        return;
    }
    char* found = BCDII2StringSequence(target.bytes);
    QCOMPARE(QByteArray(found), result);
    std::free(found);
}

// Each number of some small types against each.
void TestBcdii::smallTypes()
{
    struct Value
    {
        Buffer buffer;
        Number<qint64> number;
    };
    std::vector<unsigned int> types;
    for (int scale = -2; scale <= 3; ++scale) {
        for (int precision = 1; precision <= 3; ++precision)
            types.push_back(BCDIITYPE(precision, scale));
    }
    std::vector<Value> values;
    for (const unsigned int type : types) {
        const qint64 end = power<qint64>(int(type >> 8));
        for (qint64 n = 1 - end; n < end; ++n) {
            const Value value{encode(n, type), {n, static_cast<signed char>(type)}};
            // Of three digits only numbers near the ends: the full square takes too long.
            if (end < 1000 || std::abs(n) > 996 || (n > -13 && n < -7))
                values.push_back(value);
            for (const unsigned int copyType : types) {
                for (const BCDIIroundstyle style : styles) {
                    Buffer copy(copyType);
                    const unsigned int flags =
                        BCDIICopy(copy.digits(), copyType, value.buffer.digits(), type, style);
                    QVERIFY(stored("copy", {value.buffer}, flags, copy,
                                   store(value.number, copy.precision(), copy.scale(), style)));
                }
            }
        }
    }
    unsigned int turn = 0;
    for (const Value& a : values) {
        for (const Value& b : values) {
            const unsigned int type = types[turn++ % types.size()];
            QVERIFY(
                operationsAgree(a.buffer, a.number, b.buffer, b.number, type, styles[turn % 5]));
        }
    }
}

void TestBcdii::allTypes()
{
    Random random;
    for (int precision = 1; precision <= 63; ++precision) {
        for (int scale = -62; scale <= 62; ++scale) {
            for (int round = 0; round < 8; ++round) {
                const unsigned int aType = BCDIITYPE(precision, scale);
                const unsigned int bType = round & 1 ? anyType(random) : typeNear(random, aType);
                const unsigned int resType = round & 2 ? anyType(random) : typeNear(random, bType);
                const Number<Big> a{random.digits(precision), scale};
                Number<Big> b{random.digits(int(bType >> 8)), static_cast<signed char>(bType)};
                const BCDIIroundstyle style = styles[random.below(5)];
                if (round > 4) { // a neighbour of -a, or -a itself: the sum cancels
                    const Stored<Big> near = store(Number<Big>{-a.n, a.scale}, int(bType >> 8),
                                                   b.scale, BCDII_ROUND_DOWN);
                    b.n = near.isMarked() ? b.n : near.n;
                }
                const Buffer aBuffer = encode(a.n, aType);
                const Buffer bBuffer = encode(b.n, bType);
                QVERIFY(operationsAgree(aBuffer, a, bBuffer, b, resType, style));

                // The self-describing forms, in place.
                const auto half = BCDII_ROUND_HALF_UP;
                Buffer same = aBuffer;
                unsigned int flags = BCDIIAdd(same.bytes, same.bytes, bBuffer.bytes);
                QVERIFY(stored("a += b", {aBuffer, bBuffer}, flags, same,
                               store(sum(a, b), precision, scale, half)));
                same = bBuffer;
                flags = BCDIIMul(same.bytes, aBuffer.bytes, same.bytes);
                QVERIFY(stored("b *= a", {aBuffer, bBuffer}, flags, same,
                               store(product(a, b), same.precision(), same.scale(), half)));
                if (BCDIISIZE(resType) <= 32) {
                    same = aBuffer;
                    flags = BCDIICopy(same.digits(), resType, same.digits(), aType, half);
                    Buffer result(resType);
                    std::memcpy(result.digits(), same.digits(), BCDIISIZE(resType));
                    QVERIFY(stored("copy in place", {aBuffer}, flags, result,
                                   store(a, result.precision(), result.scale(), half)));
                }
            }
        }
    }
}

void TestBcdii::marksPropagate()
{
    const unsigned int type = BCDIITYPE(5, 1);
    const Buffer one = encode<qint64>(10, type);
    Buffer marked(type);
    BCDIIInit(marked.bytes, type);
    const auto gives = [&](unsigned int flags, const Buffer& res) {
        return flags == 0xB0 && res.digits()[0] == 101;
    };
    Buffer res = one;
    QVERIFY(gives(BCDIICopy(res.bytes, marked.bytes), res));
    res = one;
    QVERIFY(gives(BCDIIAdd(res.bytes, marked.bytes, one.bytes), res));
    res = one;
    QVERIFY(gives(BCDIIMul(res.bytes, one.bytes, marked.bytes), res));
    QVERIFY(gives(BCDIINeg(marked.bytes), marked));
    long long n = 7;
    double v = 7;
    QCOMPARE(BCDII2Int64(&n, marked.bytes, 0), 0xB0U);
    QCOMPARE(BCDII2Double(&v, marked.bytes), 0xB0U);
    QVERIFY(n == 7 && v == 7);
    const Buffer maximum = encode<qint64>(99999, type);
    QCOMPARE(BCDIICmp(marked.bytes, maximum.bytes), 1);
}

void TestBcdii::integers_data()
{
    QTest::addColumn<QByteArray>("text");
    QTest::addColumn<int>("scale");
    QTest::addColumn<unsigned int>("flags");
    QTest::addColumn<qint64>("result"); // 7: left alone
    const auto row = [](const char* text, int scale, unsigned int flags, qint64 result) {
        QTest::addRow("%s at %d", text, scale) << QByteArray(text) << scale << flags << result;
    };
    row("2.5", 0, 0x40, 3);
    row("-2.5", 0, 0x44, -3);
    row("12.345", 1, 0x40, 123);
    row("12.3", 3, 0, 12300);
    row("150", -2, 0x40, 2);
    row("0.4", 0, 0x42, 0);
    row("0.0", 200, 0x02, 0);
    row("1", -1000, 0x42, 0);
    row("1", 1000, 0x11, 7);
    row("9223372036854775807", 0, 0, std::numeric_limits<qint64>::max());
    row("922337203685477580.7", 1, 0, std::numeric_limits<qint64>::max());
    row("-9223372036854775808", 0, 0x04, std::numeric_limits<qint64>::min());
    row("9223372036854775808", 0, 0x11, 7);
    row("9223372036854775807.5", 0, 0x11, 7);
    row("-9223372036854775809", 0, 0x11, 7);
    row("9999999999999999999.5", 0, 0x11, 7);
}

void TestBcdii::integers()
{
    QFETCH(QByteArray, text);
    QFETCH(int, scale);
    QFETCH(unsigned int, flags);
    QFETCH(qint64, result);
    Buffer buffer(BCDIITYPE(40, 10));
    BCDIIFromString(buffer.bytes, text.constData());
    long long n = 7;
    QCOMPARE(BCDII2Int64(&n, buffer.bytes, scale), flags);
    QCOMPARE(qint64(n), result);
}

void TestBcdii::randomIntegers()
{
    // What a negative integer leaves behind when it is cut to nothing or does not fit.
    Buffer buffer(BCDIITYPE(2, 0));
    QCOMPARE(BCDIIGetFromInt64(buffer.bytes, -3, 1) & BCDII_RESULT_NEGATIVE, 4U);
    QCOMPARE(buffer.digits()[0], quint8(128));
    QCOMPARE(BCDIIGetFromInt64(buffer.bytes, -300, 0), 0x15U);
    QCOMPARE(buffer.digits()[0], quint8(101 | 128));

    Random random;
    constexpr qint64 ends[] = {std::numeric_limits<qint64>::min(), -1, 0,
                               std::numeric_limits<qint64>::max()};
    for (int i = 0; i < 60000; ++i) {
        const auto bits = random.engine() >> random.below(64);
        const qint64 n = i % 16 ? static_cast<qint64>(bits) : ends[i / 16 % 4];
        const int scale = random.below(8) ? random.below(41) - 20 : random.below(300) - 150;
        const unsigned int type = typeNear(random, static_cast<unsigned int>(scale));
        Buffer found(type);
        Stored<Big> expected =
            store(Number<Big>{Big(n), scale}, found.precision(), found.scale(), BCDII_ROUND_DOWN);
        unsigned int flags = BCDIIGetFromInt64(found.bytes, n, scale);
        if (n < 0) {
            QVERIFY(found.digits()[0] & 128);
            QVERIFY(flags & BCDII_RESULT_NEGATIVE);
            if (expected.isMarked() || expected.n == 0) {
                found.digits()[0] ^= 128;
                flags ^= BCDII_RESULT_NEGATIVE;
            }
        }
        QVERIFY(stored("from int64", {}, flags, found, expected));
        found.setType(type);
        expected = store(Number<Big>{Big(bits), scale}, found.precision(), found.scale(),
                         BCDII_ROUND_DOWN);
        flags = BCDIIGetFromUInt64(found.bytes, bits, scale);
        QVERIFY(stored("from uint64", {}, flags, found, expected));

        const BCDIIroundstyle style = styles[random.below(5)];
        const Number<Big> value{random.digits(found.precision()), found.scale()};
        const Buffer source = encode(value.n, type);
        const Stored<Big> kept = store(value, 19, scale, style);
        const Big limit = std::numeric_limits<qint64>::max();
        const bool fits = !kept.isMarked() && kept.n >= -limit - 1 && kept.n <= limit;
        long long out = 7;
        flags = BCDII2Int64(&out, source.digits(), type, scale, style);
        QVERIFY((flags == (fits ? kept.flags : 0x11U) && out == (fits ? kept.n : Big(7))) ||
                differs("to int64", {source}, QByteArray::number(out), QByteArray::number(scale)));
    }
}

void TestBcdii::doubles_data()
{
    QTest::addColumn<double>("v");
    QTest::addColumn<unsigned int>("type");
    QTest::addColumn<unsigned int>("flags");
    QTest::addColumn<QByteArray>("result");
    const unsigned int p42 = BCDIITYPE(4, 2);
    const double infinity = std::numeric_limits<double>::infinity();
    QTest::newRow("half up") << 0.125 << p42 << 0U << QByteArray(".13");
    QTest::newRow("half away") << -0.125 << p42 << 4U << QByteArray("-.13");
    QTest::newRow("to zero") << -0.004 << p42 << 2U << QByteArray(".00");
    QTest::newRow("full") << 99.99 << p42 << 0U << QByteArray("99.99");
    QTest::newRow("carries out") << 99.996 << p42 << 0x11U << QByteArray();
    QTest::newRow("hundreds") << 1250.0 << BCDIITYPE(4, -2) << 0U << QByteArray("1300");
    QTest::newRow("2^53") << 9007199254740992.0 << BCDIITYPE(26, 1) << 0U
                          << QByteArray("9007199254740992.0");
    QTest::newRow("10^26") << 1e26 << BCDIITYPE(26, 0) << 0x11U << QByteArray();
    QTest::newRow("10^300") << 1e300 << BCDIITYPE(26, 62) << 0x11U << QByteArray();
    QTest::newRow("infinity") << -infinity << p42 << 0x11U << QByteArray();
    QTest::newRow("not a number") << std::nan("") << p42 << 0x11U << QByteArray();
}

void TestBcdii::doubles()
{
    QFETCH(double, v);
    QFETCH(unsigned int, type);
    QFETCH(unsigned int, flags);
    QFETCH(QByteArray, result);
    Buffer buffer(type);
    QCOMPARE(BCDIIGetFromDouble(buffer.bytes, v), flags);
    QVERIFY(buffer.guarded());
    if (flags & BCDII_RESULT_ERROR) {
        QCOMPARE(buffer.digits()[0], quint8(101));
        return;
    }
    char* found = BCDII2StringSequence(buffer.bytes);
    QCOMPARE(QByteArray(found), result);
    std::free(found);
}

void TestBcdii::randomDoubles()
{
    Random random;
    for (int i = 0; i < 60000; ++i) {
        // Eighths are exact, so is their product with the power: the digits are known.
        const int scale = random.below(7);
        const int eighths = random.below(1 << 30) * (random.below(2) ? 1 : -1);
        Buffer found(BCDIITYPE(1 + random.below(20), scale));
        const Number<Big> exact{Big(eighths) * 125, 3};
        Stored<Big> expected = store(exact, 40, scale, BCDII_ROUND_HALF_UP);
        if (abs(expected.n) >= power<Big>(found.precision()))
            expected = {0x11, 0};
        expected.flags &= ~static_cast<unsigned int>(BCDII_RESULT_ROUNDED);
        const unsigned int flags = BCDIIGetFromDouble(found.bytes, eighths / 8.0);
        QVERIFY(stored("from double", {}, flags, found, expected));

        // A quotient of two exact doubles is the double nearest to the text.
        const int places = random.below(22);
        const qint64 n = static_cast<qint64>(random.engine() >> (14 + random.below(50)));
        const Buffer source = encode(Big(n), BCDIITYPE(26, places));
        double v = -1;
        BCDII2Double(&v, source.bytes);
        const double nearest = Oracle::text(Big(n), places).toDouble();
        QVERIFY(v == nearest || differs("to double", {source}, QByteArray::number(v, 'g', 17),
                                        QByteArray::number(nearest, 'g', 17)));

        // Integers beyond 2^53 keep the precision of a double.
        const double large = std::ldexp(1.0 + random.below(1 << 20) / 1048576.0, 53 + i % 33);
        found.setType(BCDIITYPE(26, 0));
        QCOMPARE(BCDIIGetFromDouble(found.bytes, large), 0U);
        BCDII2Double(&v, found.bytes);
        QVERIFY2(std::fabs(v - large) <= large * 2e-15, qPrintable(QString::number(large)));
    }
}

void TestBcdii::text_data()
{
    QTest::addColumn<QByteArray>("text");
    QTest::addColumn<unsigned int>("type");
    QTest::addColumn<unsigned int>("flags");
    QTest::addColumn<unsigned int>("newType");
    const auto row = [](const char* text, unsigned int type, unsigned int flags,
                        unsigned int newType) {
        QTest::addRow("\"%s\"", text + std::strspn(text, "\t\r\n"))
            << QByteArray(text) << type << flags << newType;
    };
    const unsigned int p105 = BCDIITYPE(10, 5);
    row("  -0,50", p105, 0x04, BCDIITYPE(10, 2));
    row("12x", p105, 0, BCDIITYPE(10, 0));
    row("12.", p105, 0, BCDIITYPE(10, 0));
    row("1e5", p105, 0, BCDIITYPE(10, 0));
    row("\t\r\n+.005", p105, 0, BCDIITYPE(10, 3));
    row("0", p105, 0x02, p105);
    row("-0.00", p105, 0x02, p105);
    row(".00", p105, 0x02, p105);
    row("abc", p105, 0x30, p105);
    row("", p105, 0x30, p105);
    row("+-5", p105, 0x30, p105);
    row(".", p105, 0x30, p105);
    row("123456", p105, 0x11, p105); // six digits for five, though the new scale had room
    row("12345.6789012", p105, 0x11, BCDIITYPE(10, 7));
    row("5", BCDIITYPE(2, 4), 0x11, BCDIITYPE(2, 4));
    row("0", BCDIITYPE(2, 4), 0x02, BCDIITYPE(2, 4));
}

void TestBcdii::text()
{
    QFETCH(QByteArray, text);
    QFETCH(unsigned int, type);
    QFETCH(unsigned int, flags);
    QFETCH(unsigned int, newType);
    Buffer buffer(type);
    unsigned int typed = type;
    QCOMPARE(BCDIIFromString(buffer.digits(), typed, text.constData()), flags);
    QCOMPARE(typed, newType);
    bool ok = false;
    const unsigned int checked = BCDIIFromString(buffer.bytes, text.constData(), &ok);
    QCOMPARE(ok, (flags & (BCDII_RESULT_ERROR | BCDII_RESULT_INVALID)) == 0);
    QCOMPARE(checked, ok ? flags : 0xA0U);
    QCOMPARE(buffer.type(), newType);
    QCOMPARE(BCDIIFromString(buffer.bytes, nullptr, nullptr), 0xA0U);
}

void TestBcdii::randomText()
{
    Random random;
    const auto digits = [&](int size) {
        QByteArray all;
        const bool zerosFirst = random.below(3) == 0;
        for (int i = 0; i < size; ++i)
            all += static_cast<char>('0' + (zerosFirst && i < size / 2 ? 0 : random.below(10)));
        return all;
    };
    char* written = nullptr;
    for (int i = 0; i < 60000; ++i) {
        const unsigned int type = anyType(random);
        const Big n = random.digits(int(type >> 8));
        const Buffer source = encode(n, type);
        written = BCDII2StringSequence(source.bytes, written);
        const QByteArray expectedText = Oracle::text(n, source.scale());
        QVERIFY(expectedText == written || differs("to text", {source}, written, expectedText));

        const QByteArray whole = digits(random.below(i % 8 ? 12 : 80));
        const QByteArray fraction = digits(random.below(i % 3 ? 12 : 100));
        const bool negative = random.below(2);
        const QByteArray text =
            (negative ? "-" : "") + whole + (random.below(2) ? '.' : ',') + fraction + " 1";
        Number<Big> number{0, fraction.size()};
        for (const char c : whole + fraction)
            number.n = number.n * 10 + (c - '0');
        if (number.n == 0)
            continue;
        const int count = static_cast<int>(number.n.str().size()) - fraction.size();
        number.n = negative ? Big(-number.n) : number.n;
        Buffer found(type);
        unsigned int newType = type;
        const bool longer = count > found.precision() - found.scale();
        const Stored<Big> expected = longer ? Stored<Big>{0x11, 0}
                                            : store(number, found.precision(),
                                                    qMin(62, fraction.size()), BCDII_ROUND_HALF_UP);
        const unsigned int flags = BCDIIFromString(found.digits(), newType, text.constData());
        const auto word = static_cast<quint16>(newType);
        std::memcpy(found.bytes, &word, sizeof word);
        QCOMPARE(newType, longer ? type : BCDIITYPE(found.precision(), qMin(62, fraction.size())));
        if (!stored("from text", {}, flags, found, expected))
            QFAIL(text.constData());
    }
    std::free(written);
}

void TestBcdii::misuseAborts_data()
{
    QTest::addColumn<int>("misuse");
    QTest::addColumn<QByteArray>("expression");
    QTest::addColumn<QByteArray>("function");
    const QByteArray type("BCDIICheckType(type)");
    QTest::newRow("initialise") << 0 << type << QByteArray("BCDIIInit");
    QTest::newRow("set to zero") << 1 << type << QByteArray("_quickSetNULL");
    QTest::newRow("negate") << 2 << type << QByteArray("_quickIsNULL");
    QTest::newRow("round") << 3 << QByteArray("!\"Wrong roundstyle parameter\"")
                           << QByteArray("round_internal");
}

void TestBcdii::misuseAborts()
{
    QFETCH(int, misuse);
    QFETCH(QByteArray, expression);
    QFETCH(QByteArray, function);
    int ends[2];
    QCOMPARE(::pipe(ends), 0);
    const pid_t child = ::fork();
    if (child == 0) {
        ::dup2(ends[1], STDERR_FILENO);
        ::signal(SIGABRT, SIG_DFL);
        Buffer buffer(0x1A3F);
        std::memset(buffer.digits(), 0, 32);
        const Buffer source = encode<qint64>(15, BCDIITYPE(2, 1));
        unsigned char target[1];
        switch (misuse) {
        case 0:
            BCDIIInit(buffer.bytes, 0x1A3F);
            break;
        case 1:
            BCDIISetZero(buffer.bytes);
            break;
        case 2:
            BCDIINeg(buffer.bytes);
            break;
        default:
            BCDIICopy(target, BCDIITYPE(1, 0), source.digits(), source.type(), BCDIIroundstyle(5));
        }
        ::_exit(0);
    }
    ::close(ends[1]);
    char text[1024];
    const auto size = static_cast<int>(::read(ends[0], text, sizeof text));
    const QByteArray message(text, qMax(size, 0));
    ::close(ends[0]);
    int status = 0;
    ::waitpid(child, &status, 0);
    QVERIFY(WIFSIGNALED(status) && WTERMSIG(status) == SIGABRT);
    for (const QByteArray& part : {expression, function, QByteArray("src/database/bcdii: ")})
        QVERIFY2(message.contains(part), message.constData());
}

QTEST_GUILESS_MAIN(TestBcdii)
#include "tst_bcdii.moc"
