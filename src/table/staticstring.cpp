#include "table/staticstring.h"

#include <cstddef>

namespace {
const ushort emptyUnits[1] = { 0 };
}

StaticString::StaticString() : StaticString(emptyUnits, 0) { }

StaticString::StaticString(const ushort *units, int size)
    : m_string(QStringDataPtr { &m_header })
{
    // A static header (reference count -1) is never counted or freed; its data
    // is found through `offset`, which may point anywhere, here into the cell.
    m_header.ref.atomic.storeRelaxed(-1);
    m_header.size = size;
    m_header.alloc = 0;
    m_header.capacityReserved = 0;
    m_header.offset = reinterpret_cast<const char *>(units) - reinterpret_cast<const char *>(&m_header);
}
