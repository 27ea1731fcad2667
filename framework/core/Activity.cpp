// SPDX-License-Identifier: Apache-2.0
#include "framework/core/Activity.h"

namespace Kiv {

Activity& Activity::framework() {
  static Activity activity;
  return activity;
}

}  // namespace Kiv
