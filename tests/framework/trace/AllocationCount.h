#pragma once

#include <cstddef>

/// How often the program has called operator new.
std::size_t allocationCount();
