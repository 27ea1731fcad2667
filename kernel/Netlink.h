// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <functional>
#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <span>

#include "framework/core/Types.h"
#include "kernel/FileDescriptor.h"

namespace BfnKernel {

/// A socket to the kernel's routing netlink, in the network namespace of the thread that makes it.
class Netlink {
 public:
  /// What reads one message: its head, and all of its bytes.
  using Reader = std::function<void(nlmsghdr const& head)>;

  /// `groups`: the kernel's bits of the groups whose events come in, for example RTMGRP_LINK.
  /// Throws KernelError.
  explicit Netlink(Kiv::U32 groups = 0);

  int fd() const { return socket_.get(); }

  /// Asks for a dump; `body` is what follows the message's head. Each message of the answer is read
  /// once. Throws KernelError.
  void dump(Kiv::U16 type, std::span<std::byte const> body, Reader const& read);
  /// Reads the events that have come and does not wait for more. False when some were lost.
  bool events(Reader const& read);

 private:
  /// The bytes of one datagram; 0 when none has come and none is waited for, -1 when some were
  /// lost.
  std::ptrdiff_t receive(std::span<std::byte> buffer, int flags);

  FileDescriptor socket_;
  Kiv::U32 sequence_ = 0;
};

/// What follows a message's head.
void const* bodyOf(nlmsghdr const& head);
/// What follows an attribute's head.
std::span<std::byte const> payloadOf(rtattr const& attribute);

/// The attributes that follow the fixed part of `bytes` bytes of a message, one after another.
void eachAttribute(nlmsghdr const& head, size_t bytes,
                   std::function<void(rtattr const&)> const& read);
/// The attributes inside an attribute.
void eachAttribute(rtattr const& outer, std::function<void(rtattr const&)> const& read);

}  // namespace BfnKernel
