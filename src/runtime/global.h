#ifndef TABLEDB_RUNTIME_GLOBAL_H
#define TABLEDB_RUNTIME_GLOBAL_H

#include <QtGlobal>

#if defined(TABLEDB_BUILD_LIBRARY)
#define TABLEDB_EXPORT Q_DECL_EXPORT
#else
#define TABLEDB_EXPORT Q_DECL_IMPORT
#endif

// Width-explicit integer names used throughout the library's interfaces.
typedef qint64 int64;
typedef quint64 uint64;

#endif // TABLEDB_RUNTIME_GLOBAL_H
