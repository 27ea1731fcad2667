// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <utility>

#include "client/StoreEditor.h"
#include "host/prompt/TableTarget.h"

/// A store's configuration as what a prompt is for.
class StorePrompt final : public Host::TableTarget {
 public:
  /// The editor must outlive it.
  StorePrompt(StoreEditor& editor, std::string name, bool json)
      : TableTarget(json), editor_(editor), name_(std::move(name)) {
    commandsAre({editor.commands()});
  }

  std::string name() const override { return name_; }
  Host::Selection known(std::string_view kind, std::string_view typed) override {
    return editor_.known(kind, typed);
  }

 private:
  void begin() override { editor_.follow(); }

  StoreEditor& editor_;
  std::string const name_;
};
