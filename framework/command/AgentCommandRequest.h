// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "framework/core/PtrInterface.h"
#include "framework/core/Types.h"
#include "framework/prettyout/Printer.h"

namespace Agent {

using Kiv::U32;
using Kiv::U64;

/// What a client asked for: on which socket, in which form the output is wanted, and where it goes.
/// Does not change.
class AgentCommandRequest final : public Kiv::PtrInterface {
 public:
  /// `socket` names the client in traces and to the dispatcher; the output goes to `sink` alone. An
  /// empty sink: the output is discarded. Throws RangeException for an unknown format.
  AgentCommandRequest(U32 socket, U32 format, prettyout::Sink sink);

  U32 socket() const { return socket_; }
  /// The number of a prettyout::Format: 0 text, 1 JSON.
  U32 format() const { return format_; }
  prettyout::Sink const& sink() const { return sink_; }

  Kiv::Type const& fwkType() const override;
  static Kiv::Type const& _kivType();

 private:
  U32 socket_;
  U32 format_;
  prettyout::Sink sink_;
};

}  // namespace Agent
