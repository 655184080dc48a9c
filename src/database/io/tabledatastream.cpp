// SPDX-License-Identifier: MIT
#include "io/tabledatastream.h"

#include "base/fileio_p.h"
#include "base/icore.h"
#include "io/qtiocompressor_p.h"

#include <QFile>

#include <exception>

using LiveTable::SaveFile;

namespace {

constexpr int compressionLevel = 6;
constexpr int compressorBytes = 65500;

QString twinOf(const QString& path)
{
    return path + QLatin1String(".gz");
}

std::unique_ptr<QtIOCompressor> gzipDevice(QIODevice* file)
{
    auto device = std::make_unique<QtIOCompressor>(file, compressionLevel, compressorBytes);
    device->setStreamFormat(QtIOCompressor::Gzip);
    return device;
}

} // namespace

// --- reading ---

namespace LiveTable {

/// A file of which nothing is read behind a read that failed: QDataStream would go on with the next
/// bytes, and with them in the wrong places.
class FileForReading : public QFile
{
protected:
    qint64 readData(char* data, qint64 size) override
    {
        const qint64 got = hasFailed ? -1 : QFile::readData(data, size);
        hasFailed = got < 0;
        return got;
    }

private:
    bool hasFailed = false;
};

} // namespace LiveTable

struct TableDataStreamRead::Private
{
    // In this order: the compressor is deleted before the file it reads from.
    LiveTable::FileForReading file;
    std::unique_ptr<QtIOCompressor> compressor;
    QString error;
};

TableDataStreamRead::TableDataStreamRead(const QString& path)
    : d(new Private)
{
    d->file.setFileName(path);
    if (d->file.open(QIODevice::ReadOnly)) {
        setDevice(&d->file);
        return;
    }
    if (d->file.exists())
        d->error = d->file.errorString();
    d->file.setFileName(twinOf(path));
    d->compressor = gzipDevice(&d->file);
    if (d->compressor->open(QIODevice::ReadOnly))
        setDevice(d->compressor.get());
    else if (d->file.exists())
        d->error = d->compressor->errorString();
}

TableDataStreamRead::~TableDataStreamRead()
{
    setDevice(nullptr);
}

QString TableDataStreamRead::errorString() const
{
    return device() ? QString() : d->error;
}

// --- writing ---

struct TableDataStreamWrite::Private
{
    Private(const QString& path, bool isCompressed)
        : file(isCompressed ? twinOf(path) : path)
        , staleTwin(isCompressed ? path : twinOf(path))
    {
        if (isCompressed)
            compressor = gzipDevice(&file);
    }

    SaveFile file;
    std::unique_ptr<QtIOCompressor> compressor;
    const QString staleTwin;
    QString error;
    const int exceptions = std::uncaught_exceptions();
    bool isDone = false;
    bool isCommitted = false;
};

TableDataStreamWrite::TableDataStreamWrite(const QString& path)
    : d(new Private(path, ICore::instance() && ICore::instance()->compressTables()))
{
    // The file is opened first, so that the compressor leaves closing it to commit().
    if (!d->file.open(QIODevice::WriteOnly))
        return;
    if (!d->compressor)
        setDevice(&d->file);
    else if (d->compressor->open(QIODevice::WriteOnly))
        setDevice(d->compressor.get());
    else
        d->error = d->compressor->errorString();
}

TableDataStreamWrite::~TableDataStreamWrite()
{
    if (!d->isDone && status() == Ok && std::uncaught_exceptions() == d->exceptions)
        commit();
    discard();
}

bool TableDataStreamWrite::commit()
{
    if (d->isDone || !device())
        return d->isCommitted;
    const bool isWhole = status() == Ok;
    setDevice(nullptr);
    d->isDone = true;
    if (d->compressor) {
        d->compressor->close();
        if (QtIOCompressorPrivate::get(d->compressor.get())->hasUnfinished)
            d->error = d->compressor->errorString();
    }
    if (!isWhole && d->error.isNull())
        d->error = QStringLiteral("Not everything could be written.");
    if (d->error.isNull())
        d->isCommitted = d->file.commit(d->staleTwin);
    d->file.discard();
    return d->isCommitted;
}

void TableDataStreamWrite::discard()
{
    setDevice(nullptr);
    d->isDone = true;
    if (d->compressor)
        d->compressor->close();
    d->file.discard();
}

QString TableDataStreamWrite::errorString() const
{
    return d->file.failure().isNull() ? d->error : d->file.failure();
}
