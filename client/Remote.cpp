// SPDX-License-Identifier: Apache-2.0
#include "client/Remote.h"

#include <algorithm>
#include <deque>
#include <fstream>
#include <istream>
#include <map>
#include <ostream>
#include <utility>

#include "host/commands/Configuration.h"
#include "host/language/InputError.h"
#include "host/language/JsonText.h"
#include "host/language/Lexer.h"
#include "host/service/ControlServer.h"
#include "host/shell/Pipeline.h"

namespace {

using nlohmann::json;

// What only the laboratory has is refused by name where lines are carried out.
bool isOwn(std::span<std::string const> words) {
  std::string_view const second = words.size() > 1 ? std::string_view(words[1]) : "";
  if (words[0] == "load") return second != "--check";
  if (words[0] == "expect") return second != "death" && second != "stderr";
  return words.size() > 3 && words[words.size() - 3] == "|" && words[words.size() - 2] == "save";
}

}  // namespace

nlohmann::json Remote::ask(std::string_view line) {
  return responder_.ask({{"line", line}, {"warn", true}});
}

Remote::Status Remote::fail(int status, std::string const& why, std::string const& place) {
  if (options_.json) out_ << Host::jsonText(json{{"error", why}}) << '\n';
  out_.flush();
  err_ << place << "error: " << why << std::endl;
  return status == BadInput ? BadInput : Refused;
}

void Remote::printWarnings(json const& answer, std::string const& place) {
  // Lines of files are not asked about.
  if (!place.empty() || !answer.contains("warnings")) return;
  out_.flush();
  for (json const& warning : answer["warnings"]) {
    err_ << "warning: " << warning["text"].get<std::string>() << std::endl;
  }
}

Remote::Status Remote::print(json const& answer, std::string_view line, std::string const& place) {
  printWarnings(answer, place);
  if (answer.contains("error")) {
    return fail(answer.value("status", 1), answer["error"].get<std::string>(), place);
  }
  if (options_.json) {
    out_ << Host::jsonText(json{{"answer", answer["answer"]}, {"command", line}}) << '\n';
  } else if (std::string const text = answer.value("text", ""); !text.empty()) {
    out_ << text << '\n';
  }
  return Done;
}

Remote::Status Remote::expect(std::vector<std::string> const& words, std::string const& place) {
  if (words.size() < 4 || words[words.size() - 2] != "==") {
    return fail(BadInput, "expected expect <COMMAND> == <JSON>, the only form of it here", place);
  }
  json const expected = Host::parsedJson(words.back());
  if (expected.is_discarded()) return fail(BadInput, "expected JSON after ==", place);
  json const answer =
      ask(Host::lineOf(std::vector<std::string>(words.begin() + 1, words.end() - 2)));
  if (answer.contains("error")) return print(answer, "", place);
  printWarnings(answer, place);
  if (answer["answer"] == expected) return Done;
  return fail(Refused,
              "expectation failed\n  expected: " + Host::jsonText(expected) +
                  "\n  found:    " + Host::jsonText(answer["answer"]),
              place);
}

Remote::Status Remote::save(std::vector<std::string> const& words, std::string const& place) {
  json const answer = ask(Host::lineOf(std::span(words).first(words.size() - 3)));
  if (answer.contains("error")) return print(answer, "", place);
  printWarnings(answer, place);
  try {
    auto const saved =
        Host::savedTo(words.back(), {answer["answer"], answer.value("text", ""), ""});
    return print({{"answer", saved.json}, {"text", saved.text}}, Host::lineOf(words), place);
  } catch (Host::InputError const& error) {
    return fail(BadInput, error.what(), place);
  }
}

