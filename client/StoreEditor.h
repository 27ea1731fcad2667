// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <deque>
#include <optional>
#include <string>
#include <string_view>

#include "client/Responder.h"
#include "framework/core/Types.h"
#include "host/commands/KnownValues.h"
#include "host/language/CommandTable.h"
#include "host/service/OperatorLines.h"
#include "host/shell/Pipeline.h"
#include "host/store/OpenStore.h"
#include "host/store/StoreMirror.h"
#include "host/switch/Switch.h"

/// The operator's lines on a store, without a service: what many switches share is edited in one
/// place. Answers requests as a service does: lines, of which the operator's that were sent
/// together are one transaction, and those that are kept up to their commit. Warns of nothing, for
/// a store does not know what a switch has.
class StoreEditor final : public Responder {
 public:
  /// Connects and reads the configuration that all switches share, or one switch's own. Throws
  /// StoreError.
  StoreEditor(std::string const& url, Host::StoreOptions const& options,
              std::string const& switchName);

  void send(nlohmann::json request) override { requests_.push_back(std::move(request)); }
  nlohmann::json receive() override;

  /// The commands by themselves, which have to be carried out after follow().
  Host::CommandGroup commands();
  /// Takes what others have changed.
  void follow() { mirror_.follow(); }
  /// The values of a kind (see Host::kindOf()) that the configuration has, and begin so.
  Host::Selection known(std::string_view kind, std::string_view typed) const;

 private:
  void carryOut(nlohmann::json const& request);
  void carryOutAlone(nlohmann::json const& request);
  bool adds(nlohmann::json const& request);
  void submitBatch();
  void submit(Host::OperatorLines& lines);
  void addTo(Host::OperatorLines& lines, std::string const& line) const;
  void keep(nlohmann::json const& lines);
  void commit();
  bool isSkipped(nlohmann::json const& request) const;
  /// With what is being handled.
  void refuse(nlohmann::json const& request);
  Host::OperatorLines noLines() const { return {host_, mirror_}; }

  Kiv::Ptr<Corvo::Database> const database_;
  /// Without an agent: what the configuration is read from.
  Host::Switch host_;
  Host::StoreMirror mirror_;
  Host::CommandTable table_;
  Host::Pipeline pipeline_{table_};
  std::deque<nlohmann::json> requests_;
  std::deque<nlohmann::json> answers_;
  Kiv::U64 failedRun_ = 0;  // its other requests are skipped
  // Lines of the operator's that were sent together, and the requests that they came with.
  Host::OperatorLines batch_ = noLines();
  std::deque<nlohmann::json> batched_;
  // Lines that wait for their commit.
  std::optional<Host::OperatorLines> kept_;
  bool keptFailed_ = false;  // one was wrong; the others are skipped
};
