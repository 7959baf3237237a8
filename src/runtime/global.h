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

// Type information for the value classes: not relocatable, so that their
// meta-types carry the flags 259 (no MovableType) that other modules and saved
// variants were registered with. Qt would infer "movable" from a trivially
// copyable class, and Q_DECLARE_TYPEINFO cannot say otherwise.
#define TABLEDB_DECLARE_VALUE_TYPEINFO(TYPE) \
    template <> \
    class QTypeInfo<TYPE> \
    { \
    public: \
        enum { \
            isSpecialized = true, \
            isPointer = false, \
            isIntegral = false, \
            isComplex = true, \
            isStatic = true, \
            isRelocatable = false, \
            isLarge = (sizeof(TYPE) > sizeof(void *)), \
            isDummy = false, \
            sizeOf = sizeof(TYPE) \
        }; \
    }

#endif // TABLEDB_RUNTIME_GLOBAL_H