std::optional<Remote::Status> Remote::own(std::vector<std::string> const& words,
                                          std::string const& place,
                                          std::filesystem::path const& folder) {
  if (!isOwn(words)) return std::nullopt;
  if (words[0] == "expect") return expect(words, place);
  if (words[0] != "load") return save(words, place);
  if (words.size() != 2) return fail(BadInput, "expected load <FILE>", place);
  if (depth_ >= kMaxDepth) {
    return fail(BadInput, "files are loaded within each other too deep", place);
  }
  std::filesystem::path const beside = folder / words[1];
  return file(std::filesystem::exists(beside) ? beside : std::filesystem::path(words[1]));
}

Remote::Status Remote::line(std::string_view line) {
  try {
    auto const words = Host::splitWords(line);
    if (words.empty()) return Done;
    if (auto const status = own(words, "", {})) return *status;
  } catch (Host::InputError const& error) {
    return fail(BadInput, error.what(), "");
  }
  return print(ask(line), line, "");
}

/// The lines of a file up to the first one that is not the operator's, that one included.
struct Remote::Lines {
  struct Wrong {
    size_t number;
    std::string why;
  };
  std::vector<std::string> all;
  std::vector<size_t> numbers;  // from 1, of those that are not empty
  std::optional<Wrong> wrong;   // the first that cannot be read

  /// Whether there are no others.
  bool read(std::istream& in) {
    for (std::string text; std::getline(in, text);) {
      all.push_back(text);
      try {
        auto const words = Host::splitWords(text);
        if (words.empty()) continue;
        if (!Host::isOperatorLine(words) || std::ranges::find(words, "|") != words.end()) {
          return false;
        }
        numbers.push_back(all.size());
      } catch (Host::InputError const& error) {
        if (!wrong) wrong = Wrong{all.size(), error.what()};
      }
    }
    return true;
  }
};

Remote::Status Remote::file(std::filesystem::path const& file) {
  std::ifstream in(file);
  if (!in || std::filesystem::is_directory(file)) {
    return fail(BadInput, "expected a file of commands that can be read", file.string() + ": ");
  }
  Lines first;
  if (!options_.keepGoing && first.read(in)) return together(first, file.string());
  return lines(first, in, file.string(), file.parent_path());
}

// All or none: nothing is carried out before the last line has been found right.
Remote::Status Remote::together(Lines const& all, std::string const& name) {
  auto const place = [&name](size_t number) { return name + ':' + std::to_string(number) + ": "; };
  if (all.wrong) return fail(BadInput, all.wrong->why, place(all.wrong->number));
  // In a request a byte may be written as six.
  constexpr size_t kBytesARequest = 8192;
  std::vector<size_t> const& numbers = all.numbers;
  if (numbers.empty()) return Done;
  constexpr size_t kMost = Host::ControlServer::kMaxKept;
  if (numbers.size() > kMost) {
    return fail(BadInput,
                "these are " + std::to_string(numbers.size()) + " lines, and one transaction has " +
                    std::to_string(kMost) +
                    " at most: split the file, or give it as standard input, of which each line is "
                    "carried out by itself",
                name + ": ");
  }
  size_t requests = 0;
  json some = json::array();
  size_t bytes = 0;
  auto const send = [&] {
    if (!some.empty()) {
      responder_.send({{"keep", std::exchange(some, json::array())}});
      ++requests;
    }
    bytes = 0;
  };
  for (size_t const number : numbers) {
    std::string const& text = all.all[number - 1];
    if (bytes + text.size() > kBytesARequest) send();
    some.push_back(text);
    bytes += text.size();
  }
  send();
  responder_.send({{"commit", true}});
  Status first = Done;
  auto const report = [&](json const& error, int status) {
    if (error.contains("skipped")) return;
    size_t const at = error.value("at", numbers.size());
    Status const failed = fail(status, error["error"].get<std::string>(),
                               at < numbers.size() ? place(numbers[at]) : name + ": ");
    if (first == Done) first = failed;
  };
  for (; requests > 0; --requests) {
    json const answer = responder_.receive();
    if (answer.contains("error")) report(answer, answer.value("status", 1));
  }
  json const answer = responder_.receive();
  if (answer.contains("error")) {
    report(answer, answer.value("status", 1));
    return first;
  }
  accepted_ += numbers.size();
  std::map<size_t, json> failed;
  for (json const& each : answer["failed"]) failed[each["at"].get<size_t>()] = each;
  for (size_t i = 0; i < numbers.size(); ++i) {
    if (auto const found = failed.find(i); found != failed.end()) {
      report(found->second, Refused);
    } else if (options_.json) {
      print({{"answer", nullptr}}, all.all[numbers[i] - 1], "");
    }
  }
  return first;
}

