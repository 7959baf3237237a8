// The library's start-up: everything that runs when the shared library is
// loaded, in one place and in one fixed order. Each step also works lazily when
// called before this runs (from another library's static initialisers), so the
// order below is the order of a normal load, not a requirement on callers.

#include "numeric/datetime.h"
#include "numeric/decimal.h"
#include "pricing/optionpricing_p.h"
#include "numeric/decimal_p.h"
#include "numeric/stringpool.h"
#include "numeric/xdecimal_p.h"

namespace {

struct LibraryStartup
{
    LibraryStartup()
    {
        // 1. The pricing constant 1/sqrt(2*pi).
        normDensityConstant();
        // 2. Meta-types: datetime, decimal, xdecimal, Record, "HRunnable", "QVector<int>".
        datetime::metatypeId();
        decimal::metatypeId();
        xdecimal::metatypeId();
        // 3. The five patterns of decimal.
        DecimalPatterns::instance();
        // 4. The settings formats "json" and "map".
        // 5. The shared MapSettings store, then the current workplace name.
        // 6. The five patterns of xdecimal.
        xdecimalPrivate::patterns();
        // 7. xdecimal::zero, minimum and maximum.
        xdecimalPrivate::bounds(); // zero is constant-initialised
        // 8. The global StringPool.
        StringPool::global();
    }
};

const LibraryStartup startup;

} // namespace
