#include "framework/corvo/EmbeddedSession.h"

#include <algorithm>
#include <map>
#include <memory>
#include <utility>
#include <vector>

#include "framework/core/Attribute.h"
#include "framework/core/Reactor.h"
#include "framework/core/ReactorSlot.h"
#include "framework/core/StateMachine.h"
#include "framework/corvo/Exceptions.h"
#include "framework/corvo/Replica.h"
#include "framework/generic/Describe.h"

namespace Corvo {

namespace {

class EmbeddedSession final : public Kiv::StateMachine<EmbeddedSession, Session> {
 public:
  class KivDatabase;
  class Request;

  explicit EmbeddedSession(Kiv::Ptr<Database> const& database);
  ~EmbeddedSession() override;

  Kiv::Ptr<MountRequest> mountRequest() override;
  Kiv::Ptr<Kiv::Entity> getEntity(Kiv::String const& path) const override;
  void unmount(Kiv::String const& path) override;

  void handleEntity(Kiv::String const& path);

  Kiv::Type const& fwkType() const override { return _kivType(); }
  static Kiv::Type const& _kivType();

  template <class F>
  void kivEachReactor(F f) {
    f(database_);
  }

 private:
  struct MountPoint {
    AllMountFlags flags{0};
    std::unique_ptr<Replica> replica;
    Kiv::Ptr<Kiv::Entity> entity;
  };

  void mount(Mount const& mount);
  void complete(Kiv::String const& path);

  Kiv::ReactorSlot<KivDatabase, Database, EmbeddedSession> database_;
  std::map<Kiv::String, MountPoint> points_;
};

class EmbeddedSession::KivDatabase final
    : public Kiv::Reactor<KivDatabase, Database, EmbeddedSession> {
 public:
  using Reactor::Reactor;
  using Rows = Kiv::Rows<Kiv::On<Database::kEntity, &EmbeddedSession::handleEntity>>;
};

class EmbeddedSession::Request final : public Kiv::StateMachine<Request, MountRequest> {
 public:
  class KivSession;

  explicit Request(Kiv::Ptr<EmbeddedSession> const& session);
  ~Request() override;

  void doMount(Mount const& mount) override;
  void close() override;
  bool mounted() const override { return mounted_(); }

  void handleEntity(Kiv::String const& path);

  Kiv::Type const& fwkType() const override;

  template <class F>
  void kivEachReactor(F f) {
    f(session_);
  }

 private:
  void update();

  Kiv::ReactorSlot<KivSession, EmbeddedSession, Request> session_;
  std::vector<Kiv::String> paths_;
  bool closed_ = false;
  Kiv::Attribute<kMounted, bool> mounted_{*this};
};

class EmbeddedSession::Request::KivSession final
    : public Kiv::Reactor<KivSession, EmbeddedSession, Request> {
 public:
  using Reactor::Reactor;
  using Rows = Kiv::Rows<Kiv::On<Session::kEntity, &Request::handleEntity>>;
};

EmbeddedSession::Request::Request(Kiv::Ptr<EmbeddedSession> const& session) {
  session_.is(session, this);
}

EmbeddedSession::Request::~Request() {
  kivTeardown();
}

void EmbeddedSession::Request::doMount(Mount const& mount) {
  if (closed_) {
    throw MountException("cannot mount \"" + mount.path().stdString() +
                         "\": the request is closed");
  }
  // Whoever is told of an entity that is made may let go of this request.
  Kiv::Ptr<Request> const self(this);
  session_.notifier()->mount(mount);
  paths_.push_back(mount.path());
}

void EmbeddedSession::Request::close() {
  closed_ = true;
  update();
}

void EmbeddedSession::Request::handleEntity(Kiv::String const& /*path*/) {
  update();
}

void EmbeddedSession::Request::update() {
  EmbeddedSession const& session = *session_.notifierRaw();
  mounted_.is(closed_ && std::ranges::all_of(paths_, [&session](Kiv::String const& path) {
                return session.getEntity(path) != nullptr;
              }));
}

Kiv::Type const& EmbeddedSession::Request::fwkType() const {
  static Kiv::Type const type(
      "Corvo::EmbeddedMountRequest", &Kiv::PtrInterface::_kivType(),
      {Kiv::describeConstant<&MountRequest::mounted>("mounted", kMounted.id)});
  return type;
}

EmbeddedSession::EmbeddedSession(Kiv::Ptr<Database> const& database) {
  database_.is(database, this);
}

EmbeddedSession::~EmbeddedSession() {
  kivTeardown();
}

Kiv::Ptr<MountRequest> EmbeddedSession::mountRequest() {
  return Kiv::makeActive<Request>(Kiv::Ptr<EmbeddedSession>(this));
}

Kiv::Ptr<Kiv::Entity> EmbeddedSession::getEntity(Kiv::String const& path) const {
  auto const found = points_.find(path);
  return found == points_.end() ? nullptr : found->second.entity;
}

void EmbeddedSession::unmount(Kiv::String const& path) {
  auto const found = points_.find(path);
  if (found == points_.end()) return;
  MountPoint gone = std::move(found->second);
  Kiv::String const key = path;
  points_.erase(found);
  gone.replica.reset();
  if (gone.entity) notify(kEntity.id, &key);
}

void EmbeddedSession::handleEntity(Kiv::String const& path) {
  complete(path);
}

void EmbeddedSession::mount(Mount const& mount) {
  Kiv::String const path = mount.path();
  if (mount.flags() == AllMountFlags(0)) {
    throw MountException("cannot mount \"" + path.stdString() + "\": neither to read nor to write");
  }
  if (mount.filter().filtered()) {
    throw MountException("cannot mount \"" + path.stdString() + "\": a filter is not supported");
  }
  Database& database = *database_.notifierRaw();
  if (mount.flags().has(AllMountFlags::kWrite)) {
    database.entityIs(path, mount.typeName());
  } else {
    database.typeIs(path, mount.typeName());
  }
  MountPoint& point = points_[path];
  point.flags.add(mount.flags().value());
  complete(path);
}

void EmbeddedSession::complete(Kiv::String const& path) {
  auto const found = points_.find(path);
  if (found == points_.end()) return;
  MountPoint& point = found->second;
  Kiv::Ptr<Kiv::Entity> entity = database_.notifierRaw()->entity(path);
  if (entity && !point.flags.has(AllMountFlags::kWrite)) {
    if (point.replica) return;
    Kiv::Ptr<Kiv::Entity> const original = std::move(entity);
    entity = Kiv::ptrCast<Kiv::Entity>(original->fwkType().construct({}));
    point.replica = std::make_unique<Replica>(original, entity, path);
  }
  if (entity == point.entity) return;
  point.entity = std::move(entity);
  Kiv::String const key = path;
  notify(kEntity.id, &key);
}

Kiv::Type const& EmbeddedSession::_kivType() {
  static Kiv::Type const type("Corvo::EmbeddedSession", &Kiv::PtrInterface::_kivType(), {});
  return type;
}

}  // namespace

Kiv::Ptr<Session> embeddedSessionFactory(Kiv::Ptr<Database> const& database) {
  return Kiv::makeActive<EmbeddedSession>(database);
}

}  // namespace Corvo
