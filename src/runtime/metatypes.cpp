#include "runtime/metatypes_p.h"

#include "numeric/datetime.h"
#include "numeric/decimal.h"
#include "numeric/xdecimal.h"
#include "runtime/runnablemanager.h"
#include "table/record.h"

#include <QMetaType>
#include <QVector>

void registerMetaTypes()
{
    // Each value class registers itself and its extras at first use; asking in
    // this order fixes their ids on a normal load.
    datetime::metatypeId();
    decimal::metatypeId();
    xdecimal::metatypeId();
    qRegisterMetaType<Record>("Record");
    qRegisterMetaType<HRunnable>("HRunnable");
    // Qt adds the sequence converter only when the id is new.
    qRegisterMetaType<QVector<int>>("QVector<int>");
}
