// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "framework/core/Ptr.h"
#include "framework/corvo/Database.h"
#include "framework/corvo/Session.h"

namespace Corvo {

/// A new session with a Database in the same process.
///
/// A mount for writing makes the entity when it is not there, and gives the database's own object,
/// which all writers share. A mount for reading gives this session's own replica of it. Every mount
/// is complete at once, so a request is mounted once it is closed. getEntity() is null while the
/// entity is not there or is of another type than the mount's: the entity's type is that of the
/// writer that made it. It comes later, also when the mount's request has gone; Session::kEntity
/// notifies then.
///
/// Mounting a path again does nothing, or adds writing: getEntity() then gives the database's
/// object, and the replica stays current beside it. A mount of another type replaces one that is
/// still without its entity, and does nothing otherwise.
///
/// What doMount refuses with a MountException: a mount that neither reads nor writes, a filtered
/// one, the empty path, a type that is not known and, where the entity has to be made, one that
/// cannot be made or is not an entity's. Nothing is mounted then. Any other exception out of it is
/// a handler's; the mount is complete, for this session and every other one.
Kiv::Ptr<Session> embeddedSessionFactory(Kiv::Ptr<Database> const& database);

}  // namespace Corvo
