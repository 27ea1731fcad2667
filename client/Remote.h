// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <filesystem>
#include <iosfwd>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "client/Responder.h"
#include "framework/core/Types.h"

/// Has lines carried out, at a service or in a store: those of files and of standard input, with
/// what is the client's own: load, expect, and `| save FILE`. Throws what the responder does.
class Remote {
 public:
  enum Status : int { Done = 0, Refused = 1, BadInput = 2 };
  struct Options {
    bool json = false;
    bool keepGoing = false;
  };

  /// Responder and streams must outlive it.
  Remote(Responder& responder, std::ostream& out, std::ostream& err, Options options)
      : responder_(responder), out_(out), err_(err), options_(options) {}

  /// One line; what it answers is printed.
  Status line(std::string_view line);
  /// Lines up to the first one that fails, which is reported with its place. They are sent without
  /// waiting for each other's answers; none is carried out after one that failed.
  Status stream(std::istream& in, std::string const& name, std::filesystem::path const& folder);
  /// The lines of a file. When they are the operator's alone, all or none are carried out, unless
  /// the options say that the next line is carried out after one that fails.
  Status file(std::filesystem::path const& file);

  /// Lines of files that were carried out so far.
  size_t accepted() const { return accepted_; }

  /// What a line answers, with warnings: see ControlServer.
  nlohmann::json ask(std::string_view line);

 private:
  class Run;
  struct Lines;
  static constexpr size_t kMaxDepth = 16;

  /// Nothing: it is the service's.
  std::optional<Status> own(std::vector<std::string> const& words, std::string const& place,
                            std::filesystem::path const& folder);
  Status lines(Lines const& first, std::istream& in, std::string const& name,
               std::filesystem::path const& folder);
  Status together(Lines const& all, std::string const& name);
  Status expect(std::vector<std::string> const& words, std::string const& place);
  Status save(std::vector<std::string> const& words, std::string const& place);
  void printWarnings(nlohmann::json const& answer, std::string const& place);
  Status print(nlohmann::json const& answer, std::string_view line, std::string const& place);
  Status fail(int status, std::string const& why, std::string const& place);

  Responder& responder_;
  std::ostream& out_;
  std::ostream& err_;
  Options const options_;
  Kiv::U64 runs_ = 0;
  size_t depth_ = 0;
  size_t accepted_ = 0;
};
