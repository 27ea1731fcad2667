// SPDX-License-Identifier: Apache-2.0
#include "host/store/RedisConnection.h"

#include <cmath>
#include <csignal>
#include <hiredis/hiredis.h>
#include <poll.h>

#include "framework/core/Fatal.h"

namespace Host {

namespace {

timeval toTimeval(double seconds) {
  double whole = 0;
  double const part = std::modf(seconds, &whole);
  return {static_cast<time_t>(whole), static_cast<suseconds_t>(part * 1e6)};
}

// The client library writes to a connection that the server has closed as to any file.
void ignoreBrokenPipes() {
  struct sigaction before {};
  if (::sigaction(SIGPIPE, nullptr, &before) == 0 && before.sa_handler == SIG_DFL) {
    std::signal(SIGPIPE, SIG_IGN);
  }
}

// The server reads so much while the rest of a batch is made.
constexpr size_t kPart = size_t{64} << 10;
// The rate that is expected of a slow server.
constexpr size_t kBytesASecond = 1'000'000;

}  // namespace

bool RedisReply::isNothing() const {
  return reply_->type == REDIS_REPLY_NIL;
}

bool RedisReply::isError() const {
  return reply_->type == REDIS_REPLY_ERROR;
}

std::string_view RedisReply::text() const {
  switch (reply_->type) {
    case REDIS_REPLY_STRING:
    case REDIS_REPLY_STATUS:
    case REDIS_REPLY_ERROR:
      return {reply_->str, reply_->len};
    default:
      return {};
  }
}

long long RedisReply::number() const {
  return reply_->type == REDIS_REPLY_INTEGER ? reply_->integer : 0;
}

size_t RedisReply::size() const {
  return reply_->type == REDIS_REPLY_ARRAY ? reply_->elements : 0;
}

RedisReply RedisReply::operator[](size_t i) const {
  KIV_CHECK(i < size(), "no element ", i);
  return RedisReply({reply_, reply_->element[i]});
}

void RedisConnection::Free::operator()(redisContext* context) const {
  redisFree(context);
}

RedisConnection::RedisConnection(StoreUrl const& url, StoreOptions const& options)
    : name_(url.text), timeout_(options.timeout) {
  ignoreBrokenPipes();
  timeval const timeout = toTimeval(timeout_);
  context_.reset(url.host.empty() ? redisConnectUnixWithTimeout(url.path.c_str(), timeout)
                                  : redisConnectWithTimeout(url.host.c_str(), url.port, timeout));
  if (context_ == nullptr) throw StoreAway(name_ + ": no memory");
  if (context_->err != 0) away();
  redisSetTimeout(context_.get(), timeout);
  // A server that has gone without a word is noticed while there is nothing to say.
  if (!url.host.empty()) redisEnableKeepAlive(context_.get());
  identify(options);
  if (url.database != 0) {
    add({"SELECT", std::to_string(url.database)});
    need();
  }
}

void RedisConnection::identify(StoreOptions const& options) {
  if (options.secretFile.empty()) return;
  std::string const secret = readStoreSecret(options.secretFile);
  if (options.user.empty()) {
    add({"AUTH", secret});
  } else {
    add({"AUTH", options.user, secret});
  }
  need();
}

void RedisConnection::add(std::initializer_list<std::string_view> words) {
  add(std::vector<std::string_view>(words));
}

void RedisConnection::add(std::vector<std::string_view> const& words) {
  if (awaited_ == 0) batch_ = 0;
  std::vector<char const*> bytes;
  std::vector<size_t> sizes;
  bytes.reserve(words.size());
  sizes.reserve(words.size());
  for (std::string_view const word : words) {
    bytes.push_back(word.data());
    sizes.push_back(word.size());
    unsent_ += word.size();
    batch_ += word.size();
  }
  if (redisAppendCommandArgv(context_.get(), static_cast<int>(words.size()), bytes.data(),
                             sizes.data()) != REDIS_OK) {
    away();
  }
  ++awaited_;
  if (unsent_ >= kPart) send();
}

void RedisConnection::waitForBatch() {
  size_t const extra = batch_ / kBytesASecond;
  if (extra == extraSeconds_) return;
  extraSeconds_ = extra;
  redisSetTimeout(context_.get(), toTimeval(timeout_ + static_cast<double>(extra)));
}

RedisReply RedisConnection::answer() {
  waitForBatch();
  --awaited_;
  unsent_ = 0;
  void* given = nullptr;
  if (redisGetReply(context_.get(), &given) != REDIS_OK || given == nullptr) away();
  return RedisReply({static_cast<redisReply*>(given), freeReplyObject});
}

RedisReply RedisConnection::need() {
  RedisReply reply = answer();
  if (reply.isError()) throw StoreRefused(name_ + ": " + std::string(reply.text()));
  return reply;
}

void RedisConnection::send() {
  unsent_ = 0;
  int done = 0;
  while (done == 0) {
    if (redisBufferWrite(context_.get(), &done) != REDIS_OK) away();
  }
}

bool RedisConnection::ready() {
  pollfd waiting{descriptor(), POLLIN, 0};
  return ::poll(&waiting, 1, 0) == 1;
}

int RedisConnection::descriptor() const {
  return context_->fd;
}

void RedisConnection::away() const {
  std::string const why = context_->err == REDIS_ERR_IO && context_->errstr[0] == '\0'
                              ? "it does not answer"
                              : std::string(static_cast<char const*>(context_->errstr));
  throw StoreAway(name_ + ": " + why);
}

}  // namespace Host
