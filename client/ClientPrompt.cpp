// SPDX-License-Identifier: Apache-2.0
#include "client/ClientPrompt.h"

#include <iostream>

#include "host/language/InputError.h"
#include "host/language/JsonText.h"

using nlohmann::json;

Host::CommandGroup ClientPrompt::ownCommands() {
  Host::CommandGroup group{"the client", {}};
  group.commands.emplace_back(
      "load <FILE>", "send the lines of a file, up to one that fails", "load operator.cfg",
      [this](Host::Arguments const& given) { return load(given.text("load")); });
  group.commands.emplace_back("expect <COMMAND> == <JSON>", "an error unless that is the answer",
                              "expect show running-config | count == 2",
                              [this](Host::Arguments const& given) { return expect(given); });
  return group;
}

Host::Answer ClientPrompt::load(std::string const& file) {
  out_.str({});
  errors_.str({});
  size_t lines = 0;
  Remote::Status status = Remote::Done;
  withRemote([&](Remote& remote) {
    size_t const before = remote.accepted();
    status = remote.file(file);
    lines = remote.accepted() - before;
  });
  Host::Answer answer;
  if (options_.json) {
    std::cout << out_.str() << std::flush;  // an answer of its own for each line
  } else {
    answer.text = out_.str();
  }
  addError(errors_.str());
  answer.json = lines;
  if (status == Remote::Done) {
    answer.text +=
        file + ": " + std::to_string(lines) + (lines == 1 ? " line" : " lines") + " accepted";
  } else if (answer.text.ends_with('\n')) {
    answer.text.pop_back();
  }
  return answer;
}

Host::Answer ClientPrompt::expect(Host::Arguments const& given) {
  json const expected = Host::parsedJson(given.words.back());
  if (expected.is_discarded()) {
    throw Host::InputError("expected JSON after ==", {given.words.size() - 1, {}, {"JSON"}, {}});
  }
  auto const inner = given.words.subspan(1, given.words.size() - 3);
  json const answer = Host::readingFrom(1, [&] { return jsonAnswerTo(inner); });
  if (answer == expected) return {};
  throw Host::InputError("expectation failed\n  expected: " + Host::jsonText(expected) +
                         "\n  found:    " + Host::jsonText(answer));
}
