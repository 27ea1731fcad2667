// SPDX-License-Identifier: Apache-2.0
#include "client/Connection.h"

#include <array>
#include <cerrno>
#include <cstring>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include "host/language/JsonText.h"
#include "host/service/ControlProtocol.h"
#include "host/shell/Interrupt.h"

Connection::Connection(std::string const& socket) : name_(socket) {
  sockaddr_un const address = Host::controlAddress(socket);
  socket_ = Host::OwnedDescriptor(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  if (::connect(socket_.get(), reinterpret_cast<sockaddr const*>(&address), sizeof address) != 0) {
    throw NoService(socket + ": there is no service: " + std::strerror(errno));
  }
  greeting_ = receive();
  if (greeting_.contains("error")) throw NoService(socket + ": " + std::string(greeting_["error"]));
  if (greeting_.value("protocol", 0) != Host::kControlProtocol) {
    throw NoService(socket + ": the service speaks another protocol, " +
                    greeting_.value("protocol", nlohmann::json()).dump());
  }
}

void Connection::send(nlohmann::json request) {
  constexpr size_t kTogether = 16'384;
  out_ += Host::jsonText(request);
  out_ += '\n';
  if (out_.size() >= kTogether) flush();
}

void Connection::flush() {
  size_t sent = 0;
  while (sent < out_.size()) {
    ssize_t const size =
        ::send(socket_.get(), out_.data() + sent, out_.size() - sent, MSG_NOSIGNAL);
    if (size < 0 && errno == EINTR) {
      if (Host::Interrupt::requested()) throw Interrupted();
      continue;
    }
    if (size <= 0) throw NoService(name_ + ": the service has gone");
    sent += static_cast<size_t>(size);
  }
  out_.clear();
}

nlohmann::json Connection::receive() {
  flush();
  while (true) {
    size_t const end = in_.find('\n', read_);
    if (end != std::string::npos) {
      auto answer =
          nlohmann::json::parse(in_.begin() + static_cast<std::ptrdiff_t>(read_),
                                in_.begin() + static_cast<std::ptrdiff_t>(end), nullptr, false);
      read_ = end + 1;
      // The rest of an answer that was cut off.
      if (!answer.is_object()) continue;
      return answer;
    }
    in_.erase(0, read_);
    read_ = 0;
    read();
  }
}

void Connection::read() {
  std::array<char, 65536> part;  // NOLINT(cppcoreguidelines-pro-type-member-init): filled by recv
  ssize_t size = 0;
  while ((size = ::recv(socket_.get(), part.data(), part.size(), MSG_DONTWAIT)) < 0) {
    if (errno == EINTR) continue;
    if (errno != EAGAIN) break;
    Host::InterruptsHeld const held;
    if (Host::Interrupt::requested()) throw Interrupted();
    pollfd waited{socket_.get(), POLLIN, 0};
    ::ppoll(&waited, 1, nullptr, held.released());
  }
  if (size <= 0) throw NoService(name_ + ": the service has gone");
  in_.append(part.data(), static_cast<size_t>(size));
}

bool Connection::gone() const {
  pollfd there{socket_.get(), POLLRDHUP, 0};
  return ::poll(&there, 1, 0) > 0;
}
