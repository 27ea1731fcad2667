// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <array>
#include <cstddef>
#include <span>
#include <string_view>

#include "framework/core/Fatal.h"
#include "framework/core/Types.h"
#include "framework/prettyout/Attribute.h"
#include "framework/prettyout/ColumnFormat.h"
#include "framework/prettyout/OutputBuffer.h"

namespace prettyout {

/// Writes one command's output in one form. A command describes its output once, as nested
/// dictionaries of attributes and as the columns in which people read them; each renderer uses what
/// its form needs. Frills are decoration for people and appear in text only.
///
///   renderer.start();
///   renderer.addFrills("%-15s %-20s\n", "VRF name", "Source IP");
///   renderer.startDict("addresses");
///   renderer.startDictEntry(sip);  // keyed by the attribute's value
///   renderer.addAttributes("%-15s %-20s\n", 2, vrfName, sip);
///   renderer.endDictEntry();
///   renderer.endDict();
///   renderer.end();
///   renderer.ioflush();
///
/// The calls may be spread over many slices. The order is checked in every form, so that a text
/// listing does not hide a mistake that would spoil the structured one: unbalanced calls are
/// fatal, and so is anything but ioflush() before start() or after end(). Names and values may hold
/// any bytes. Nothing is allocated per call, apart from the buffer's growth.
class Renderer {
 public:
  /// Dictionaries and entries that may be open at one time.
  static constexpr size_t kMaxDepth = 32;

  Renderer(Renderer const&) = delete;
  Renderer& operator=(Renderer const&) = delete;
  virtual ~Renderer() = default;

  void start();
  /// Every dictionary and entry has been closed before.
  void end();
  void startDict(std::string_view name);
  void endDict();
  /// Opens an entry of the innermost dictionary under the key `attribute.value`.
  void startDictEntry(Attribute const& attribute);
  void endDictEntry();

  /// One row: `count` attributes, each a prettyout::Attribute, in the columns of `format`.
  template <class... Attributes>
  void addAttributes(ColumnFormat<sizeof...(Attributes)> const& format, size_t count,
                     Attributes const&... attributes) {
    KIV_CHECK(count == sizeof...(Attributes), count, " attributes announced");
    checRunning();
    std::array<Attribute, sizeof...(Attributes)> const list{attributes...};
    doAddAttributes(format.columns(), list);
  }

  /// Text that only people see; the arguments are anything that converts to std::string_view.
  template <class... Texts>
  void addFrills(ColumnFormat<sizeof...(Texts)> const& format, Texts const&... texts) {
    checRunning();
    std::array<std::string_view, sizeof...(Texts)> const list{std::string_view(texts)...};
    doAddFrills(format.columns(), list);
  }

  /// Offers what has been rendered so far to the sink; what it refuses stays in the buffer.
  void ioflush();

 protected:
  explicit Renderer(OutputBuffer& buffer) : buffer_(buffer) {}

  OutputBuffer& buffer() { return buffer_; }
  /// True for the first member of the innermost open dictionary, entry or of the whole output,
  /// false for every later one.
  bool takeFirstMember() {
    bool const first = !levels_[depth_].hasMembers;
    levels_[depth_].hasMembers = true;
    return first;
  }

 private:
  enum class State : Kiv::U8 { New, Running, Ended };
  struct Level {
    bool isEntry = false;
    bool hasMembers = false;
  };

  virtual void doStart() = 0;
  virtual void doEnd() = 0;
  virtual void doOpen(std::string_view key) = 0;
  virtual void doClose() = 0;
  virtual void doAddAttributes(Columns const& format, std::span<Attribute const> attributes) = 0;
  virtual void doAddFrills(Columns const& format, std::span<std::string_view const> texts) = 0;

  void checRunning() const { KIV_CHECK_AS(state_ == State::Running, "started() && !ended()"); }
  void open(std::string_view key, bool isEntry);

  OutputBuffer& buffer_;
  State state_ = State::New;
  size_t depth_ = 0;                           // open dictionaries and entries
  std::array<Level, kMaxDepth + 1> levels_{};  // levels_[0] is the output as a whole
};

}  // namespace prettyout
