// SPDX-License-Identifier: MIT
// The compressing device against zlib itself, its states, and devices that misbehave below it.
#include "io/qtiocompressor.h"
#include "support/seed.h"

#include <QBuffer>
#include <QRegularExpression>
#include <QTest>

#include <zlib.h>

#include <random>

namespace {

using Format = QtIOCompressor::StreamFormat;
constexpr Format formats[] = {QtIOCompressor::Zlib, QtIOCompressor::Gzip,
                              QtIOCompressor::RawDeflate};
constexpr int windowBits[] = {15, 31, -15};

/// What zlib itself makes of compressed bytes, which must be one whole stream.
QByteArray inflated(const QByteArray& bytes, Format format, int size)
{
    QByteArray out(size + 1, 'x');
    z_stream z = {};
    inflateInit2(&z, windowBits[format]);
    z.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(bytes.data()));
    z.avail_in = uInt(bytes.size());
    z.next_out = reinterpret_cast<Bytef*>(out.data());
    z.avail_out = uInt(out.size());
    const int code = inflate(&z, Z_FINISH);
    out.truncate(int(z.total_out));
    inflateEnd(&z);
    return code == Z_STREAM_END && z.avail_in == 0 ? out : QByteArray("not a whole stream");
}

QByteArray compressed(const QByteArray& bytes, Format format)
{
    QBuffer buffer;
    QtIOCompressor device(&buffer);
    device.setStreamFormat(format);
    device.open(QIODevice::WriteOnly);
    device.write(bytes);
    device.close();
    return buffer.data();
}

QByteArray someBytes(int size, quint32 seed)
{
    std::mt19937 random(seed);
    QByteArray bytes(size, '\0');
    for (char& c : bytes)
        c = char(random() % 4 ? 'a' + random() % 3 : random());
    return bytes;
}

/// A sequential device that gives few bytes at a time, takes part of what it gets, or fails.
class Awkward : public QIODevice
{
public:
    QByteArray data;
    int at = 0;
    int step = 7;
    int failAfter = -1; // reads or writes
    bool isSequential() const override { return true; }
    qint64 bytesAvailable() const override
    {
        return data.size() - at + QIODevice::bytesAvailable();
    }

protected:
    qint64 readData(char* to, qint64 size) override
    {
        if (failAfter >= 0 && failAfter-- == 0)
            return fails();
        const int n = int(qMin(qMin<qint64>(size, step), qint64(data.size() - at)));
        memcpy(to, data.constData() + at, size_t(n));
        at += n;
        return n;
    }
    qint64 writeData(const char* from, qint64 size) override
    {
        if (failAfter >= 0 && failAfter-- == 0)
            return fails();
        const auto n = qMin<qint64>(size, step);
        data.append(from, int(n));
        return n;
    }

private:
    int fails()
    {
        setErrorString("no more");
        return -1;
    }
};

} // namespace

class tst_QtIOCompressor : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void writesWhatZlibReads_data();
    void writesWhatZlibReads();
    void readsWhatZlibWrote_data() { writesWhatZlibReads_data(); }
    void readsWhatZlibWrote();
    void managesTheDeviceBelow();
    void givesBackWhatFollows();
    void tellsWhetherThereIsMore();
    void writesNothingForNothing();
    void failsOnASecondFlush();
    void survivesDamage();
    void dropsTheUnfinishedRead();
};

void tst_QtIOCompressor::writesWhatZlibReads_data()
{
    QTest::addColumn<int>("format");
    QTest::addColumn<int>("size");
    QTest::addColumn<int>("buffer");
    for (const Format format : formats)
        for (const int size : {1, 100, 65500, 300000})
            for (const int buffer : {1, 65500})
                QTest::addRow("format %d, %d bytes, buffer %d", format, size, buffer)
                    << int(format) << size << buffer;
}

void tst_QtIOCompressor::writesWhatZlibReads()
{
    QFETCH(int, format);
    QFETCH(int, size);
    QFETCH(int, buffer);
    for (const quint32 seed : testSeeds(2)) {
        const SeedScope scope(seed);
        std::mt19937 random(seed);
        const QByteArray bytes = someBytes(size, seed);
        QBuffer below;
        QtIOCompressor device(&below, 6, buffer);
        device.setStreamFormat(Format(format));
        QVERIFY(device.open(QIODevice::WriteOnly));
        for (int at = 0; at < size;) {
            const int piece = qMin(size - at, 1 + int(random() % 20000));
            QCOMPARE(device.write(bytes.constData() + at, piece), qint64(piece));
            at += piece;
            if (random() % 3 == 0)
                device.flush();
        }
        device.close();
        QVERIFY(!below.isOpen());
        QCOMPARE(inflated(below.data(), Format(format), size), bytes);
    }
}

void tst_QtIOCompressor::readsWhatZlibWrote()
{
    QFETCH(int, format);
    QFETCH(int, size);
    QFETCH(int, buffer);
    for (const quint32 seed : testSeeds(2)) {
        const SeedScope scope(seed);
        std::mt19937 random(seed);
        const QByteArray bytes = someBytes(size, seed);
        Awkward socket;
        socket.data = compressed(bytes, Format(format));
        socket.step = buffer;
        socket.open(QIODevice::ReadOnly);
        QtIOCompressor device(&socket, 6, buffer);
        device.setStreamFormat(Format(format));
        QVERIFY(device.open(QIODevice::ReadOnly));
        QByteArray read;
        while (!device.atEnd())
            read += device.read(1 + int(random() % 30000));
        QCOMPARE(read, bytes);
        QCOMPARE(device.read(1), QByteArray());
    }
}

