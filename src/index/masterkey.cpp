#include "index/masterkey.h"

#include <QtEndian>

uint qHash(const MasterKey &key, uint seed) noexcept
{
    return masterKeyHash(key.constData(), key.size(), seed);
}

uint masterKeyHash(const char *bytes, int size, uint seed) noexcept
{
    const uchar *p = reinterpret_cast<const uchar *>(bytes);
    quint32 h = 0;
    int i = 0;
    for (; i + 4 <= size; i += 4)
        h ^= qFromLittleEndian<quint32>(p + i);
    if (i < size) {
        uchar tail[4] = { 0, 0, 0, 0 };
        for (int j = 0; i + j < size; ++j)
            tail[j] = p[i + j];
        h ^= qFromLittleEndian<quint32>(tail);
    }
    return h ^ seed;
}
