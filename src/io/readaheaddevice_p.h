#ifndef TABLEDB_IO_READAHEADDEVICE_P_H
#define TABLEDB_IO_READAHEADDEVICE_P_H

#include <QByteArray>
#include <QIODevice>

#include <condition_variable>
#include <deque>
#include <mutex>
#include <thread>

// Reads another sequential device ahead on a thread of its own, so that the
// work behind that device (inflating a gzip file) overlaps with the reader's.
// The source is used only by that thread from construction to destruction.
class ReadAheadDevice : public QIODevice
{
public:
    // REQUIRES: `source` is open for reading and outlives this object.
    explicit ReadAheadDevice(QIODevice *source);
    ~ReadAheadDevice() override;

    bool isSequential() const override { return true; }
    // Waits for the first block still to come, so that atEnd() is true only
    // at the end.
    qint64 bytesAvailable() const override;

protected:
    qint64 readData(char *data, qint64 maxSize) override;
    qint64 writeData(const char *, qint64) override { return -1; }

private:
    void run();

    QIODevice *m_source; // not owned
    mutable std::mutex m_mutex;
    mutable std::condition_variable m_changed;
    std::deque<QByteArray> m_blocks; // filled by the thread, emptied by readData
    int m_frontUsed = 0; // bytes of the front block already read
    bool m_finished = false; // the source has no more
    bool m_stop = false; // the reader has gone
    std::thread m_thread;
};

#endif // TABLEDB_IO_READAHEADDEVICE_P_H
