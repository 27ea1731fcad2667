// SPDX-License-Identifier: Apache-2.0
#include "host/service/ControlServer.h"

#include <array>
#include <cerrno>
#include <cmath>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <system_error>
#include <unistd.h>
#include <utility>

#include "host/language/InputError.h"
#include "host/language/Lexer.h"
#include "host/service/ControlClient.h"
#include "host/service/Version.h"

namespace Host {

namespace {

using nlohmann::json;

constexpr size_t kLinesATurn = 512;

[[noreturn]] void fail(std::string const& what) {
  throw std::system_error(errno, std::generic_category(), what);
}

sockaddr const* generic(sockaddr_un const& address) {
  return reinterpret_cast<sockaddr const*>(&address);
}

bool isAlive(sockaddr_un const& address) {
  OwnedDescriptor const probe(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  return ::connect(probe.get(), generic(address), sizeof address) == 0;
}

}  // namespace

OwnedDescriptor ControlServer::listen(std::filesystem::path const& path) {
  sockaddr_un const address = controlAddress(path);
  OwnedDescriptor socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  if (socket.get() < 0) fail("the control socket");
  if (path.has_parent_path()) std::filesystem::create_directories(path.parent_path());
  if (::bind(socket.get(), generic(address), sizeof address) != 0) {
    if (errno != EADDRINUSE || isAlive(address)) fail(path.string());
    ::unlink(path.c_str());
    if (::bind(socket.get(), generic(address), sizeof address) != 0) fail(path.string());
  }
  if (::chmod(path.c_str(), 0660) != 0) fail(path.string());
  if (::listen(socket.get(), static_cast<int>(kMaxClients)) != 0) fail(path.string());
  return socket;
}

ControlServer::ControlServer(EventLoop& loop, Service& service, ServiceCommands& commands,
                             OwnedDescriptor listening, Options options)
    : loop_(loop),
      service_(service),
      commands_(commands),
      batch_(service),
      listening_(std::move(listening)),
      options_(std::move(options)) {
  listener_ = loop_.descriptor(listening_.get(), EPOLLIN, [this](std::uint32_t) { accept(); });
  more_ = loop_.timer([this] {
    for (auto const& client : clients_) take(*client);
  });
}

ControlServer::~ControlServer() = default;

void ControlServer::accept() {
  OwnedDescriptor socket(
      ::accept4(listening_.get(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
  if (socket.get() < 0) return;
  if (clients_.size() >= kMaxClients) {
    std::string const refusal = errorAnswer(nullptr, Refused, "there are too many clients");
    (void)::send(socket.get(), refusal.data(), refusal.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
    return;
  }
  ucred peer{};
  socklen_t size = sizeof peer;
  if (::getsockopt(socket.get(), SOL_SOCKET, SO_PEERCRED, &peer, &size) != 0) return;
  auto client = std::make_unique<Client>();
  client->uid = peer.uid;
  client->mayChange =
      peer.uid == 0 || peer.uid == ::geteuid() || options_.writers.contains(peer.uid);
  client->out = jsonText(json{{"protocol", kControlProtocol},
                              {"version", serviceVersion()},
                              {"switch", service_.options().switchName},
                              {"mayChange", client->mayChange}}) +
                '\n';
  client->socket = std::move(socket);
  Client& there = *client;
  client->source =
      loop_.descriptor(there.socket.get(), EPOLLIN,
                       [this, &there](std::uint32_t events) { readable(there, events); });
  clients_.push_back(std::move(client));
}

void ControlServer::readable(Client& client, std::uint32_t events) {
  if ((events & EPOLLOUT) != 0) write(client);
  if (dropped_.contains(&client)) return;
  if ((events & (EPOLLIN | EPOLLHUP | EPOLLERR)) == 0) return;
  std::array<char, 65536> part;
  ssize_t const size = ::recv(client.socket.get(), part.data(), part.size(), MSG_DONTWAIT);
  if (size < 0 && (errno == EAGAIN || errno == EINTR)) return;
  if (size < 0) {
    drop(client);
    return;
  }
  if (size == 0) {
    client.inputEnded = true;
    // Both ways are closed: no answer can be read any more.
    if ((events & (EPOLLHUP | EPOLLERR)) != 0) drop(client);
    return;
  }
  client.in.append(part.data(), static_cast<size_t>(size));
  take(client);
}

// Carries out the lines that are there, up to one whose answer is made elsewhere.
void ControlServer::take(Client& client) {
  service_.tick();
  size_t at = 0;
  size_t lines = 0;
  while (!client.task && !client.awaits && client.out.size() < kMaxUnread) {
    if (lines >= kLinesATurn) {
      more_->timeIs(0);
      break;
    }
    size_t const end = client.in.find('\n', at);
    if (end == std::string::npos) break;
    lines += request(client, std::string_view(client.in).substr(at, end - at));
    at = end + 1;
  }
  submitBatch(client);
  client.in.erase(0, at);
  if (client.in.size() >= kMaxLine && client.in.find('\n') == std::string::npos) {
    client.out += errorAnswer(nullptr, BadInput, "the request is too long");
    client.inputEnded = true;
    client.in.clear();
  }
}

// How many lines it was.
size_t ControlServer::request(Client& client, std::string_view text) {
  if (text.empty()) return 1;
  json request = json::parse(text, nullptr, false);
  if (!request.is_object()) {
    submitBatch(client);
    client.out += errorAnswer(nullptr, BadInput, "expected a JSON object");
    return 1;
  }
  json id = request.contains("id") ? std::move(request["id"]) : json();
  if (request.contains("await")) {
    submitBatch(client);
    if (!request["await"].is_number_unsigned()) {
      client.out += errorAnswer(id, BadInput, "expected a number of changes");
      return 1;
    }
    client.awaits = request["await"].get<Kiv::U64>();
    client.awaitId = id;
    return 1;
  }
  if (request.contains("keep") || request.contains("commit")) {
    submitBatch(client);
    if (request.contains("commit")) {
      commit(client, id);
      return 1;
    }
    size_t const lines = request["keep"].size();
    keep(client, id, std::move(request["keep"]));
    return lines;
  }
  if (request.contains("known")) {
    submitBatch(client);
    known(client, id, request);
    return 1;
  }
  if (!request.contains("line") || !request["line"].is_string()) {
    submitBatch(client);
    client.out += errorAnswer(id, BadInput, "expected a line");
    return 1;
  }
  bool const hasRun = request.contains("run") && request["run"].is_number_unsigned();
  carryOut(client, {std::move(id), request.contains("form") && request["form"] == "json",
                    hasRun ? request["run"].get<Kiv::U64>() : 0,
                    std::move(request["line"].get_ref<std::string&>()),
                    request.contains("warn") && request["warn"] == true});
  return 1;
}

// Most lines have their keywords in full, and looking for shortened ones takes ten times as long.
ServiceCommands::Prepared ControlServer::prepare(std::vector<std::string>& words) const {
  try {
    return commands_.prepare(words);
  } catch (InputError const&) {
    words = commands_.pipeline().expanded(words);
    return commands_.prepare(words);
  }
}

void ControlServer::carryOut(Client& client, Request request) {
  if (adds(client, request)) return;
  submitBatch(client);
  carryOutAlone(client, std::move(request));
}

// Whether the line is one of the batch now. All others, those that are wrong among them, are
// answered in their turn.
bool ControlServer::adds(Client const& client, Request& request) {
  if (request.warns || !client.mayChange || (request.run != 0 && request.run == client.failedRun))
    return false;
  std::string const& line = request.line;
  if (!line.starts_with("vxlan ") && !line.starts_with("no vxlan ")) return false;
  try {
    auto const words = splitWords(line);
    if (!commands_.prepare(words).operators) return false;
    batch_.add(words, line);
  } catch (std::exception const&) {
    return false;
  }
  requests_.push_back(std::move(request));
  return true;
}

bool ControlServer::skips(Client& client, Request const& request) {
  if (request.run == 0 || request.run != client.failedRun) return false;
  json answer{{"error", "a line before it failed"}, {"skipped", true}, {"status", Refused}};
  if (!request.id.is_null()) answer["id"] = request.id;
  client.out += jsonText(answer) + '\n';
  return true;
}

void ControlServer::finish(Client& client, Request const& request, bool changes,
                           Answer const& answer) {
  if (changes && options_.changed) options_.changed(client.uid, request.line, "");
  client.out += answerText(request.id, request.withoutText, answer, request.more);
}

void ControlServer::refuse(Client& client, Request const& request, bool changes, int status,
                           std::string const& why, std::optional<size_t> word) {
  client.failedRun = request.run;
  if (changes && options_.changed) options_.changed(client.uid, request.line, why);
  json more = request.more;
  if (word) more["word"] = *word;
  client.out += errorAnswer(request.id, status, why, std::move(more));
}

void ControlServer::refuse(Client& client, Request const& request, bool changes,
                           std::exception_ptr const& thrown) {
  ControlError const error(thrown);
  refuse(client, request, changes, error.status, error.why, error.word);
}

// Puts the lines of the batch into the store together. What it refuses as a whole is tried line by
// line, so that each line has an answer of its own.
void ControlServer::submitBatch(Client& client) {
  if (requests_.empty()) return;
  auto const requests = std::exchange(requests_, {});
  OperatorBatch batch = std::exchange(batch_, OperatorBatch(service_));
  std::vector<OperatorBatch::Failure> failures;
  try {
    failures = batch.submit();
  } catch (StoreAway const&) {
    // The lines may be in the store or not: none of them is sent again.
    for (Request const& request : requests) {
      refuse(client, request, true, std::current_exception());
    }
    return;
  } catch (std::exception const&) {
    for (Request const& request : requests) carryOutAlone(client, request);
    return;
  }
  auto failure = failures.begin();
  for (size_t i = 0; i < requests.size(); ++i) {
    if (failure == failures.end() || failure->line != i) {
      finish(client, requests[i], true, Answer());
    } else {
      refuse(client, requests[i], true, (failure++)->thrown);
    }
  }
}

void ControlServer::carryOutAlone(Client& client, Request request) {
  if (skips(client, request)) return;
  bool changes = false;
  try {
    auto words = splitWords(request.line);
    if (words.empty()) {
      client.out += answerText(request.id, request.withoutText, Answer());
      return;
    }
    auto const prepared = prepare(words);
    changes = prepared.changes;
    if (changes && !client.mayChange) {
      refuse(client, request, changes, Refused, "this user may look, and change nothing");
      return;
    }
    if (request.warns) {
      for (auto const& [text, word] : commands_.doubts(prepared)) {
        request.more["warnings"].push_back({{"text", text}, {"word", word ? json(*word) : json()}});
      }
    }
    if (!prepared.large) {
      finish(client, request, changes, commands_.run(prepared, request.line));
      return;
    }
    fork(client, request.id, [&] {
      try {
        return answerText(request.id, request.withoutText, commands_.run(prepared, request.line),
                          request.more);
      } catch (...) {
        ControlError const error(std::current_exception());
        json more = request.more;
        if (error.word) more["word"] = *error.word;
        return errorAnswer(request.id, error.status, error.why, std::move(more));
      }
    });
  } catch (...) {
    refuse(client, request, changes, std::current_exception());
  }
}

void ControlServer::fork(Client& client, json const& id, std::function<std::string()> const& make) {
  if (forks_ >= kMaxForks) {
    client.out += errorAnswer(id, Refused, "too many answers are being made; try again");
    return;
  }
  service_.host().turnEnds();  // what waits for the end of the turn is in the chip then
  HardwareTable const* const hardware = service_.host().hardware();
  std::vector<int> const kept =
      hardware == nullptr ? std::vector<int>() : hardware->readDescriptors();
  client.task.emplace(ForkedTask::start(
      [&](int out) {
        Deaths::forked();
        writeAll(out, make());
        return 0;
      },
      ForkedTask::kOutputLimit, kept));
  ++forks_;
  client.taskId = id;
  client.taskOutput = 0;
}

void ControlServer::followTask(Client& client) {
  // Sources go before the descriptors that read() closes.
  for (auto& source : client.taskSources) source.reset();
  size_t const before = client.out.size();
  bool const ended = client.task->read(client.out, kMaxUnread);
  client.taskOutput += client.out.size() - before;
  if (ended) {
    endTask(client);
  } else {
    update(client);
  }
}

void ControlServer::endTask(Client& client) {
  ForkedEnd const& end = client.task->end();
  if (!end.isSuccess()) {
    // A part of an answer ends with its line, which no reader takes for one.
    if (client.taskOutput > 0) client.out += '\n';
    std::string const why = end.tooMuchOutput ? "the answer is too long"
                                              : "the answer died: " + fatalSentence(end.errorText);
    client.out += errorAnswer(client.taskId, Refused, why);
  }
  client.task.reset();
  --forks_;
  if (!client.in.empty()) more_->timeIs(0);
}

void ControlServer::write(Client& client) {
  while (!client.out.empty()) {
    ssize_t const size = ::send(client.socket.get(), client.out.data(), client.out.size(),
                                MSG_NOSIGNAL | MSG_DONTWAIT);
    if (size < 0 && errno == EINTR) continue;
    if (size < 0 && errno == EAGAIN) break;
    if (size <= 0) {
      drop(client);
      return;
    }
    client.out.erase(0, static_cast<size_t>(size));
  }
  bool const waits = client.task || client.awaits;
  bool const hasLine = client.in.find('\n') != std::string::npos;
  if (client.out.empty() && client.inputEnded && !waits && !hasLine) {
    drop(client);
  } else if (client.out.size() < kMaxUnread && !waits && hasLine) {
    more_->timeIs(0);
  }
}

// What the client waits for in the loop.
void ControlServer::update(Client& client) {
  bool const full = client.out.size() >= kMaxUnread;
  bool const reads = !client.inputEnded && !full && client.in.size() < kMaxLine;
  client.source->eventsAre((reads ? EPOLLIN : 0U) | (client.out.empty() ? 0U : EPOLLOUT));
  if (!client.task || full) return;
  for (auto const& source : client.taskSources) {
    if (source != nullptr) return;
  }
  std::array<int, 3> const descriptors{client.task->descriptor(), client.task->errorDescriptor(),
                                       client.task->processDescriptor()};
  for (size_t i = 0; i < descriptors.size(); ++i) {
    if (descriptors[i] < 0) continue;
    client.taskSources[i] = loop_.descriptor(
        descriptors[i], EPOLLIN, [this, &client](std::uint32_t) { followTask(client); });
  }
}

Kiv::U64 ControlServer::changes() const {
  return service_.mirror().status().applied + service_.chipChanges();
}

void ControlServer::turnEnded() {
  Kiv::U64 const now = changes();
  for (auto const& client : clients_) {
    if (client->awaits && *client->awaits != now) {
      json answer{{"changes", now}};
      if (!client->awaitId.is_null()) answer["id"] = client->awaitId;
      client->out += jsonText(answer) + '\n';
      client->awaits.reset();
      if (!client->in.empty()) more_->timeIs(0);
    }
    if (!client->out.empty() || client->inputEnded) write(*client);
    if (!dropped_.contains(client.get())) update(*client);
  }
  removeDropped();
}

void ControlServer::removeDropped() {
  if (dropped_.empty()) return;
  std::erase_if(clients_, [&](std::unique_ptr<Client> const& client) {
    if (!dropped_.contains(client.get())) return false;
    for (auto& source : client->taskSources) source.reset();
    client->source.reset();
    if (client->task) --forks_;
    return true;
  });
  dropped_.clear();
}

}  // namespace Host
