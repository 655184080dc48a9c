// SPDX-License-Identifier: MIT
// Private: not installed, may change at any time.
#pragma once

#include "io/qtiocompressor.h"

#include <zlib.h>

#include <vector>

class QtIOCompressorPrivate
{
public:
    enum State
    {
        ReadStarting,      // no compressed byte received yet
        ReadInStream,      // compressed bytes have been received
        ReadEnded,         // the end of the compressed stream was reached, its checksum is right
        WriteIdle,         // nothing written since the stream was started or finished
        WriteBytesWritten, // the underlying device has received compressed bytes
        Closed,            // never opened
        Failed             // by a read, a write or zlib
    };

    static const QtIOCompressorPrivate* get(const QtIOCompressor* device)
    {
        return device->d.get();
    }

    QtIOCompressorPrivate(QtIOCompressor* owner, QIODevice* underlying, int level, int size);

    bool openUnderlying(QIODevice::OpenMode mode);
    int startZlib(bool isReading);
    void endZlib(bool isReading);
    /// Reads compressed bytes if none are left. Negative on failure, 0 when there are none yet.
    int fill();
    void pushBack();
    bool flushZlib(int flushMode);
    bool compress(int flushMode);
    bool writeBytes(unsigned char* bytes, unsigned count);
    void setZlibError(const QString& prefix, int code);

    QtIOCompressor* const q;
    QIODevice* const device;
    bool manageDevice = false; // this object opened `device`, so it closes it
    z_stream zlib = {};
    const int compressionLevel;
    const int bufferSize;
    std::vector<unsigned char> buffer; // bufferSize bytes and one for pushBack()
    State state = Closed;
    bool hasUnfinished = false; // the last close() could not finish the stream
    QtIOCompressor::StreamFormat streamFormat = QtIOCompressor::Zlib;
};
