#include "changeconsumer.h"

#include "index/watchindex.h"
#include "runtime/logfile.h"
#include "table/table.h"

#include <QThread>

ChangeConsumer::ChangeConsumer(WatchIndex *watch, const QString &logFile) : m_watch(watch)
{
    setAutoDelete(false);
    if (!logFile.isEmpty())
        m_log.reset(new LogFile(logFile));
}

ChangeConsumer::~ChangeConsumer() = default;

void ChangeConsumer::run()
{
    while (canRun()) {
        drain();
        QThread::msleep(20);
    }
}

void ChangeConsumer::drain()
{
    int inserted, removed, updated;
    {
        TableLocker locker(m_watch->table());
        inserted = m_watch->inserted().size();
        removed = m_watch->removed().size();
        updated = m_watch->updated().size();
        m_watch->clear();
    }
    m_inserted += inserted;
    m_removed += removed;
    m_updated += updated;
    ++m_pickups;
    if (m_log && inserted + removed + updated > 0) {
        *m_log << LogFile::timestamp() << ' ' << m_watch->table()->name() << ": " << inserted
               << " inserted, " << removed << " removed, " << updated << " updated\n";
    }
}
