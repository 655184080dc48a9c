// SPDX-License-Identifier: MIT
#include "settings/mapsettings.h"

#include "settings/qtjsonsettings.h"
#include "settings/settings.h"

#include <QEvent>
#include <QFile>
#include <QSharedPointer>

class MapSettingsPrivate
{
public:
    QString groupName;
    QSharedPointer<Settings> settings; ///< over the object itself, which it does not own
};

namespace {

/// What is below the open group. Copied first: source and destination may be the same object, or
/// one of them a part of the other.
QMap<QString, QVariant> valuesOf(const QSettings& settings)
{
    QMap<QString, QVariant> values;
    const QStringList keys = settings.allKeys();
    for (const QString& key : keys)
        values.insert(key, settings.value(key));
    return values;
}

void setValues(QSettings& settings, const QMap<QString, QVariant>& values)
{
    for (auto value = values.begin(); value != values.end(); ++value)
        settings.setValue(value.key(), value.value());
}

/// Opens the group unless its name is empty, and closes it again.
class OpenGroup
{
    Q_DISABLE_COPY(OpenGroup)

public:
    OpenGroup(QSettings& opened, const QString& prefix)
        : settings(prefix.isEmpty() ? nullptr : &opened)
    {
        if (settings)
            settings->beginGroup(prefix);
    }
    ~OpenGroup()
    {
        if (settings)
            settings->endGroup();
    }

private:
    QSettings* const settings;
};

} // namespace

MapSettings::MapSettings()
    : QSettings(QString(), SettingsInitializer::mapFormat())
    , d(new MapSettingsPrivate)
{
    init();
}

MapSettings::MapSettings(const QSettings& src)
    : MapSettings()
{
    restore(src);
}

MapSettings::MapSettings(const Settings& src)
    : MapSettings()
{
    restore(src, QString());
}

MapSettings::MapSettings(const MapSettings& other)
    : MapSettings(static_cast<const QSettings&>(other))
{}

MapSettings& MapSettings::operator=(const MapSettings& other)
{
    if (this != &other) {
        clear();
        restore(other);
    }
    return *this;
}

MapSettings::~MapSettings()
{
    // Qt keeps the keys as long as there is another object of the format.
    clear();
}

void MapSettings::init()
{
    d->groupName = QStringLiteral("0x%1").arg(quintptr(this), 16, 16, QLatin1Char('0'));
    d->settings.reset(new Settings(this));
    clear();
}

void MapSettings::clear()
{
    while (!group().isEmpty())
        endGroup();
    remove(d->groupName);
    beginGroup(d->groupName);
}

void MapSettings::endAllGroups()
{
    while (!group().isEmpty() && group() != d->groupName)
        endGroup();
}

void MapSettings::store(QSettings& dst, const QString& prefix)
{
    const QMap<QString, QVariant> values = valuesOf(*this);
    const OpenGroup opened(dst, prefix);
    const QStringList old = dst.allKeys();
    for (const QString& key : old)
        dst.remove(key);
    setValues(dst, values);
}

void MapSettings::store(Settings& dst, const QString& prefix)
{
    store(*dst.getQSettings(), prefix);
}

void MapSettings::storeAdd(QSettings& dst, const QString& prefix)
{
    const QMap<QString, QVariant> values = valuesOf(*this);
    const OpenGroup opened(dst, prefix);
    for (auto value = values.begin(); value != values.end(); ++value) {
        dst.remove(value.key());
        dst.setValue(value.key(), value.value());
    }
}

void MapSettings::restore(const Settings& src, const QString& prefix)
{
    QMap<QString, QVariant> values;
    {
        const OpenGroup opened(*src.getQSettings(), prefix);
        values = valuesOf(*src.getQSettings());
    }
    setValues(*this, values);
}

void MapSettings::restore(QSettings& src, const QString& prefix)
{
    restore(Settings(&src), prefix);
}

void MapSettings::restore(const QSettings& src)
{
    setValues(*this, valuesOf(src));
}

Settings& MapSettings::asSetRef()
{
    return *d->settings;
}

const Settings& MapSettings::asSetRef() const
{
    return *d->settings;
}

bool MapSettings::event(QEvent* event)
{
    return event->type() == QEvent::UpdateRequest || QSettings::event(event);
}

bool readMapSettings(QIODevice&, QMap<QString, QVariant>&)
{
    return true;
}

bool writeMapSettings(QIODevice& device, const QMap<QString, QVariant>&)
{
    if (auto* const file = qobject_cast<QFile*>(&device))
        file->remove();
    return true;
}
