#include "kernel/Netlink.h"

#include <array>
#include <cerrno>
#include <cstring>
#include <sys/socket.h>
#include <vector>

#include "kernel/KernelError.h"

namespace BfnKernel {

using Kiv::U32;

namespace {

// More than the kernel puts into one datagram of a dump.
constexpr std::size_t kDatagram = 64 * 1024;

// What a message of the kernel says of a failure: 0 when it is none.
int errorOf(nlmsghdr const& head) {
  if (head.nlmsg_type != NLMSG_ERROR) return 0;
  auto const* error = static_cast<nlmsgerr const*>(NLMSG_DATA(&head));
  return -error->error;
}

void eachIn(rtattr const* first, std::size_t length,
            std::function<void(rtattr const&)> const& read) {
  auto left = static_cast<unsigned>(length);
  for (rtattr const* at = first; RTA_OK(at, left); at = RTA_NEXT(at, left)) read(*at);
}

}  // namespace

Netlink::Netlink(U32 groups) : socket_(socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_ROUTE)) {
  if (!socket_) fail("rtnetlink");
  sockaddr_nl address{};
  address.nl_family = AF_NETLINK;
  address.nl_groups = groups;
  if (bind(socket_.get(), reinterpret_cast<sockaddr const*>(&address), sizeof address) != 0) {
    fail("rtnetlink");
  }
}

void Netlink::dump(Kiv::U16 type, std::span<std::byte const> body, Reader const& read) {
  std::vector<std::byte> request(NLMSG_LENGTH(body.size()));
  nlmsghdr head{};
  head.nlmsg_len = static_cast<U32>(request.size());
  head.nlmsg_type = type;
  head.nlmsg_flags = NLM_F_REQUEST | NLM_F_DUMP;
  head.nlmsg_seq = ++sequence_;
  std::memcpy(request.data(), &head, sizeof head);
  std::memcpy(request.data() + NLMSG_HDRLEN, body.data(), body.size());
  if (send(socket_.get(), request.data(), request.size(), 0) < 0) fail("rtnetlink");

  alignas(nlmsghdr) std::array<std::byte, kDatagram> buffer{};
  while (true) {
    std::ptrdiff_t const bytes = receive(buffer, 0);
    if (bytes < 0) throw KernelError("rtnetlink: an answer was lost", ENOBUFS);
    auto left = static_cast<unsigned>(bytes);
    for (auto const* message = reinterpret_cast<nlmsghdr const*>(buffer.data());
         NLMSG_OK(message, left); message = NLMSG_NEXT(message, left)) {
      if (message->nlmsg_seq != sequence_) continue;
      if (message->nlmsg_type == NLMSG_DONE) return;
      if (int const error = errorOf(*message); error != 0) fail("rtnetlink", error);
      read(*message);
    }
  }
}

bool Netlink::events(Reader const& read) {
  alignas(nlmsghdr) std::array<std::byte, kDatagram> buffer{};
  bool complete = true;
  while (std::ptrdiff_t const bytes = receive(buffer, MSG_DONTWAIT)) {
    if (bytes < 0) {
      complete = false;
      continue;
    }
    auto left = static_cast<unsigned>(bytes);
    for (auto const* message = reinterpret_cast<nlmsghdr const*>(buffer.data());
         NLMSG_OK(message, left); message = NLMSG_NEXT(message, left)) {
      read(*message);
    }
  }
  return complete;
}

std::ptrdiff_t Netlink::receive(std::span<std::byte> buffer, int flags) {
  while (true) {
    ssize_t const bytes = recv(socket_.get(), buffer.data(), buffer.size(), flags);
    if (bytes > 0) return bytes;
    if (bytes == 0 || errno == EAGAIN) return 0;
    if (errno == ENOBUFS) return -1;
    if (errno != EINTR) fail("rtnetlink");
  }
}

void eachAttribute(nlmsghdr const& head, std::size_t bytes,
                   std::function<void(rtattr const&)> const& read) {
  std::size_t const fixed = NLMSG_SPACE(bytes);
  if (head.nlmsg_len < fixed) return;
  auto const* first =
      reinterpret_cast<rtattr const*>(reinterpret_cast<std::byte const*>(&head) + fixed);
  eachIn(first, head.nlmsg_len - fixed, read);
}

void eachAttribute(rtattr const& outer, std::function<void(rtattr const&)> const& read) {
  eachIn(static_cast<rtattr const*>(RTA_DATA(&outer)), RTA_PAYLOAD(&outer), read);
}

}  // namespace BfnKernel
