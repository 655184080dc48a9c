// SPDX-License-Identifier: MIT
#include "io/qtiocompressor.h"

#include "io/qtiocompressor_p.h"

#include <QtDebug>

#include <algorithm>
#include <cstring>
#include <limits>

namespace {

// zlib compares the first character of the version and the size of the structure with its own.
constexpr char zlibVersionUsed[] = "1.2.8";
static_assert(sizeof(z_stream) == 112, "the size handed to zlib");

constexpr int smallestBuffer = 16; // a sync flush into a few bytes would emit markers for ever
constexpr int memoryLevel = 8;

} // namespace

QtIOCompressorPrivate::QtIOCompressorPrivate(QtIOCompressor* owner, QIODevice* underlying,
                                             int level, int size)
    : q(owner)
    , device(underlying)
    , compressionLevel(level)
    , bufferSize(std::max(size, smallestBuffer))
    , buffer(static_cast<size_t>(bufferSize) + 1)
{}

QtIOCompressor::QtIOCompressor(QIODevice* device, int compressionLevel, int bufferSize)
    : d(new QtIOCompressorPrivate(this, device, compressionLevel, bufferSize))
{}

QtIOCompressor::~QtIOCompressor()
{
    QtIOCompressor::close();
}

void QtIOCompressor::setStreamFormat(StreamFormat format)
{
    d->streamFormat = format;
}

QtIOCompressor::StreamFormat QtIOCompressor::streamFormat() const
{
    return d->streamFormat;
}

bool QtIOCompressor::isGzipSupported()
{
    return checkGzipSupport(zlibVersion());
}

bool QtIOCompressor::checkGzipSupport(const char* version)
{
    if (!version || std::strlen(version) < 3 || version[0] == '0')
        return false;
    return version[0] != '1' || (version[2] != '0' && version[2] != '1');
}

bool QtIOCompressor::isSequential() const
{
    return true;
}

// --- opening and closing ---

bool QtIOCompressor::open(OpenMode mode)
{
    if (isOpen()) {
        qWarning("QtIOCompressor::open: device already open");
        return false;
    }
    const bool isReading = mode & ReadOnly;
    if (isReading == bool(mode & WriteOnly)) {
        qWarning("QtIOCompressor::open: QtIOCompressor can only be opened in the ReadOnly or"
                 " WriteOnly modes");
        return false;
    }
    if (!d->openUnderlying(mode))
        return false;

    const bool isChecked = isReading && d->streamFormat != Zlib;
    if (isChecked && !checkGzipSupport(zlibVersion())) {
        setErrorString(QStringLiteral("The gzip format not supported in this version of zlib."));
    } else {
        const int code = d->startZlib(isReading);
        if (code != Z_OK)
            d->setZlibError(QStringLiteral("Internal zlib error: "), code);
        else if (QIODevice::open(mode))
            return true;
        else
            d->endZlib(isReading);
    }
    if (d->manageDevice)
        d->device->close();
    return false;
}

bool QtIOCompressorPrivate::openUnderlying(QIODevice::OpenMode mode)
{
    manageDevice = !device->isOpen();
    if (manageDevice) {
        if (device->open(mode))
            return true;
        q->setErrorString(QStringLiteral("Error opening underlying device: ") +
                          device->errorString());
        return false;
    }
    if (mode & QIODevice::ReadOnly ? device->isReadable() : device->isWritable())
        return true;
    qWarning("QtIOCompressor::open: underlying device must be open in one of the ReadOnly or"
             " WriteOnly modes");
    return false;
}

int QtIOCompressorPrivate::startZlib(bool isReading)
{
    const int size = sizeof zlib;
    const bool isPlain = streamFormat == QtIOCompressor::Zlib;
    const int windowBits = streamFormat == QtIOCompressor::Gzip ? MAX_WBITS + 16 : -MAX_WBITS;
    if (isReading) {
        state = ReadStarting;
        zlib.next_in = nullptr;
        zlib.avail_in = 0;
        return isPlain ? inflateInit_(&zlib, zlibVersionUsed, size)
                       : inflateInit2_(&zlib, windowBits, zlibVersionUsed, size);
    }
    state = WriteIdle;
    return isPlain ? deflateInit_(&zlib, compressionLevel, zlibVersionUsed, size)
                   : deflateInit2_(&zlib, compressionLevel, Z_DEFLATED, windowBits, memoryLevel,
                                   Z_DEFAULT_STRATEGY, zlibVersionUsed, size);
}

void QtIOCompressorPrivate::endZlib(bool isReading)
{
    if (isReading)
        inflateEnd(&zlib);
    else
        deflateEnd(&zlib);
}

void QtIOCompressor::close()
{
    if (!isOpen())
        return;
    const bool isReading = openMode() & ReadOnly;
    QString failure;
    if (isReading) {
        d->state = QtIOCompressorPrivate::ReadStarting;
    } else if (d->state == QtIOCompressorPrivate::WriteBytesWritten) {
        d->state = QtIOCompressorPrivate::WriteIdle;
        if (!d->flushZlib(Z_FINISH))
            failure = errorString();
    }
    d->endZlib(isReading);
    if (d->manageDevice)
        d->device->close();
    QIODevice::close(); // forgets the error
    d->hasUnfinished = !failure.isEmpty();
    if (d->hasUnfinished)
        setErrorString(failure);
}

