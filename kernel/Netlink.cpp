// SPDX-License-Identifier: Apache-2.0
#include "kernel/Netlink.h"

#include <algorithm>
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
constexpr size_t kDatagram = 64 * 1024;

std::byte const* bytesOf(nlmsghdr const& head) {
  return reinterpret_cast<std::byte const*>(&head);
}

// What a message of the kernel says of a failure: 0 when it is none.
int errorOf(nlmsghdr const& head) {
  if (head.nlmsg_type != NLMSG_ERROR || head.nlmsg_len < NLMSG_LENGTH(sizeof(nlmsgerr))) return 0;
  return -static_cast<nlmsgerr const*>(bodyOf(head))->error;
}

// The kernel's macros for this are of C, and cast const away.
void eachMessage(std::span<std::byte const> datagram, Netlink::Reader const& read) {
  while (datagram.size() >= sizeof(nlmsghdr)) {
    auto const& head = *reinterpret_cast<nlmsghdr const*>(datagram.data());
    if (head.nlmsg_len < sizeof head || head.nlmsg_len > datagram.size()) return;
    read(head);
    datagram = datagram.subspan(std::min<size_t>(NLMSG_ALIGN(head.nlmsg_len), datagram.size()));
  }
}

void eachIn(std::span<std::byte const> attributes, std::function<void(rtattr const&)> const& read) {
  while (attributes.size() >= sizeof(rtattr)) {
    auto const& attribute = *reinterpret_cast<rtattr const*>(attributes.data());
    if (attribute.rta_len < sizeof attribute || attribute.rta_len > attributes.size()) return;
    read(attribute);
    attributes =
        attributes.subspan(std::min<size_t>(RTA_ALIGN(attribute.rta_len), attributes.size()));
  }
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
  for (bool done = false; !done;) {
    std::ptrdiff_t const bytes = receive(buffer, 0);
    if (bytes < 0) throw KernelError("rtnetlink: an answer was lost", ENOBUFS);
    eachMessage(std::span(buffer).first(static_cast<size_t>(bytes)), [&](nlmsghdr const& message) {
      if (message.nlmsg_seq != sequence_) return;
      if (int const error = errorOf(message); error != 0) fail("rtnetlink", error);
      done = done || message.nlmsg_type == NLMSG_DONE;
      if (!done) read(message);
    });
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
    eachMessage(std::span(buffer).first(static_cast<size_t>(bytes)), read);
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

void eachAttribute(nlmsghdr const& head, size_t bytes,
                   std::function<void(rtattr const&)> const& read) {
  size_t const fixed = NLMSG_SPACE(bytes);
  if (head.nlmsg_len < fixed) return;
  eachIn(std::span(bytesOf(head), head.nlmsg_len).subspan(fixed), read);
}

void eachAttribute(rtattr const& outer, std::function<void(rtattr const&)> const& read) {
  eachIn(payloadOf(outer), read);
}

void const* bodyOf(nlmsghdr const& head) {
  return bytesOf(head) + NLMSG_HDRLEN;
}

std::span<std::byte const> payloadOf(rtattr const& attribute) {
  return std::span(reinterpret_cast<std::byte const*>(&attribute), attribute.rta_len)
      .subspan(RTA_LENGTH(0));
}

}  // namespace BfnKernel
