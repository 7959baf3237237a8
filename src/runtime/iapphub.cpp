#include "runtime/iapphub.h"

#include <atomic>

namespace {
std::atomic<IAppHub *> installedHub { nullptr };

ITableRegistry *registry()
{
    IAppHub *hub = installedHub.load(std::memory_order_acquire);
    return hub ? hub->tableRegistry() : nullptr;
}
} // namespace

ITableRegistry::~ITableRegistry() = default;

IAppHub::~IAppHub()
{
    // A hub that goes away must not stay reachable.
    IAppHub *self = this;
    installedHub.compare_exchange_strong(self, nullptr);
}

IAppHub *IAppHub::instance()
{
    return installedHub.load(std::memory_order_acquire);
}

IAppHub *IAppHub::setInstance(IAppHub *hub)
{
    return installedHub.exchange(hub, std::memory_order_acq_rel);
}

Table *IAppHub::findTable(const QString &name)
{
    ITableRegistry *r = registry();
    return r ? r->table(name) : nullptr;
}

bool IAppHub::isTableKnown(const QString &name)
{
    ITableRegistry *r = registry();
    return r && r->contains(name);
}

bool IAppHub::compressTables()
{
    ITableRegistry *r = registry();
    return r && r->compressTables();
}

void IAppHub::registerJoin(TableJoin *join)
{
    if (ITableRegistry *r = registry())
        r->registerJoin(join);
}
