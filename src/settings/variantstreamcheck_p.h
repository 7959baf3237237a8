#ifndef TABLEDB_SETTINGS_VARIANTSTREAMCHECK_P_H
#define TABLEDB_SETTINGS_VARIANTSTREAMCHECK_P_H

class QDataStream;

// Reads one QVariant from stream (version 7) without keeping it, and answers
// whether QVariant's own reading of the same bytes is safe to run: false for
// damaged data, unknown types, nesting past 256 levels, and container counts
// larger than the bytes left (Qt reserves room for those before reading).
bool isPlausibleVariantStream(QDataStream &stream);

#endif // TABLEDB_SETTINGS_VARIANTSTREAMCHECK_P_H
