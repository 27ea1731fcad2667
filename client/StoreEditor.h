// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <memory>
#include <string>
#include <string_view>

#include "host/commands/KnownValues.h"
#include "host/language/CommandTable.h"
#include "host/store/OpenStore.h"
#include "host/store/StoreMirror.h"
#include "host/switch/Switch.h"

/// The operator's lines on a store, without a service: what many switches share is edited in one
/// place.
class StoreEditor {
 public:
  /// Connects and reads the configuration that all switches share, or one switch's own. Throws
  /// StoreError.
  StoreEditor(std::string const& url, Host::StoreOptions const& options,
              std::string const& switchName);

  /// Carries a line out. Throws InputError, StoreError and UnreadableException.
  Host::Answer run(std::string_view line);

  /// The commands by themselves, which have to be carried out after follow().
  Host::CommandGroup commands();
  /// Takes what others have changed.
  void follow() { mirror_.follow(); }
  /// The values of a kind (see Host::kindOf()) that the configuration has, and begin so.
  Host::Selection known(std::string_view kind, std::string_view typed) const;

 private:
  Kiv::Ptr<Corvo::Database> const database_;
  /// Without an agent: what the configuration is read from.
  Host::Switch host_;
  Host::StoreMirror mirror_;
  Host::CommandTable table_;
};
