#ifndef TABLEDB_TOOLS_CHANGECONSUMER_H
#define TABLEDB_TOOLS_CHANGECONSUMER_H

#include "runtime/runnable.h"

#include <QString>

#include <atomic>
#include <memory>

class LogFile;
class WatchIndex;

// Picks up a table's changes from its WatchIndex on a pool thread, as a
// terminal's window would: every few milliseconds it takes the table's lock,
// counts and clears the lists, and writes the counts to a log.
class ChangeConsumer : public Runnable
{
public:
    // `logFile` may be empty: then nothing is written.
    ChangeConsumer(WatchIndex *watch, const QString &logFile);
    ~ChangeConsumer() override;

    void run() override;
    // One pick-up; also for the caller's thread once the task is over.
    void drain();

    qint64 inserted() const { return m_inserted; }
    qint64 removed() const { return m_removed; }
    qint64 updated() const { return m_updated; }
    qint64 pickups() const { return m_pickups; }

private:
    WatchIndex *m_watch; // not owned
    std::unique_ptr<LogFile> m_log;
    std::atomic<qint64> m_inserted { 0 };
    std::atomic<qint64> m_removed { 0 };
    std::atomic<qint64> m_updated { 0 };
    std::atomic<qint64> m_pickups { 0 };
};

#endif // TABLEDB_TOOLS_CHANGECONSUMER_H
