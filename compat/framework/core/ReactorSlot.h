// SPDX-License-Identifier: Apache-2.0
#pragma once

// The include path of earlier releases, installed beside the others.
#include "framework/collections/ReactorCollection.h"
#include "framework/collections/ReactorSlot.h"
