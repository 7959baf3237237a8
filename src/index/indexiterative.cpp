#include "index/indexiterative.h"

IndexIterative::~IndexIterative() = default;
