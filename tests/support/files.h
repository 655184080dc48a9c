// SPDX-License-Identifier: MIT
#pragma once

#include "io/tableio.h"

#include <QDataStream>
#include <QDir>
#include <QFile>
#include <QFileInfo>

/// A file's bytes, or "no file".
inline QByteArray contentOf(const QString& path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray("no file");
}

inline void putContent(const QString& path, const QByteArray& bytes)
{
    QDir().mkpath(QFileInfo(path).path());
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly) || file.write(bytes) != bytes.size())
        qFatal("cannot write %s", qPrintable(path));
}

/// A table as its file has it.
inline QByteArray bytesOf(Table& table, bool withRows = true)
{
    QByteArray bytes;
    QDataStream stream(&bytes, QIODevice::WriteOnly);
    TableIO(&table).write(stream, withRows);
    return bytes;
}
