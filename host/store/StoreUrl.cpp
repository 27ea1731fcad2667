// SPDX-License-Identifier: Apache-2.0
#include "host/store/StoreUrl.h"

#include <charconv>

#include "framework/core/Exceptions.h"

namespace Host {

namespace {

bool take(std::string_view& text, std::string_view front) {
  if (!text.starts_with(front)) return false;
  text.remove_prefix(front.size());
  return true;
}

class Parser {
 public:
  Parser(StoreUrl& url, std::string_view rest) : url_(url), rest_(rest) {}

  void redis() {
    if (rest_.find('@') != std::string_view::npos) {
      refuse("user and secret do not belong into a URL");
    }
    if (auto const slash = rest_.find('/'); slash != std::string_view::npos) {
      url_.database = number(rest_.substr(slash + 1), 65'535, "a database is a number");
      rest_ = rest_.substr(0, slash);
    }
    if (take(rest_, "[")) {
      auto const close = rest_.find(']');
      if (close == std::string_view::npos) refuse("\"]\" is missing");
      url_.host = rest_.substr(0, close);
      rest_.remove_prefix(close + 1);
      if (!rest_.empty() && rest_.front() != ':') refuse("\":PORT\" expected after \"]\"");
    } else {
      url_.host = rest_.substr(0, rest_.find(':'));
      rest_.remove_prefix(url_.host.size());
    }
    if (url_.host.empty()) refuse("the host is missing");
    if (!take(rest_, ":")) return;
    url_.port = static_cast<Kiv::U16>(number(rest_, 65'535, "a port is a number from 1 to 65535"));
    if (url_.port == 0) refuse("a port is a number from 1 to 65535");
  }

  void redisSocket() {
    constexpr std::string_view kDatabase = "?db=";
    if (auto const at = rest_.rfind(kDatabase); at != std::string_view::npos) {
      url_.database = number(rest_.substr(at + kDatabase.size()), 65'535, "a database is a number");
      rest_ = rest_.substr(0, at);
    }
    if (!rest_.starts_with('/')) refuse("an absolute path expected");
    url_.path = rest_;
  }

  void sqlite() {
    if (rest_.empty()) refuse("the file is missing");
    url_.path = rest_;
  }

  [[noreturn]] void refuse(std::string const& why) const {
    Kiv::throwRangeException("store \"" + url_.text + "\": " + why);
  }

 private:
  unsigned number(std::string_view text, unsigned max, char const* what) const {
    unsigned value = 0;
    char const* const end = text.data() + text.size();
    auto const [at, error] = std::from_chars(text.data(), end, value);
    if (error != std::errc() || at != end || value > max) refuse(what);
    return value;
  }

  StoreUrl& url_;
  std::string_view rest_;
};

}  // namespace

StoreUrl::StoreUrl(std::string_view url) : text(url) {
  std::string_view rest = url;
  if (url == "memory") return;
  if (take(rest, "sqlite:")) {
    kind = Kind::Sqlite;
    Parser(*this, rest).sqlite();
  } else if (take(rest, "redis://")) {
    kind = Kind::Redis;
    Parser(*this, rest).redis();
  } else if (take(rest, "redis+unix://")) {
    kind = Kind::Redis;
    Parser(*this, rest).redisSocket();
  } else {
    Parser(*this, rest)
        .refuse("memory, sqlite:FILE, redis://HOST[:PORT][/DB] or redis+unix://PATH expected");
  }
}

}  // namespace Host
