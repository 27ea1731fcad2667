// SPDX-License-Identifier: Apache-2.0
#include "host/service/OperatorChanges.h"

#include <utility>

#include "host/language/InputError.h"
#include "host/service/Inputs.h"

namespace Host {

std::optional<StoreChange> operatorChange(
    OperatorLine const& line, std::function<std::optional<Ovra::EthAddr>()> const& configured) {
  using Kind = StoreChange::Kind;
  std::optional<StoreChange> change;
  if (line.removal) {
    auto const mac = configured();
    if (!mac) return change;
    if (std::string const why = refusal(line, mac); !why.empty()) throw InputError(why);
  }
  change = StoreChange{line.removal ? Kind::Del : Kind::Set,
                       InputPath::kConfig,
                       "overlaySrcMacRewriteEntry",
                       keyForm(line.key).stdString(),
                       {},
                       {},
                       {}};
  if (!line.removal) change->value = valueForm(line.key, line.mac.value()).stdString();
  return change;
}

std::vector<StoreChange> operatorChanges(Switch const& host, std::span<std::string const> words) {
  OperatorLine const line = operatorLineOf(words);
  auto change = operatorChange(line, [&] { return configuredMac(host, line.key); });
  if (!change) return {};
  return {std::move(*change)};
}

}  // namespace Host
