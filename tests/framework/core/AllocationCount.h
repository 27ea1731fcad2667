#pragma once

#include <cstddef>

/// How many blocks of operator new are live in this test program.
size_t liveAllocations();
