#ifndef TABLEDB_TOOLS_TOOLCOMMANDS_H
#define TABLEDB_TOOLS_TOOLCOMMANDS_H

#include <QStringList>

class QTextStream;

// tabledb-tool: info, dump, convert, diff and check of table files.
// `arguments` start with the program's name. Returns the exit code: 0 done,
// 1 a file missing, unreadable, damaged or not writable, 2 bad usage.
// With `terminal`, long reads show a progress bar on `err`.
int runTool(const QStringList &arguments, QTextStream &out, QTextStream &err, bool terminal);

#endif // TABLEDB_TOOLS_TOOLCOMMANDS_H
