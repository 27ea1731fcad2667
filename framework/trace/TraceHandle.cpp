// SPDX-License-Identifier: Apache-2.0
#include "framework/trace/TraceHandle.h"

#include <algorithm>
#include <map>
#include <new>
#include <optional>
#include <vector>

#include "framework/core/Fatal.h"

namespace Kiv {

namespace {

/// What is known of the handles of one name.
struct Facility {
  std::optional<U32> levels;
  std::vector<TraceHandle*> handles;
};

struct Registry {
  std::map<std::string, Facility, std::less<>> facilities;
  U32 defaultLevels = 0;
};

// Never destroyed: handles of other libraries unregister until the very end of the process.
Registry& registry() {
  static auto* registry = new Registry;
  return *registry;
}

Facility& facility(std::string_view name) {
  auto& facilities = registry().facilities;
  auto const found = facilities.find(name);
  return found != facilities.end() ? found->second : facilities[std::string(name)];
}

}  // namespace

TraceHandle::TraceHandle(char const* name, bool on) noexcept : name_(name), on_(on) {
  try {
    signOn();
  } catch (std::bad_alloc const&) {
    return;  // the next trace statement tries again
  }
}

TraceHandle::~TraceHandle() {
  if (traceFile_ != nullptr) std::erase(facility(name_).handles, this);
}

void TraceHandle::signOn() {
  if (traceFile_ != nullptr) return;
  Facility& own = facility(name_);
  own.handles.reserve(own.handles.size() + 1);
  traceFile_ = &Ringlog::TraceFile::create(name_);
  own.handles.push_back(this);
  levels_ = on_ ? kAllLevels : own.levels.value_or(registry().defaultLevels);
}

void TraceHandle::levelIs(unsigned level, bool on) {
  KIV_CHECK(level < kLevels, "trace level ", level);
  U32 const bit = U32{1} << level;
  levelsAre(on ? levels_ | bit : levels_ & ~bit);
}

void TraceHandle::levelsAre(U32 mask) {
  levelsAre(name(), mask);
}

void TraceHandle::levelsAre(std::string_view name, U32 mask) {
  Facility& all = facility(name);
  all.levels = mask;
  for (TraceHandle* handle : all.handles) handle->levels_ = mask;
}

void TraceHandle::defaultLevelsIs(U32 mask) {
  registry().defaultLevels = mask;
}

TraceHandle* TraceHandle::find(std::string_view name) {
  auto const found = registry().facilities.find(name);
  if (found == registry().facilities.end() || found->second.handles.empty()) return nullptr;
  return found->second.handles.front();
}

void TraceHandle::forEach(std::function<void(TraceHandle&)> const& visit) {
  for (auto const& [name, facility] : registry().facilities) {
    for (TraceHandle* handle : facility.handles) visit(*handle);
  }
}

}  // namespace Kiv
