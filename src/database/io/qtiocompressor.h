// SPDX-License-Identifier: MIT
#pragma once

#include "base/export.h"

#include <QIODevice>

#include <memory>

class QtIOCompressorPrivate;

/**
 * A device that compresses with zlib what is written to it, into another device, or decompresses
 * what is read from it, out of another device.
 *
 * Ownership: the underlying device stays the caller's and must outlive this one. If it is closed
 * when open() is called, it is opened then and closed again by close(). The destructor closes.
 *
 * Threads: as any QIODevice, one thread at a time.
 *
 * Errors: nothing is thrown (but std::bad_alloc by the constructor). A read or a write that fails
 * returns -1 and leaves its reason in errorString(); from then on every call fails until the device
 * is closed and opened again. Only a write that the underlying device has refused does not close
 * the way for later ones, but the compressed stream is damaged then.
 *
 * Cost: one buffer for each device. Reading inflates straight into the caller's memory and writing
 * deflates straight out of it: large reads and writes are much cheaper than many small ones.
 *
 * Some behaviours that one might not expect, and on which programs may rely:
 *  - The device is sequential, and one compressed stream is read: what follows it is given back to
 *    the underlying device with ungetChar(), behind it one byte more of undefined value.
 *  - Compressed input that ends too early, also only for now, reads as the end (0 bytes), and what
 *    the failing call had decompressed so far is lost. To read from a socket, collect the whole
 *    stream first.
 *  - A partial write by the underlying device is repeated from the beginning, not continued: give
 *    it devices that accept a block whole, as files and buffers do.
 *  - flush() with nothing written since the last flush() fails the device.
 *  - Closing after no write at all leaves the underlying device empty, without a header.
 *
 * @code
 * QFile file(QStringLiteral("quotes.gz"));
 * QtIOCompressor device(&file);
 * device.setStreamFormat(QtIOCompressor::Gzip);
 * if (device.open(QIODevice::WriteOnly))
 *     device.write(bytes);
 * @endcode
 */
class LIVETABLE_EXPORT QtIOCompressor : public QIODevice
{
    Q_OBJECT

public:
    /// What surrounds the compressed data.
    enum StreamFormat
    {
        Zlib = 0,      ///< a zlib header and checksum
        Gzip = 1,      ///< a gzip header and checksum, as gzip files have them
        RawDeflate = 2 ///< nothing, so damage can go unnoticed
    };

    /// `compressionLevel` from 0 (none) to 9, or -1 for zlib's choice; it counts for writing only,
    /// and another number makes open() fail. `bufferSize` in bytes, of the one buffer on the side
    /// of the underlying device; below 16 counts as 16.
    explicit QtIOCompressor(QIODevice* device, int compressionLevel = 6, int bufferSize = 65500);
    ~QtIOCompressor() override;

    /// Takes effect at the next open(). Zlib at the start.
    void setStreamFormat(StreamFormat format);
    StreamFormat streamFormat() const;

    /// Whether the zlib in use can read and write the gzip format.
    static bool isGzipSupported();
    /// The same for a zlib of this version: false for 0.x, 1.0.x, 1.1.x and for texts of fewer than
    /// three characters.
    static bool checkGzipSupport(const char* version);

    /// True.
    bool isSequential() const override;
    /// Opens for exactly one of reading and writing. On failure the device is closed, and so is the
    /// underlying one if it was closed before: false, with a warning for a wrong mode, otherwise
    /// with an errorString().
    bool open(OpenMode mode) override;
    /// When writing, finishes the compressed stream; a failure to do so shows in errorString().
    void close() override;
    /// When writing, makes everything written so far readable at the other end. Costs compression.
    void flush();
    /// 1 while there may be more to read, else 0: not a number of bytes.
    qint64 bytesAvailable() const override;

protected:
    /// What QIODevice reads by.
    qint64 readData(char* data, qint64 maxSize) override;
    /// What QIODevice writes by.
    qint64 writeData(const char* data, qint64 size) override;

private:
    Q_DISABLE_COPY(QtIOCompressor)
    friend class QtIOCompressorPrivate;
    const std::unique_ptr<QtIOCompressorPrivate> d;
};
