#ifndef TABLEDB_RUNTIME_METATYPES_P_H
#define TABLEDB_RUNTIME_METATYPES_P_H

// Registers the library's meta-types in their fixed order: datetime, decimal,
// xdecimal (each with its comparators, converters and stream operators),
// Record, the typedef "HRunnable" and "QVector<int>" with its sequence
// converter. Idempotent; run at library start-up.
void registerMetaTypes();

#endif // TABLEDB_RUNTIME_METATYPES_P_H
