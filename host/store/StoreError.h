// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <stdexcept>

namespace Host {

/// A store did not do what was asked of it. The text is for people and says which store.
class StoreError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// The store is there and did not take a change, or cannot be opened. It is as it was.
class StoreRefused : public StoreError {
 public:
  using StoreError::StoreError;
};

/// The store cannot be reached. A change that was being submitted may be in it or not; the text
/// says so where that is possible.
class StoreAway : public StoreError {
 public:
  using StoreError::StoreError;
};

}  // namespace Host
