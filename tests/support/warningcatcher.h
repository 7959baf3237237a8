#ifndef TABLEDB_TESTS_WARNINGCATCHER_H
#define TABLEDB_TESTS_WARNINGCATCHER_H

#include <QStringList>
#include <QtGlobal>

// Collects the Qt warnings logged during its lifetime.
class WarningCatcher
{
public:
    WarningCatcher() : m_previous(qInstallMessageHandler(&handler)) { messages().clear(); }
    ~WarningCatcher() { qInstallMessageHandler(m_previous); }
    static QStringList &messages()
    {
        static QStringList list;
        return list;
    }

private:
    static void handler(QtMsgType type, const QMessageLogContext &, const QString &text)
    {
        if (type == QtWarningMsg)
            messages().append(text);
    }
    QtMessageHandler m_previous;
};

#endif // TABLEDB_TESTS_WARNINGCATCHER_H
