#include "io/writebehinddevice_p.h"

#include <QFileDevice>

#include <fcntl.h>

namespace {

// Large enough that the threads seldom wake each other, small enough that the
// blocks in flight stay in the cache for the kernel's copy.
const int blockBytes = 256 * 1024;
const size_t maxBlocks = 4; // bounds the memory written behind
// How much is written before the kernel is asked to start writing it back.
const qint64 writebackBytes = 8 * 1024 * 1024;

} // namespace

WriteBehindDevice::WriteBehindDevice(QFileDevice *target) : m_target(target)
{
    QIODevice::open(QIODevice::WriteOnly | QIODevice::Unbuffered);
    m_current.reserve(blockBytes);
    m_thread = std::thread(&WriteBehindDevice::run, this);
}

WriteBehindDevice::~WriteBehindDevice()
{
    stop();
}

void WriteBehindDevice::run()
{
    const int fd = m_target->handle();
    qint64 written = 0;
    qint64 startedBack = 0; // the bytes whose writeback has been started
    for (;;) {
        QByteArray block;
        {
            std::unique_lock<std::mutex> lock(m_mutex);
            m_changed.wait(lock, [this] { return m_stop || m_finish || !m_blocks.empty(); });
            if (m_stop || m_blocks.empty())
                return;
            block = std::move(m_blocks.front());
            m_blocks.pop_front();
            if (m_blocks.size() == maxBlocks - 1) // the writer may be waiting for room
                m_changed.notify_all();
        }
        if (!writeAll(block)) {
            std::lock_guard<std::mutex> lock(m_mutex);
            m_failed = true;
            m_error = m_target->errorString();
            m_blocks.clear();
            m_changed.notify_all();
            return;
        }
        written += block.size();
        block.resize(0); // keeps its reserved capacity
        {
            std::lock_guard<std::mutex> lock(m_mutex);
            m_spare.push_back(std::move(block));
        }
        if (fd >= 0 && written - startedBack >= writebackBytes && m_target->flush()) {
            ::sync_file_range(fd, startedBack, written - startedBack, SYNC_FILE_RANGE_WRITE);
            startedBack = written;
        }
    }
}

bool WriteBehindDevice::writeAll(const QByteArray &block)
{
    // A full disk first shows as a short write, which carries no reason; the
    // write of the rest fails with the system's.
    for (qint64 done = 0; done < block.size();) {
        const qint64 n = m_target->write(block.constData() + done, block.size() - done);
        if (n <= 0)
            return false;
        done += n;
    }
    return true;
}

bool WriteBehindDevice::queue(QByteArray &block)
{
    std::unique_lock<std::mutex> lock(m_mutex);
    m_changed.wait(lock, [this] { return m_failed || m_stop || m_blocks.size() < maxBlocks; });
    if (m_failed || m_stop || m_finish)
        return false;
    m_blocks.push_back(std::move(block));
    if (m_blocks.size() == 1) // the thread may be waiting for it
        m_changed.notify_all();
    if (!m_spare.empty()) {
        block = std::move(m_spare.front());
        m_spare.pop_front();
    }
    if (block.capacity() < blockBytes)
        block.reserve(blockBytes);
    return true;
}

bool WriteBehindDevice::push()
{
    if (m_current.isEmpty() || queue(m_current))
        return true;
    std::lock_guard<std::mutex> lock(m_mutex);
    setErrorString(m_failed ? m_error : QStringLiteral("Write after the end"));
    return false;
}

qint64 WriteBehindDevice::writeData(const char *data, qint64 size)
{
    const qint64 total = size;
    while (size > 0) {
        const qint64 n = qMin<qint64>(size, blockBytes - m_current.size());
        m_current.append(data, int(n));
        data += n;
        size -= n;
        if (m_current.size() < blockBytes)
            break;
        if (!push())
            return -1;
    }
    return total;
}

void WriteBehindDevice::end(bool dropQueued)
{
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        if (dropQueued)
            m_stop = true;
        m_finish = true;
    }
    m_changed.notify_all();
    if (m_thread.joinable())
        m_thread.join();
}

bool WriteBehindDevice::finish()
{
    const bool queued = push();
    m_current.clear();
    end(!queued);
    // The thread has ended: what it left is ours to read.
    if (m_failed)
        setErrorString(m_error);
    return queued && !m_failed;
}

void WriteBehindDevice::stop()
{
    end(true);
}