/// The lines of one file or stream, of which some are on their way.
class Remote::Run {
 public:
  Run(Remote& remote, std::string name, std::filesystem::path folder)
      : remote_(remote), name_(std::move(name)), folder_(std::move(folder)) {
    ++remote_.depth_;
    begin();
  }
  Run(Run const&) = delete;
  Run& operator=(Run const&) = delete;
  ~Run() { --remote_.depth_; }

  Status status() const { return first_; }
  bool goesOn() const { return first_ == Done || remote_.options_.keepGoing; }

  /// False: the rest is not read.
  bool line(std::string const& text) {
    ++number_;
    std::vector<std::string> words;
    try {
      words = Host::splitWords(text);
    } catch (Host::InputError const& error) {
      takeAll();
      if (goesOn()) note(remote_.fail(BadInput, error.what(), place(number_)));
      return true;
    }
    if (words.empty()) return true;
    if (words[0] == "exit") return false;
    if (isOwn(words)) {
      takeAll();
      if (goesOn()) note(remote_.own(words, place(number_), folder_).value_or(Done));
    } else {
      send(text);
    }
    return true;
  }
  void takeAll() {
    while (!sent_.empty()) take();
  }

 private:
  struct Sent {
    size_t number;
    std::string line;
  };
  // Between these, requests go out and answers come in by many.
  static constexpr size_t kMostInFlight = 1024;
  static constexpr size_t kFewInFlight = 512;

  std::string place(size_t number) const { return name_ + ':' + std::to_string(number) + ": "; }
  void begin() { run_ = ++remote_.runs_; }
  void send(std::string const& text) {
    bool const alone = remote_.options_.keepGoing;
    json request{{"line", text}};
    if (!alone) request["run"] = run_;
    remote_.responder_.send(request);
    sent_.push_back({number_, text});
    if (alone) takeAll();
    if (sent_.size() < kMostInFlight) return;
    while (sent_.size() > kFewInFlight) take();
  }
  void take() {
    json const answer = remote_.responder_.receive();
    Sent const of = std::move(sent_.front());
    sent_.pop_front();
    if (!answer.contains("skipped")) note(remote_.print(answer, of.line, place(of.number)));
  }
  void note(Status status) {
    if (status == Done) {
      ++remote_.accepted_;
      return;
    }
    if (first_ == Done) first_ = status;
    begin();  // what was sent before is skipped; what comes is another run
  }

  Remote& remote_;
  std::string const name_;
  std::filesystem::path const folder_;
  std::deque<Sent> sent_;
  Status first_ = Done;
  Kiv::U64 run_ = 0;
  size_t number_ = 0;
};

Remote::Status Remote::stream(std::istream& in, std::string const& name,
                              std::filesystem::path const& folder) {
  return lines({}, in, name, folder);
}

// Those that have been read, then the stream's.
Remote::Status Remote::lines(Lines const& first, std::istream& in, std::string const& name,
                             std::filesystem::path const& folder) {
  Run run(*this, name, folder);
  for (std::string const& text : first.all) {
    if (!run.goesOn() || !run.line(text)) {
      run.takeAll();
      return run.status();
    }
  }
  std::string text;
  while (run.goesOn() && std::getline(in, text)) {
    if (!run.line(text)) break;
    // A person who types waits for each answer.
    if (in.rdbuf()->in_avail() <= 0) run.takeAll();
  }
  run.takeAll();
  return run.status();
}
