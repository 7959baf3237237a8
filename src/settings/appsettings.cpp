#include "settings/appsettings.h"

AppSettings::AppSettings(const QString &group)
    : Settings(settingsPath(true, group, appPath(), customPath()), group)
{
}

AppSettings::AppSettings(const QFileInfo &file, const QString &group) : Settings(file, group) { }

AppSettings AppSettings::createReadOnly(const QString &group)
{
    return AppSettings(settingsPath(false, group, appPath(), customPath()), group);
}

AppSettings AppSettings::createReadWrite(const QString &group)
{
    return AppSettings(group);
}

AppSettings AppSettings::createDefault(const QString &group)
{
    return AppSettings(appPath(), group);
}

QFileInfo AppSettings::appPath()
{
    return QFileInfo(settingsDir(QStringLiteral("user_defaults"), true), rawFileName());
}

QFileInfo AppSettings::customPath()
{
    return QFileInfo(settingsDir(QStringLiteral("settings"), false), rawFileName());
}

QString AppSettings::rawFileName()
{
    return QStringLiteral("settings.json");
}

bool AppSettings::isReset()
{
    return !settingsDir(QString(), false).exists(QStringLiteral("settings"));
}
