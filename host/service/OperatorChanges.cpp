// SPDX-License-Identifier: Apache-2.0
#include "host/service/OperatorChanges.h"

#include "host/commands/Configuration.h"
#include "host/language/InputError.h"
#include "host/service/Inputs.h"

namespace Host {

std::vector<StoreChange> operatorChanges(Switch const& host, std::span<std::string const> words) {
  using Kind = StoreChange::Kind;
  OperatorLine const line = operatorLineOf(words);
  StoreChange change{line.removal ? Kind::Del : Kind::Set,
                     InputPath::kConfig,
                     "overlaySrcMacRewriteEntry",
                     keyForm(line.key).stdString(),
                     {},
                     {},
                     {}};
  if (!line.removal) {
    change.value = valueForm(line.key, line.mac.value()).stdString();
    return {change};
  }
  auto const mac = configuredMac(host, line.key);
  if (!mac) return {};
  if (std::string const why = refusal(line, mac); !why.empty()) throw InputError(why);
  return {change};
}

}  // namespace Host
