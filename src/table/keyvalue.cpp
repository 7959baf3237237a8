#include "table/keyvalue.h"

bool KeyValue::operator<(const KeyValue &other) const
{
    for (int i = 0; i < size(); ++i) {
        const int c = at(i).compare(other.at(i));
        if (c != 0)
            return c < 0;
    }
    return false;
}

bool KeyValue::operator==(const KeyValue &other) const
{
    // Deliberately no length check: a prefix equals the longer key.
    for (int i = 0; i < size(); ++i) {
        if (at(i).compare(other.at(i)) != 0)
            return false;
    }
    return true;
}
