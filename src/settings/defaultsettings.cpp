#include "settings/defaultsettings.h"

DefaultSettings::DefaultSettings(const QString &group)
    : Settings(settingsPath(true, group, appPath(), customPath()), group)
{
}

DefaultSettings::DefaultSettings(const QFileInfo &file, const QString &group)
    : Settings(file, group)
{
}

DefaultSettings DefaultSettings::createReadOnly(const QString &group)
{
    return DefaultSettings(settingsPath(false, group, appPath(), customPath()), group);
}

DefaultSettings DefaultSettings::createReadWrite(const QString &group)
{
    return DefaultSettings(group);
}

QFileInfo DefaultSettings::appPath()
{
    return QFileInfo(settingsDir(QStringLiteral("user_defaults"), true), rawFileName());
}

QFileInfo DefaultSettings::customPath()
{
    return QFileInfo(settingsDir(QStringLiteral("settings"), false), rawFileName());
}

QString DefaultSettings::rawFileName()
{
    return QStringLiteral("default.json");
}

void DefaultSettings::clear()
{
    // The group is removed from the root, so a nested group is left wholly
    // rather than one level, and entered again as it was.
    const QString current = group();
    while (!group().isEmpty())
        endGroup();
    remove(current);
    if (!current.isEmpty())
        beginGroup(current);
}
