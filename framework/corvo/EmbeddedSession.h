#pragma once

#include "framework/core/Ptr.h"
#include "framework/corvo/Database.h"
#include "framework/corvo/Session.h"

namespace Corvo {

/// A new session with a Database in the same process.
///
/// A mount for writing makes the entity when it is not there, and gives the database's own object,
/// which all writers share. A mount for reading gives this session's own replica of it; while the
/// entity is not there the mount waits, also when its request has gone. Mounting again does
/// nothing, or adds writing: getEntity() then gives the database's object, and the replica stays
/// current beside it.
///
/// What doMount refuses with a MountException: a mount that neither reads nor writes, a filtered
/// one, and what Database::typeIs and Database::entityIs refuse.
Kiv::Ptr<Session> embeddedSessionFactory(Kiv::Ptr<Database> const& database);

}  // namespace Corvo