void tst_QtIOCompressor::managesTheDeviceBelow()
{
    QFile missing("/nowhere/at/all");
    QtIOCompressor none(&missing);
    QVERIFY(!none.open(QIODevice::ReadOnly));
    QCOMPARE(none.errorString(),
             QString("Error opening underlying device: ") + missing.errorString());

    QBuffer below;
    below.open(QIODevice::WriteOnly);
    {
        QtIOCompressor device(&below);
        QVERIFY(device.open(QIODevice::WriteOnly));
        device.write("abc");
    }
    QVERIFY2(below.isOpen(), "it was open before");
    QCOMPARE(inflated(below.data(), QtIOCompressor::Zlib, 3), QByteArray("abc"));

    // One device, one opening after the other, with another format each.
    below.close();
    QtIOCompressor device(&below);
    for (const Format format : formats) {
        device.setStreamFormat(format);
        QCOMPARE(device.streamFormat(), format);
        below.setData(QByteArray());
        QVERIFY(device.open(QIODevice::WriteOnly));
        device.write("once more");
        device.close();
        QVERIFY(device.open(QIODevice::ReadOnly));
        QCOMPARE(device.readAll(), QByteArray("once more"));
        device.close();
    }
}

void tst_QtIOCompressor::givesBackWhatFollows()
{
    // With a buffer as long as the file the byte behind the input is behind the buffer too.
    const QByteArray stream = compressed("first", QtIOCompressor::Gzip);
    for (const QByteArray& tail : {QByteArray(), QByteArray("second")}) {
        QBuffer below;
        below.setData(stream + tail);
        below.open(QIODevice::ReadOnly);
        QtIOCompressor device(&below, 6, stream.size() + tail.size());
        device.setStreamFormat(QtIOCompressor::Gzip);
        QVERIFY(device.open(QIODevice::ReadOnly));
        QCOMPARE(device.readAll(), QByteArray("first"));
        const QByteArray rest = below.readAll();
        QCOMPARE(rest.size(), tail.size() + 1);
        QVERIFY(rest.startsWith(tail));
    }
}

void tst_QtIOCompressor::tellsWhetherThereIsMore()
{
    QBuffer below;
    below.setData(compressed(someBytes(50000, 1), QtIOCompressor::Zlib));
    QtIOCompressor device(&below);
    QCOMPARE(device.bytesAvailable(), qint64(0));
    device.open(QIODevice::ReadOnly);
    QCOMPARE(device.bytesAvailable(), qint64(1));
    QCOMPARE(device.read(100).size(), 100);
    QCOMPARE(device.bytesAvailable(), qint64(1));
    QCOMPARE(device.readAll().size(), 49900);
    QCOMPARE(device.bytesAvailable(), qint64(0));
    device.close();
    device.open(QIODevice::WriteOnly);
    QCOMPARE(device.bytesAvailable(), qint64(0));
}

void tst_QtIOCompressor::writesNothingForNothing()
{
    for (const bool isFlushed : {false, true}) {
        QBuffer below;
        QtIOCompressor device(&below);
        device.setStreamFormat(QtIOCompressor::Gzip);
        device.open(QIODevice::WriteOnly);
        QCOMPARE(device.write("", 0), qint64(0));
        if (isFlushed)
            device.flush();
        device.close();
        QCOMPARE(below.data().isEmpty(), !isFlushed);
        if (isFlushed)
            QCOMPARE(inflated(below.data(), QtIOCompressor::Gzip, 0), QByteArray());
    }
}

void tst_QtIOCompressor::failsOnASecondFlush()
{
    QBuffer below;
    QtIOCompressor device(&below);
    device.open(QIODevice::WriteOnly);
    device.write("abc");
    device.flush();
    device.flush();
    QCOMPARE(device.errorString(), QString("Internal zlib error when compressing: buffer error"));
    QCOMPARE(device.write("d"), qint64(-1));
    device.close();
    QVERIFY(device.open(QIODevice::WriteOnly));
    QCOMPARE(device.write("d"), qint64(1));
}

void tst_QtIOCompressor::survivesDamage()
{
    for (const Format format : formats) {
        const QByteArray bytes = someBytes(3000, 5);
        const QByteArray whole = compressed(bytes, format);
        for (int at = 0; at < whole.size(); ++at) {
            QBuffer below;
            QByteArray damaged = whole;
            damaged[at] = char(damaged.at(at) ^ 0x55);
            below.setData(damaged);
            QtIOCompressor device(&below, 6, 16 + at % 100);
            device.setStreamFormat(format);
            QVERIFY(device.open(QIODevice::ReadOnly));
            char read[70000];
            const qint64 n = device.read(read, sizeof read);
            if (n == -1) {
                QVERIFY(
                    device.errorString().startsWith("Internal zlib error when decompressing: "));
                QCOMPARE(device.read(1), QByteArray());
                QCOMPARE(device.bytesAvailable(), qint64(0));
            } else if (format != QtIOCompressor::RawDeflate && n > 0) {
                // A checksum lets pass only what its header says beside the data.
                QVERIFY(at < 10);
                QCOMPARE(QByteArray(read, int(n)), bytes);
            }
        }
    }
}

void tst_QtIOCompressor::dropsTheUnfinishedRead()
{
    const QByteArray whole = compressed(someBytes(3000, 6), QtIOCompressor::Gzip);
    QBuffer below;
    below.setData(whole.left(whole.size() - 1));
    QtIOCompressor device(&below);
    device.setStreamFormat(QtIOCompressor::Gzip);
    device.open(QIODevice::ReadOnly);
    char read[5000];
    // The stream's last byte is missing, and with it goes all that came before.
    QCOMPARE(device.read(read, sizeof read), qint64(0));
    QCOMPARE(device.bytesAvailable(), qint64(1));
}

QTEST_MAIN(tst_QtIOCompressor)
#include "tst_qtiocompressor.moc"
