// SPDX-License-Identifier: Apache-2.0
#include "host/shell/FileLines.h"

#include <sstream>

#include "host/language/InputError.h"

namespace Host {

FileLines::FileLines(std::filesystem::path const& file, bool twice)
    : own_(std::make_unique<std::ifstream>(file)), in_(own_.get()) {
  std::error_code error;
  if (!*own_ || std::filesystem::is_directory(file, error)) {
    throw InputError("expected a file of commands that can be read");
  }
  if (std::filesystem::is_regular_file(file, error)) {
    Kiv::U64 const size = std::filesystem::file_size(file, error);
    if (!error) size_ = size;
    return;
  }
  if (!twice) return;
  auto text = std::make_unique<std::stringstream>();
  *text << own_->rdbuf();
  text->clear();
  own_ = std::move(text);
  in_ = own_.get();
}

void FileLines::rewind() {
  in_->clear();
  in_->seekg(0);
}

}  // namespace Host
