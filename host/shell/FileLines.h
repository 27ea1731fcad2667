// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <filesystem>
#include <fstream>
#include <istream>
#include <memory>
#include <string>

#include "framework/core/Types.h"

namespace Host {

/// The lines of a file, which can be read more than once, or of a stream, which cannot.
class FileLines {
 public:
  /// To read it `twice`, what cannot be, such as a pipe, is read into memory. Throws InputError.
  FileLines(std::filesystem::path const& file, bool twice);
  /// The stream must outlive the lines.
  explicit FileLines(std::istream& in) : in_(&in) {}

  bool next(std::string& line) { return static_cast<bool>(std::getline(*in_, line)); }
  /// Begins with the first line again.
  void rewind();
  /// In bytes; 0 when that is not known.
  Kiv::U64 size() const { return size_; }

 private:
  std::unique_ptr<std::istream> own_;
  std::istream* in_;
  Kiv::U64 size_ = 0;
};

}  // namespace Host
