// SPDX-License-Identifier: MIT
// The compressing device. The first two bytes choose the format, the buffer and what is done with
// the others: decompressed as they are; compressed and back, which must give the same; compressed,
// damaged and decompressed.
#include "io/qtiocompressor.h"
#include "require.h"

#include <QBuffer>

namespace {

using Format = QtIOCompressor::StreamFormat;

struct Choice
{
    Format format;
    int bufferSize;
    int readSize;
};

QByteArray decompressed(const QByteArray& bytes, const Choice& choice)
{
    QBuffer below;
    below.setData(bytes);
    QtIOCompressor device(&below, 6, choice.bufferSize);
    device.setStreamFormat(choice.format);
    require(device.open(QIODevice::ReadOnly));
    QByteArray all;
    constexpr int most = 1 << 20; // a bomb is not worth more
    while (all.size() < most) {
        const QByteArray part = device.read(choice.readSize);
        if (part.isEmpty())
            break;
        all += part;
    }
    return all;
}

QByteArray compressed(const QByteArray& bytes, const Choice& choice)
{
    QBuffer below;
    QtIOCompressor device(&below, 1, choice.bufferSize);
    device.setStreamFormat(choice.format);
    require(device.open(QIODevice::WriteOnly));
    for (int at = 0; at < bytes.size(); at += choice.readSize) {
        device.write(bytes.mid(at, choice.readSize));
        if (at % 3 == 0)
            device.flush();
    }
    device.close();
    return below.data();
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, size_t size)
{
    if (size < 3)
        return 0;
    const Choice choice{Format(data[0] % 3), data[0] < 128 ? 16 + data[0] : 65500,
                        1 + data[1] * data[1]};
    const QByteArray bytes(reinterpret_cast<const char*>(data) + 2, static_cast<int>(size) - 2);
    decompressed(bytes, choice);
    QByteArray stream = compressed(bytes, choice);
    require(decompressed(stream, choice) == bytes);
    const int at = (bytes.at(0) & 0xFF) * (stream.size() - 1) / 255;
    stream[at] = static_cast<char>(stream.at(at) ^ (data[1] | 1));
    decompressed(stream, choice);
    return 0;
}
