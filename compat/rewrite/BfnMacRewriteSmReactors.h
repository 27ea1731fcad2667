#pragma once

// The include path of earlier releases, installed beside the others.
#include "rewrite/BfnMacRewriteSm.h"
