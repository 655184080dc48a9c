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

/// A compressor over a buffer with these bytes, open.
struct Opened
{
    Opened(Format format, QIODevice::OpenMode mode, const QByteArray& bytes = QByteArray(),
           int bufferSize = 65500)
        : device(&below, 6, bufferSize)
    {
        below.setData(bytes);
        device.setStreamFormat(format);
        if (!device.open(mode))
            qFatal("cannot open a compressor");
    }
    QBuffer below;
    QtIOCompressor device;
};

QByteArray compressed(const QByteArray& bytes, Format format)
{
    Opened packed(format, QIODevice::WriteOnly);
    packed.device.write(bytes);
    packed.device.close();
    return packed.below.data();
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
    void agreesWithZlib()
    {
        std::mt19937 random(testSeeds(1).first());
        for (int i = 0; i < 2 * 3 * 4 * 2; ++i) {
            const Format format = formats[i % 3];
            const int sizes[] = {1, 100, 65500, 300000};
            const int size = sizes[i / 3 % 4];
            const int buffer = i / 12 % 2 ? 1 : 65500;
            const QByteArray bytes = someBytes(size, quint32(random()));

            Opened packed(format, QIODevice::WriteOnly, QByteArray(), buffer);
            for (int at = 0; at < size;) {
                const int piece = qMin(size - at, 1 + int(random() % 20000));
                QCOMPARE(packed.device.write(bytes.constData() + at, piece), qint64(piece));
                at += piece;
                if (random() % 3 == 0)
                    packed.device.flush();
            }
            packed.device.close();
            QVERIFY(!packed.below.isOpen());
            QCOMPARE(inflated(packed.below.data(), format, size), bytes);

            Awkward socket;
            socket.data = packed.below.data();
            socket.step = buffer;
            socket.open(QIODevice::ReadOnly);
            QtIOCompressor device(&socket, 6, buffer);
            device.setStreamFormat(format);
            QVERIFY(device.open(QIODevice::ReadOnly));
            QByteArray read;
            while (!device.atEnd())
                read += device.read(1 + int(random() % 30000));
            QCOMPARE(read, bytes);
            QCOMPARE(device.read(1), QByteArray());
        }
    }

    void tellsWhatFailsBelow()
    {
        const QByteArray bytes = someBytes(3000, 5);
        for (int n = 0; n < 6; ++n) {
            const bool isReading = n % 2;
            Awkward below;
            below.failAfter = n / 2;
            if (isReading)
                below.data = compressed(bytes, QtIOCompressor::Zlib);
            below.open(QIODevice::ReadWrite | QIODevice::Unbuffered);
            QtIOCompressor device(&below, 6, 100);
            QVERIFY(device.open(isReading ? QIODevice::ReadOnly : QIODevice::WriteOnly));
            char some[3000];
            if (isReading)
                QCOMPARE(device.read(some, sizeof some), qint64(-1));
            else
                device.write(bytes);
            if (!isReading)
                device.close();
            QCOMPARE(device.errorString(),
                     QString("Error %1 underlying device: no more")
                         .arg(isReading ? "reading data from" : "writing to"));
        }
    }

    void managesTheDeviceBelow()
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

    void refusesToOpen()
    {
        QVERIFY(QtIOCompressor::isGzipSupported());
        QBuffer below;
        QtIOCompressor wrong(&below, 77); // a level that zlib does not have
        QVERIFY(!wrong.open(QIODevice::WriteOnly) && !below.isOpen());
        QVERIFY(wrong.errorString().startsWith("Internal zlib error: "));
        below.open(QIODevice::WriteOnly);
        QtIOCompressor device(&below);
        const QByteArray modes = "in the ReadOnly or WriteOnly modes";
        const auto refuses = [&](QIODevice::OpenMode mode, const QByteArray& reason) {
            QTest::ignoreMessage(QtWarningMsg, "QtIOCompressor::open: " + reason);
            return !device.open(mode);
        };
        QVERIFY(refuses(QIODevice::ReadWrite, "QtIOCompressor can only be opened " + modes));
        QVERIFY(
            refuses(QIODevice::ReadOnly,
                    "underlying device must be open in one of the ReadOnly or WriteOnly modes"));
        QVERIFY(device.open(QIODevice::WriteOnly));
        QVERIFY(refuses(QIODevice::WriteOnly, "device already open"));
    }

    void givesBackWhatFollows()
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
            QVERIFY(rest.size() == tail.size() + 1 && rest.startsWith(tail));
        }
    }

    void tellsWhetherThereIsMore()
    {
        const QByteArray bytes = compressed(someBytes(50000, 1), QtIOCompressor::Zlib);
        Opened packed(QtIOCompressor::Zlib, QIODevice::ReadOnly, bytes);
        for (const int size : {0, 100, 49900}) {
            QCOMPARE(packed.device.read(size).size(), size);
            QCOMPARE(packed.device.bytesAvailable(), qint64(size < 49900));
        }
        packed.device.close();
        QCOMPARE(packed.device.bytesAvailable(), qint64(0));
        packed.device.open(QIODevice::WriteOnly);
        QCOMPARE(packed.device.bytesAvailable(), qint64(0));
    }

    void writesNothingForNothing()
    {
        for (const bool isFlushed : {false, true}) {
            Opened packed(QtIOCompressor::Gzip, QIODevice::WriteOnly);
            QCOMPARE(packed.device.write("", 0), qint64(0));
            if (isFlushed)
                packed.device.flush();
            packed.device.close();
            QCOMPARE(packed.below.data().isEmpty(), !isFlushed);
            if (isFlushed)
                QCOMPARE(inflated(packed.below.data(), QtIOCompressor::Gzip, 0), QByteArray());
        }
    }

    void failsOnASecondFlush()
    {
        Opened packed(QtIOCompressor::Zlib, QIODevice::WriteOnly);
        QtIOCompressor& device = packed.device;
        device.write("abc");
        device.flush();
        device.flush();
        QCOMPARE(device.errorString(),
                 QString("Internal zlib error when compressing: buffer error"));
        QCOMPARE(device.write("d"), qint64(-1));
        device.close();
        QVERIFY(device.open(QIODevice::WriteOnly));
        QCOMPARE(device.write("d"), qint64(1));
    }

    void tellsDamageAndDropsTheUnfinishedRead()
    {
        const QByteArray whole = compressed(someBytes(3000, 5), QtIOCompressor::Gzip);
        QByteArray wrong = whole;
        wrong[whole.size() - 6] = char(whole.at(whole.size() - 6) ^ 0x55); // of the checksum
        for (const QByteArray& bytes : {wrong, whole.left(whole.size() - 1)}) {
            Opened packed(QtIOCompressor::Gzip, QIODevice::ReadOnly, bytes);
            char read[5000];
            // With the stream's missing last byte goes all that came before.
            QCOMPARE(packed.device.read(read, sizeof read), qint64(bytes == wrong ? -1 : 0));
            QCOMPARE(packed.device.bytesAvailable(), qint64(bytes != wrong));
            QCOMPARE(packed.device.errorString().contains("zlib error when decompressing: "),
                     bytes == wrong);
        }
    }
};

QTEST_MAIN(tst_QtIOCompressor)
#include "tst_qtiocompressor.moc"
