#ifndef TABLEDB_FUZZ_FUZZSUPPORT_H
#define TABLEDB_FUZZ_FUZZSUPPORT_H

// Shared by the harnesses: a QCoreApplication for the whole run, Qt's message
// channel silenced (readers log every bad input, which would drown the fuzzer),
// and FUZZ_CHECK, which turns a broken property into a crash that libFuzzer
// records with its input.

#include <QByteArray>
#include <QCoreApplication>
#include <QString>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>

namespace fuzz {

inline void silentMessages(QtMsgType, const QMessageLogContext &, const QString &) {}

inline void start(int *argc, char ***argv)
{
    qInstallMessageHandler(silentMessages);
    static QCoreApplication app(*argc, *argv);
}

[[noreturn]] inline void propertyFailed(const char *file, int line, const char *what,
                                        const QString &detail)
{
    std::fprintf(stderr, "%s:%d: property failed: %s\n  %s\n", file, line, what,
                 detail.toUtf8().constData());
    std::abort();
}

// Reads `text` with T::fromString, which throws a QString for text it refuses.
template <class T>
bool readText(const QString &text, T &value)
{
    try {
        value = T::fromString(text);
        return true;
    } catch (const QString &) {
        return false;
    }
}

} // namespace fuzz

#define FUZZ_CHECK(condition, detail) \
    do { \
        if (!(condition)) \
            fuzz::propertyFailed(__FILE__, __LINE__, #condition, (detail)); \
    } while (0)

#define FUZZ_INIT \
    extern "C" int LLVMFuzzerInitialize(int *argc, char ***argv) \
    { \
        fuzz::start(argc, argv); \
        return 0; \
    }

#endif // TABLEDB_FUZZ_FUZZSUPPORT_H
