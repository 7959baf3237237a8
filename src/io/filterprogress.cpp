#include "io/filterprogress.h"

FilterProgress::~FilterProgress() = default;

bool FilterProgressTrue::operator()(int, int)
{
    return true;
}

bool FilterProgressTrue::filter(const Record &) const
{
    return true;
}
