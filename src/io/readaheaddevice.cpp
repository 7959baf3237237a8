#include "io/readaheaddevice_p.h"

#include <cstring>

namespace {

// Large enough that the threads seldom wake each other.
const int blockSize = 256 * 1024;
const size_t maxBlocks = 8; // bounds the memory read ahead

} // namespace

ReadAheadDevice::ReadAheadDevice(QIODevice *source) : m_source(source)
{
    QIODevice::open(QIODevice::ReadOnly);
    m_thread = std::thread(&ReadAheadDevice::run, this);
}

ReadAheadDevice::~ReadAheadDevice()
{
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_stop = true;
    }
    m_changed.notify_all();
    m_thread.join();
}

void ReadAheadDevice::run()
{
    for (;;) {
        QByteArray block(blockSize, Qt::Uninitialized);
        const qint64 got = m_source->read(block.data(), blockSize);
        std::unique_lock<std::mutex> lock(m_mutex);
        if (got <= 0) {
            m_finished = true;
            m_changed.notify_all();
            return;
        }
        block.resize(int(got));
        m_changed.wait(lock, [this] { return m_stop || m_blocks.size() < maxBlocks; });
        if (m_stop)
            return;
        m_blocks.push_back(block);
        if (m_blocks.size() == 1) // the reader may be waiting for it
            m_changed.notify_all();
    }
}

qint64 ReadAheadDevice::bytesAvailable() const
{
    std::unique_lock<std::mutex> lock(m_mutex);
    m_changed.wait(lock, [this] { return m_finished || !m_blocks.empty(); });
    const qint64 queued = m_blocks.empty() ? 0 : m_blocks.front().size() - m_frontUsed;
    return QIODevice::bytesAvailable() + queued;
}

qint64 ReadAheadDevice::readData(char *data, qint64 maxSize)
{
    qint64 done = 0;
    std::unique_lock<std::mutex> lock(m_mutex);
    while (done < maxSize) {
        m_changed.wait(lock, [this] { return m_finished || !m_blocks.empty(); });
        if (m_blocks.empty())
            break;
        const QByteArray &front = m_blocks.front();
        const qint64 n = qMin<qint64>(maxSize - done, front.size() - m_frontUsed);
        std::memcpy(data + done, front.constData() + m_frontUsed, size_t(n));
        done += n;
        m_frontUsed += int(n);
        if (m_frontUsed == front.size()) {
            m_blocks.pop_front();
            m_frontUsed = 0;
            if (m_blocks.size() == maxBlocks / 2) // the thread may be waiting for room
                m_changed.notify_all();
        }
    }
    return done;
}
