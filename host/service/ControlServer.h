// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <exception>
#include <filesystem>
#include <functional>
#include <list>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <sys/types.h>
#include <vector>

#include "host/fork/ForkedTask.h"
#include "host/loop/EventLoop.h"
#include "host/service/ControlProtocol.h"
#include "host/service/OperatorBatch.h"
#include "host/service/ServiceCommands.h"

namespace Host {

/// The service's socket: JSON objects, a line each.
///
/// First comes a greeting: {"protocol", "version", "switch", "mayChange"}. A request is
/// {"line": COMMAND}, with "form": "json" for an answer without its text, and with an "id" that
/// comes back. The answer is {"id", "answer", "text"}, or {"id", "error", "status"}, status 1 for a
/// request that was refused and 2 for one that is wrong. Requests may have a "run", a number:
/// after one that failed, the others of its run are not carried out, and answered with "skipped".
/// Answers come in the order of the requests.
///
/// {"await": N} is answered with {"changes": M} as soon as the number of changes is another one
/// than N.
///
/// What a prompt asks for: with "warn": true, what is probably a mistake in the line comes with its
/// answer or error, "warnings": [{"text", "word"}]; an answer that shows a difference has "marks"
/// (see Answer); an error whose place is known has "word", the number of the word from 0.
/// {"known": KIND} is answered with {"known": [...]}: for "commands" the forms that are taken and
/// those that are refused by name (see ServiceCommands::forms()), for a kind of values (see
/// kindOf()) those that are known and begin with the text "begins"; with "more": true when these
/// are not all of them.
///
/// Lines of the operator's that have come together go into the store as one transaction, and are
/// answered once they are there. Each is accepted or refused by itself all the same. One whose
/// handler throws is in the store, and so are the lines that came with it: these are not skipped.
///
/// {"keep": [LINE, ...]} adds lines of the operator's to the client's transaction, and is answered
/// with {"kept": N}, how many it has. {"commit": true} carries them out all or none: {"answer": N,
/// "failed": [{"at", "error"}, ...]} once they are in the store; `failed` names lines by number,
/// from 0, that are there all the same and whose change the agent did not take. An error has the
/// wrong line's number in "at"; what is kept after it is skipped up to the commit. Each line is
/// checked over what the lines before it leave.
///
/// Who may connect is a matter of the socket's mode. Lines that change something are taken from
/// root, from the service's own user, and from the users that the options name.
///
/// Large answers are made in a forked process, kMaxForks at once. A client that does not read its
/// answers is not read from; nobody else waits for it.
class ControlServer {
 public:
  static constexpr size_t kMaxClients = 64;
  static constexpr size_t kMaxForks = 4;
  static constexpr size_t kMaxLine = size_t{64} << 10;
  /// Answers that wait to be read by their client before no more are made.
  static constexpr size_t kMaxUnread = size_t{1} << 20;
  /// Lines of one transaction, which are kept in memory.
  static constexpr size_t kMaxKept = 200'000;

  struct Options {
    /// Users that may change things, beside root and the service's own.
    std::set<uid_t> writers;
    /// Learns of each line that changes something: who, the line, and what went wrong, if anything.
    std::function<void(uid_t, std::string_view, std::string_view)> changed;
  };

  /// Takes the listening socket over. The loop and the service must outlive it.
  ControlServer(EventLoop& loop, Service& service, ServiceCommands& commands,
                OwnedDescriptor listening, Options options);
  ControlServer(ControlServer const&) = delete;
  ControlServer& operator=(ControlServer const&) = delete;
  ~ControlServer();

  /// A new listening socket at a path; one that a dead process has left is replaced. Throws
  /// std::system_error, also when a living process has it.
  static OwnedDescriptor listen(std::filesystem::path const& path);

  /// The service's turn has ended: answers go out, and those who wait for a change get theirs.
  void turnEnded();
  size_t clients() const { return clients_.size(); }

 private:
  struct Client;
  struct Request {
    nlohmann::json id;
    bool withoutText = false;
    Kiv::U64 run = 0;
    std::string line;
    bool warns = false;
    /// What else is in the answer, or null.
    nlohmann::json more = nlohmann::json();
  };

  void accept();
  void readable(Client& client, std::uint32_t events);
  void take(Client& client);
  size_t request(Client& client, std::string_view text);
  /// `words` may be replaced, and must outlive what is prepared.
  ServiceCommands::Prepared prepare(std::vector<std::string>& words) const;
  void carryOut(Client& client, Request request);
  bool adds(Client const& client, Request& request);
  bool skips(Client& client, Request const& request);
  void finish(Client& client, Request const& request, bool changes, Answer const& answer);
  void refuse(Client& client, Request const& request, bool changes, int status,
              std::string const& why, std::optional<size_t> word = std::nullopt);
  void refuse(Client& client, Request const& request, bool changes,
              std::exception_ptr const& thrown);
  void submitBatch(Client& client);
  void addKept(OperatorBatch& to, std::string line) const;
  void keep(Client& client, nlohmann::json const& id, nlohmann::json lines);
  void commit(Client& client, nlohmann::json const& id);
  void carryOutAlone(Client& client, Request request);
  void known(Client& client, nlohmann::json const& id, nlohmann::json const& request);
  /// Has the answer made in a forked process: the line that `make` gives.
  void fork(Client& client, nlohmann::json const& id, std::function<std::string()> const& make);
  void followTask(Client& client);
  void endTask(Client& client);
  void write(Client& client);
  void update(Client& client);
  void drop(Client& client) { dropped_.insert(&client); }
  void removeDropped();
  Kiv::U64 changes() const;

  EventLoop& loop_;
  Service& service_;
  ServiceCommands& commands_;
  // Lines of the client whose requests are being carried out, in their order.
  OperatorBatch batch_;
  std::vector<Request> requests_;
  OwnedDescriptor listening_;
  Options const options_;
  EventLoop::SourcePtr listener_;
  EventLoop::SourcePtr more_;
  std::list<std::unique_ptr<Client>> clients_;
  std::set<Client*> dropped_;
  size_t forks_ = 0;
};

}  // namespace Host
