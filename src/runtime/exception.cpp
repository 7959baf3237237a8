#include "runtime/exception.h"

#include <QCoreApplication>
#include <QDebug>

#include <cstdlib>
#include <cxxabi.h>
#include <dlfcn.h>
#include <execinfo.h>

namespace {

const int MaxFrames = 32;
// Frames that may sit above getStack itself: a sanitizer's interceptor of
// backtrace() adds one.
const int MaxForeignFrames = 4;

QString demangled(const char *name)
{
    int status = -1;
    char *plain = abi::__cxa_demangle(name, nullptr, nullptr, &status);
    if (status != 0 || !plain)
        return QString::fromUtf8(name);
    const QString result = QString::fromUtf8(plain);
    std::free(plain);
    return result;
}

} // namespace

Exception::Exception(const QString &message)
    : m_message(message), m_stack(getStack())
{
}

Exception::Exception(const Exception &other) = default;

Exception &Exception::operator=(const Exception &other) = default;

Exception::~Exception() = default;

void Exception::dump() const
{
    for (const QString &line : m_stack)
        qDebug() << line;
}

// Kept out of line so that frame 0 is always this function and can be dropped.
__attribute__((noinline)) QStringList Exception::getStack()
{
    void *raw[MaxFrames + MaxForeignFrames];
    const int rawCount = backtrace(raw, MaxFrames + MaxForeignFrames);

    // Frame 0 is this function; whatever lies above it is not the caller's.
    int self = 0;
    for (int i = 0; i < rawCount && i < MaxForeignFrames; ++i) {
        Dl_info info;
        if (dladdr(raw[i], &info) != 0
            && info.dli_saddr == reinterpret_cast<void *>(&Exception::getStack)) {
            self = i;
            break;
        }
    }
    void **frames = raw + self;
    const int count = qMin(rawCount - self, MaxFrames);

    QStringList lines;
    if (count < 2)
        return lines;
    lines.reserve(count - 1);

    const QString application = QCoreApplication::applicationName().leftJustified(35, QLatin1Char(' '));
    // An unresolved frame keeps the previous symbol, as one reused symbol
    // record would; the first frames start from an empty one.
    quintptr address = 0;
    QString name;
    for (int i = 1; i < count; ++i) {
        Dl_info info;
        if (dladdr(frames[i], &info) != 0 && info.dli_sname) {
            address = quintptr(info.dli_saddr);
            name = demangled(info.dli_sname);
        }
        // One pass of multi-argument arg(), so a '%' inside a name or the
        // application name is never substituted again.
        lines.append(QStringLiteral("%1 %2 0x%3 %4")
                         .arg(QString::number(i).leftJustified(3, QLatin1Char(' ')), application,
                              QStringLiteral("%1").arg(address, 8, 16, QLatin1Char('0')), name));
    }
    return lines;
}
