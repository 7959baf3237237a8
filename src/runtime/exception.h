#ifndef TABLEDB_RUNTIME_EXCEPTION_H
#define TABLEDB_RUNTIME_EXCEPTION_H

#include "runtime/global.h"

#include <QString>
#include <QStringList>

// The exception thrown for misuse of tables and fields. It carries a message
// and the call stack taken when it was constructed, one line a frame, the
// innermost first, in the form
//     "<index, left in 3> <application name, left in 35> 0x<symbol start, 8+ hex> <name>"
// Thrown and caught by value; deliberately not derived from std::exception,
// callers catch it by its own type.
//
// Construction resolves up to 31 frames through the dynamic symbol table, so
// it is meant for faults, not for flow of control. Frames of code that exports
// no symbols repeat the name of the frame before them.
class TABLEDB_EXPORT Exception
{
public:
    explicit Exception(const QString &message);
    Exception(const Exception &other);
    Exception &operator=(const Exception &other);
    virtual ~Exception();

    QString message() const { return m_message; }
    QStringList stack() const { return m_stack; }

    // Writes each stack line through qDebug(), one message a line, quoted as
    // qDebug quotes a QString. An empty capture writes nothing.
    void dump() const;

private:
    static QStringList getStack();

    QString m_message;
    QStringList m_stack;
};

#endif // TABLEDB_RUNTIME_EXCEPTION_H
