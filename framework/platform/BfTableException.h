// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <stdexcept>

namespace BfTable {

/// A table of the chip could not do what was asked. Nothing was changed.
class BfTableException : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
  ~BfTableException() override;
};

/// The table has no free slot.
class BfTableFull : public BfTableException {
 public:
  using BfTableException::BfTableException;
  ~BfTableFull() override;
};

/// The system could not allocate what the write needs.
class BfNoSysResources : public BfTableException {
 public:
  using BfTableException::BfTableException;
  ~BfNoSysResources() override;
};

}  // namespace BfTable
