// SPDX-License-Identifier: Apache-2.0
#pragma once

namespace Kiv {

/// The one thread of execution of the framework. Handlers run to completion on it, one
/// notification at a time, inside the mutator that caused them: there is no queue.
class Activity {
 public:
  static Activity& framework();
};

/// How an activity would deliver one notification; empty, since dispatch is synchronous.
class ActivityConfig {};

}  // namespace Kiv
