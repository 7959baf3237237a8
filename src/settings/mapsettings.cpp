#include "settings/mapsettings.h"
#include "settings/mapsettings_p.h"

MapSettings::MapSettings()
    : QSettings(QString(), QtJsonSettings::mapFormat()), d(new MapSettingsPrivate(this))
{
    init();
}

MapSettings::MapSettings(const MapSettings &other) : MapSettings()
{
    restore(other);
}

MapSettings::MapSettings(const Settings &other) : MapSettings()
{
    restore(*other.getQSettings());
}

MapSettings::MapSettings(const QSettings &other) : MapSettings()
{
    restore(other);
}

MapSettings &MapSettings::operator=(const MapSettings &other)
{
    if (&other != this) {
        clear();
        restore(other);
    }
    return *this;
}

MapSettings::~MapSettings()
{
    // The store outlives this object; its keys must not.
    clear();
    delete d;
}

void MapSettings::init()
{
    d->group = QStringLiteral("0x%1").arg(quintptr(this), 16, 16, QLatin1Char('0'));
    beginGroup(d->group);
}

void MapSettings::clear()
{
    while (!group().isEmpty())
        endGroup();
    remove(d->group);
    beginGroup(d->group);
}

void MapSettings::endAllGroups()
{
    for (QString g = group(); g != d->group && !g.isEmpty(); g = group())
        endGroup();
}

void MapSettings::store(QSettings &to, const QString &prefix)
{
    if (!prefix.isEmpty())
        to.beginGroup(prefix);
    const QStringList old = to.allKeys();
    for (const QString &key : old)
        to.remove(key);
    const QStringList keys = allKeys();
    for (const QString &key : keys)
        to.setValue(key, value(key));
    if (!prefix.isEmpty())
        to.endGroup();
}

void MapSettings::store(Settings &to, const QString &prefix)
{
    store(*to.getQSettings(), prefix);
}

void MapSettings::storeAdd(QSettings &to, const QString &prefix)
{
    if (!prefix.isEmpty())
        to.beginGroup(prefix);
    const QStringList keys = allKeys();
    for (const QString &key : keys) {
        // The key may be a group in the target; its children must go.
        to.remove(key);
        to.setValue(key, value(key));
    }
    if (!prefix.isEmpty())
        to.endGroup();
}

void MapSettings::restore(QSettings &from, const QString &prefix)
{
    restore(Settings(&from), prefix);
}

void MapSettings::restore(const QSettings &from)
{
    const QStringList keys = from.allKeys();
    for (const QString &key : keys)
        setValue(key, from.value(key));
}

void MapSettings::restore(const Settings &from, const QString &prefix)
{
    // A handle copy shares the same QSettings and may enter the prefix on it.
    Settings source = from;
    if (!prefix.isEmpty())
        source.beginGroup(prefix);
    const QStringList keys = source.allKeys();
    for (const QString &key : keys)
        setValue(key, source.value(key));
    if (!prefix.isEmpty())
        source.endGroup();
}

Settings &MapSettings::asSetRef()
{
    return d->settings;
}

const Settings &MapSettings::asSetRef() const
{
    return d->settings;
}