// --- reading ---

qint64 QtIOCompressor::bytesAvailable() const
{
    if (!(openMode() & ReadOnly))
        return 0;
    qint64 available = 0;
    if (d->state == QtIOCompressorPrivate::ReadInStream)
        available = 1;
    else if (d->state == QtIOCompressorPrivate::ReadStarting)
        available = d->device->bytesAvailable();
    return QIODevice::bytesAvailable() + available > 0 ? 1 : 0;
}

int QtIOCompressorPrivate::fill()
{
    if (zlib.avail_in > 0)
        return 1;
    const qint64 got = device->read(reinterpret_cast<char*>(buffer.data()), bufferSize);
    zlib.next_in = buffer.data();
    zlib.avail_in = static_cast<uInt>(std::max<qint64>(got, 0));
    if (got < 0) {
        state = Failed;
        q->setErrorString(QStringLiteral("Error reading data from underlying device: ") +
                          device->errorString());
        return -1;
    }
    if (state != ReadInStream) {
        if (got == 0)
            return 0;
        state = ReadInStream;
    }
    return 1; // inside the stream zlib is asked even without input: it tells the end
}

// Gives back what was read behind the compressed stream, and first one byte more than that, which
// readers of the underlying device have to expect there. buffer has a spare byte for it.
void QtIOCompressorPrivate::pushBack()
{
    for (qint64 i = zlib.avail_in; i >= 0; --i)
        device->ungetChar(static_cast<char>(zlib.next_in[i]));
}

qint64 QtIOCompressor::readData(char* data, qint64 maxSize)
{
    if (d->state == QtIOCompressorPrivate::ReadEnded)
        return 0;
    if (d->state == QtIOCompressorPrivate::Failed)
        return -1;

    const auto wanted =
        static_cast<uInt>(std::min<qint64>(maxSize, std::numeric_limits<uInt>::max()));
    d->zlib.next_out = reinterpret_cast<Bytef*>(data);
    d->zlib.avail_out = wanted;
    do {
        const int filled = d->fill();
        if (filled <= 0)
            return filled;
        const int code = inflate(&d->zlib, Z_SYNC_FLUSH);
        switch (code) {
        case Z_NEED_DICT:
        case Z_DATA_ERROR:
        case Z_MEM_ERROR:
            d->state = QtIOCompressorPrivate::Failed;
            d->setZlibError(QStringLiteral("Internal zlib error when decompressing: "), code);
            return -1;
        case Z_BUF_ERROR:
            return 0; // the input ended inside the stream
        case Z_STREAM_END:
            d->state = QtIOCompressorPrivate::ReadEnded;
            d->pushBack();
            return wanted - d->zlib.avail_out;
        default:
            break;
        }
    } while (d->zlib.avail_out > 0);
    return wanted;
}

// --- writing ---

qint64 QtIOCompressor::writeData(const char* data, qint64 size)
{
    if (size < 1)
        return 0;
    if (d->state == QtIOCompressorPrivate::Failed)
        return -1;
    // zlib counts in 32 bits: what exceeds them is given to it piece by piece.
    constexpr qint64 largestPiece = 1 << 30;
    for (qint64 done = 0; done < size;) {
        const qint64 piece = std::min(size - done, largestPiece);
        d->zlib.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(data + done));
        d->zlib.avail_in = static_cast<uInt>(piece);
        if (!d->compress(Z_NO_FLUSH))
            return -1;
        done += piece;
    }
    return size;
}

void QtIOCompressor::flush()
{
    if (isOpen() && openMode() & WriteOnly)
        d->flushZlib(Z_SYNC_FLUSH);
}

bool QtIOCompressorPrivate::flushZlib(int flushMode)
{
    zlib.next_in = nullptr;
    zlib.avail_in = 0;
    return compress(flushMode);
}

// Hands all input to zlib, and what it makes of it to the device.
bool QtIOCompressorPrivate::compress(int flushMode)
{
    int code = Z_OK;
    do {
        zlib.next_out = buffer.data();
        zlib.avail_out = static_cast<uInt>(bufferSize);
        code = deflate(&zlib, flushMode);
        if (code != Z_OK && code != Z_STREAM_END) {
            state = Failed;
            setZlibError(QStringLiteral("Internal zlib error when compressing: "), code);
            return false;
        }
        if (!writeBytes(buffer.data(), static_cast<unsigned>(bufferSize) - zlib.avail_out))
            return false;
    } while (flushMode == Z_FINISH ? code != Z_STREAM_END : zlib.avail_out == 0);
    return true;
}

// Each attempt offers the whole block again.
bool QtIOCompressorPrivate::writeBytes(unsigned char* bytes, unsigned count)
{
    qint64 accepted = 0;
    do {
        const qint64 written = device->write(reinterpret_cast<char*>(bytes), count);
        if (written == -1) {
            q->setErrorString(QStringLiteral("Error writing to underlying device: ") +
                              device->errorString());
            return false;
        }
        accepted += written;
    } while (accepted < count);
    state = WriteBytesWritten;
    return true;
}

void QtIOCompressorPrivate::setZlibError(const QString& prefix, int code)
{
    const char* text = zError(code);
    q->setErrorString(text ? prefix + QLatin1String(text)
                           : prefix + QStringLiteral(" Unknown error, code %1").arg(code));
}
