#include "io/fielddefconvertor.h"
#include "io/tableio.h"

#include "table/field.h"

#include <cstring>

namespace {

void copyNull(Field &to, const Field &from)
{
    if (from.isNull())
        to.setNull();
    else
        to.clearNull();
}

} // namespace

FieldDefConvertor::~FieldDefConvertor() = default;

void FieldDefConvertor::convert(Field &to, const Field &from)
{
    to = from;
}

void TableIO::FieldDefConvertor_Copy::convert(Field &to, const Field &from)
{
    std::memcpy(to.data(), from.data(), size_t(size));
    copyNull(to, from);
}

void TableIO::FieldDefConvertor_Copy4::convert(Field &to, const Field &from)
{
    *reinterpret_cast<quint32 *>(to.data()) = *reinterpret_cast<const quint32 *>(from.data());
    copyNull(to, from);
}

void TableIO::FieldDefConvertor_Copy8::convert(Field &to, const Field &from)
{
    *reinterpret_cast<quint64 *>(to.data()) = *reinterpret_cast<const quint64 *>(from.data());
    copyNull(to, from);
}

void TableIO::FieldDefConvertor_CopyString::convert(Field &to, const Field &from)
{
    *reinterpret_cast<QString *>(to.data()) = *reinterpret_cast<const QString *>(from.data());
    copyNull(to, from);
}
