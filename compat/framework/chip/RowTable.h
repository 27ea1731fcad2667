// SPDX-License-Identifier: Apache-2.0
#pragma once

// The include path of earlier releases, installed beside the others.
#include "chip/RowTable.h"
