#ifndef TABLEDB_IO_WRITEBEHINDDEVICE_P_H
#define TABLEDB_IO_WRITEBEHINDDEVICE_P_H

#include <QByteArray>
#include <QIODevice>
#include <QString>

#include <condition_variable>
#include <deque>
#include <mutex>
#include <thread>

class QFileDevice;

// Writes to a file on a thread of its own, so that the writer's work (encoding
// rows, deflating) overlaps with the kernel's copying, and asks the kernel to
// start writing each few megabytes back to disk at once: the sync at the end
// of a save then waits for the tail only. The file is used only by that
// thread from construction until finish() or stop() returns.
class WriteBehindDevice : public QIODevice
{
public:
    // REQUIRES: `target` is open for writing, unbuffered so that a failed
    // write carries the system's reason, and outlives this object.
    explicit WriteBehindDevice(QFileDevice *target);
    ~WriteBehindDevice() override; // stop()s

    bool isSequential() const override { return true; }

    // Writes out what is queued and ends the thread. False, with
    // errorString() set, when any byte could not be written.
    bool finish();
    // Ends the thread after the block at hand; the rest is dropped.
    void stop();

    // A writer that fills blocks in place saves a copy: it appends to block()
    // and hands it over with push(), which leaves an empty block there. False,
    // with errorString() set, once writing has failed.
    QByteArray &block() { return m_current; }
    bool push();

protected:
    qint64 readData(char *, qint64) override { return -1; }
    qint64 writeData(const char *data, qint64 size) override;

private:
    void run();
    bool writeAll(const QByteArray &block); // false with the target's error set
    bool queue(QByteArray &block); // false once writing has failed
    void end(bool dropQueued);

    QFileDevice *m_target; // not owned
    QByteArray m_current; // filled by writeData, queued when full
    std::mutex m_mutex;
    std::condition_variable m_changed;
    std::deque<QByteArray> m_blocks; // filled by writeData, emptied by the thread
    std::deque<QByteArray> m_spare; // written blocks, reused while still in cache
    bool m_finish = false; // no more blocks will come
    bool m_stop = false; // drop what is queued
    bool m_failed = false;
    QString m_error; // the target's error text, when m_failed
    std::thread m_thread;
};

#endif // TABLEDB_IO_WRITEBEHINDDEVICE_P_H
