#include "settings/workplacesettings.h"

#include <QFile>

namespace {

// Built at library start in this order, torn down at exit in reverse.
Q_GLOBAL_STATIC(MapSettings, s_sharedMap)
Q_GLOBAL_STATIC(QString, s_currentName)

} // namespace

void WorkplaceSettings::initShared()
{
    s_sharedMap();
    s_currentName();
}

WorkplaceSettings::WorkplaceSettings(const QString &name) : Settings(&m_map)
{
    MapSettings &shared = *s_sharedMap;
    if (name != *s_currentName) {
        *s_currentName = name;
        shared.clear();
        if (!name.isEmpty())
            shared.restore(Settings(fileInfoByName(name, true), QString()), QString());
    }
    m_map.clear();
    m_map.restore(shared);
}

// Each instance keeps its base bound to its own working copy: sharing the
// other's would leave the base pointing into an object that may die first.
WorkplaceSettings::WorkplaceSettings(const WorkplaceSettings &other)
    : Settings(&m_map), m_map(other.m_map)
{
}

WorkplaceSettings &WorkplaceSettings::operator=(const WorkplaceSettings &other)
{
    if (&other != this) {
        m_map.clear();
        m_map.restore(other.m_map);
    }
    return *this;
}

WorkplaceSettings::~WorkplaceSettings()
{
    // Exit may already have torn the shared map down.
    if (s_sharedMap.isDestroyed())
        return;
    m_map.endAllGroups();
    m_map.store(*s_sharedMap, QString());
}

QString WorkplaceSettings::fallbackName()
{
    return QStringLiteral("default");
}

QList<QPair<QString, QFileInfo>> WorkplaceSettings::workplaces(bool custom)
{
    const QDir dir = custom ? customDir() : appDir();
    const QFileInfoList files =
        dir.entryInfoList(QStringList(QStringLiteral("*.json")), QDir::Files, QDir::Name);
    QList<QPair<QString, QFileInfo>> result;
    result.reserve(files.size());
    for (const QFileInfo &file : files)
        result.append(qMakePair(file.baseName(), file));
    return result;
}

QPair<QString, QFileInfo> WorkplaceSettings::workplace(const QString &name, bool custom)
{
    return qMakePair(name, fileInfoByName(name, custom));
}

bool WorkplaceSettings::rename(QPair<QString, QFileInfo> &workplace, const QString &newName)
{
    QFile file(workplace.second.filePath());
    if (!file.exists() && file.open(QIODevice::WriteOnly))
        file.close();
    const bool renamed = file.rename(fileInfoByName(newName, true).filePath());
    if (renamed) {
        workplace.first = newName;
        workplace.second = QFileInfo(file.fileName());
    }
    return renamed;
}

QDir WorkplaceSettings::appDir()
{
    return settingsDir(QStringLiteral("user_distrib/workplaces"), true);
}

QDir WorkplaceSettings::customDir()
{
    return settingsDir(QStringLiteral("workplaces"), false);
}

QFileInfo WorkplaceSettings::fileInfoByName(const QString &name, bool custom)
{
    const QDir dir = custom ? customDir() : appDir();
    return QFileInfo(dir.absolutePath() + QDir::separator() + name + QLatin1String(".json"));
}
