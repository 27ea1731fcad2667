// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <functional>
#include <optional>
#include <span>
#include <string>

#include "framework/driver/TableDriver.h"

namespace BfnTest {

/// A chip that writes down what it is opened with, and may refuse; runs `then` at each write and
/// erase.
class RecordingDriver final : public BfnDriver::TableDriver {
 public:
  explicit RecordingDriver(BfnDriver::TableDriver& chip) : chip_(chip) {}

  std::optional<BfnDriver::TableHandle> open(BfnDriver::TableAddress const& address) override {
    session = address.session;
    device = address.device;
    pipe = address.pipe.value();
    profile = address.profile;
    table = address.table;
    if (refuses) return std::nullopt;
    return chip_.open(address);
  }
  BfnDriver::WriteResult write(BfnDriver::TableHandle handle, BfnDriver::ByteView key,
                               BfnDriver::ByteView action) override {
    auto const result = chip_.write(handle, key, action);
    if (then) then();
    return result;
  }
  BfnDriver::EraseResult erase(BfnDriver::TableHandle handle, BfnDriver::ByteView key) override {
    auto const result = chip_.erase(handle, key);
    if (then) then();
    return result;
  }
  bool read(BfnDriver::TableHandle handle, BfnDriver::ByteView key,
            std::span<Kiv::U8> action) const override {
    return chip_.read(handle, key, action);
  }
  size_t entryCount(BfnDriver::TableHandle handle) const override {
    return chip_.entryCount(handle);
  }
  size_t capacity(BfnDriver::TableHandle handle) const override { return chip_.capacity(handle); }

  bool refuses = false;
  std::function<void()> then;
  Kiv::U32 session = 0;
  unsigned device = 0;
  unsigned pipe = 0;
  std::string profile;
  std::string table;

 private:
  BfnDriver::TableDriver& chip_;
};

}  // namespace BfnTest
