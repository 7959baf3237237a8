#include "settings/settings.h"
#include "settings/settings_p.h"

#include <QEvent>
#include <QStandardPaths>

Settings::Settings(QSettings *settings) : d(new SettingsPrivate(settings, false)) { }

Settings::Settings(const QFileInfo &file, const QString &group)
    : d(new SettingsPrivate(new QSettings(file.filePath(), QtJsonSettings::jsonFormat()), true))
{
    const QSettings::Status result = status();
    if (result != QSettings::NoError) {
        QString message = tr("Файл конфигурации не может быть загружен.");
        if (result == QSettings::AccessError)
            message += QLatin1Char('\n') + tr("Невозможно открыть файл.");
        else if (result == QSettings::FormatError)
            message += QLatin1Char('\n') + tr("Формат файла не соответствует заданному.");
        message += QLatin1Char('\n') + file.filePath();
        guiLog() << message;
    }
    if (!group.isEmpty())
        beginGroup(group);
}

Settings::~Settings() = default;

QFileInfo Settings::settingsPath(bool writable, const QString &group, const QFileInfo &appPath,
                                 const QFileInfo &customPath)
{
    if (!appPath.exists() || writable)
        return customPath;
    const Settings custom(customPath, QString());
    return custom.childGroups().contains(group, Qt::CaseSensitive) ? customPath : appPath;
}

bool Settings::isPortable()
{
    return !QFileInfo::exists(QCoreApplication::applicationDirPath()
                              + QLatin1String("/.installed"));
}

QDir Settings::settingsDir(const QString &name, bool forApp)
{
    QDir dir;
    if (!isPortable() && !forApp) {
        dir.setPath(QStandardPaths::writableLocation(QStandardPaths::DataLocation));
    } else {
        dir.setPath(QCoreApplication::applicationDirPath());
        if (!forApp && !dir.cd(QStringLiteral("user")) && dir.mkpath(QStringLiteral("user")))
            dir.cd(QStringLiteral("user"));
    }
    if (name.isEmpty())
        return dir;

    if (!dir.cd(name)) {
        if (forApp) {
            // The delivered directory is missing: name it anyway, so that
            // readers find nothing there instead of files of its parent.
            dir.setPath(dir.filePath(name));
        } else if (dir.mkpath(name)) {
            dir.cd(name);
        }
    }
    return dir;
}

QSettings::Status Settings::status()
{
    QSettings *settings = d->settings;
    if (qobject_cast<MapSettings *>(settings))
        return QSettings::NoError;

    // Makes QSettings write pending changes and read the file now.
    QEvent update(QEvent::UpdateRequest);
    QCoreApplication::sendEvent(settings, &update);

    bool empty = true;
    const QStringList keys = settings->allKeys();
    for (const QString &key : keys) {
        if (!key.isEmpty()) {
            empty = false;
            break;
        }
    }
    if (empty && settings->group().isEmpty()) {
        const QFileInfo file(settings->fileName());
        if (file.exists() && file.size() != 0)
            return QSettings::FormatError;
    }
    return settings->status();
}

int Settings::format() const
{
    return d->settings->format();
}

QSettings *Settings::getQSettings()
{
    return d->settings;
}

const QSettings *Settings::getQSettings() const
{
    return d->settings;
}

void Settings::setValue(const QString &key, const QVariant &value)
{
    d->settings->setValue(key, value);
}

QVariant Settings::value(const QString &key, const QVariant &defaultValue) const
{
    return d->settings->value(key, defaultValue);
}

QStringList Settings::allKeys() const
{
    return d->settings->allKeys();
}

bool Settings::contains(const QString &key) const
{
    return d->settings->contains(key);
}

void Settings::beginGroup(const QString &prefix)
{
    d->settings->beginGroup(prefix);
}

void Settings::endGroup()
{
    d->settings->endGroup();
}

QString Settings::group() const
{
    return d->settings->group();
}

void Settings::remove(const QString &key)
{
    d->settings->remove(key);
}

int Settings::beginReadArray(const QString &prefix)
{
    return d->settings->beginReadArray(prefix);
}

void Settings::beginWriteArray(const QString &prefix, int size)
{
    d->settings->beginWriteArray(prefix, size);
}

void Settings::setArrayIndex(int i)
{
    d->settings->setArrayIndex(i);
}

void Settings::endArray()
{
    d->settings->endArray();
}

QStringList Settings::childGroups() const
{
    return d->settings->childGroups();
}

QStringList Settings::childKeys() const
{
    return d->settings->childKeys();
}

void Settings::sync()
{
    d->settings->sync();
}
