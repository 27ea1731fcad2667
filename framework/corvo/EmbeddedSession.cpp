// SPDX-License-Identifier: Apache-2.0
#include "framework/corvo/EmbeddedSession.h"

#include <map>
#include <memory>
#include <utility>

#include "framework/core/Attribute.h"
#include "framework/corvo/Exceptions.h"
#include "framework/corvo/Replica.h"
#include "framework/generic/Describe.h"

namespace Corvo {

namespace {

class EmbeddedSession final : public DatabaseClient {
 public:
  explicit EmbeddedSession(Kiv::Ptr<Database> const& database);
  ~EmbeddedSession() override;

  Kiv::Ptr<MountRequest> mountRequest() override;
  Kiv::Ptr<Kiv::Entity> getEntity(Kiv::String const& path) const override;
  void unmount(Kiv::String const& path) override;

  void mount(Mount const& mount);
  void handleEntity(Kiv::String const& path) override;
  bool connected() const override { return database_->connected(); }
  void handleConnected() override { notify(kConnected.id); }

  Kiv::Type const& fwkType() const override { return _kivType(); }
  static Kiv::Type const& _kivType();

 private:
  struct MountPoint {
    Kiv::String typeName;
    AllMountFlags flags{0};
    std::unique_ptr<Replica> replica;
    Kiv::Ptr<Kiv::Entity> entity;
  };

  Kiv::Ptr<Database> const database_;
  std::map<Kiv::String, MountPoint> points_;
};

class EmbeddedRequest final : public MountRequest {
 public:
  explicit EmbeddedRequest(Kiv::Ptr<EmbeddedSession> const& session) : session_(session) {}

  void doMount(Mount const& mount) override;
  void close() override { mounted_.is(true); }
  bool mounted() const override { return mounted_(); }

  Kiv::Type const& fwkType() const override;

 private:
  Kiv::Ptr<EmbeddedSession> const session_;
  // Every mount is complete when doMount returns, so the group is mounted once it is closed.
  Kiv::Attribute<kMounted, bool> mounted_{*this};
};

void EmbeddedRequest::doMount(Mount const& mount) {
  if (mounted()) {
    throw MountException("cannot mount \"" + mount.path().stdString() +
                         "\": the request is closed");
  }
  // A handler may release this request.
  Kiv::Ptr<EmbeddedSession> const session = session_;
  session->mount(mount);
}

Kiv::Type const& EmbeddedRequest::fwkType() const {
  static Kiv::Type const type(
      "Corvo::EmbeddedMountRequest", &Kiv::PtrInterface::_kivType(),
      {Kiv::describeConstant<&MountRequest::mounted>("mounted", kMounted.id)});
  return type;
}

EmbeddedSession::EmbeddedSession(Kiv::Ptr<Database> const& database) : database_(database) {
  database_->clientIs(*this);
}

EmbeddedSession::~EmbeddedSession() {
  database_->clientDel(*this);
}

Kiv::Ptr<MountRequest> EmbeddedSession::mountRequest() {
  return Kiv::makeActive<EmbeddedRequest>(Kiv::Ptr<EmbeddedSession>(this));
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

void EmbeddedSession::mount(Mount const& mount) {
  Kiv::String const path = mount.path();
  if (mount.flags() == AllMountFlags(0)) {
    throw MountException("cannot mount \"" + path.stdString() + "\": neither to read nor to write");
  }
  if (mount.filter().filtered()) {
    throw MountException("cannot mount \"" + path.stdString() + "\": a filter is not supported");
  }
  Database::check(path, mount.typeName());
  Kiv::Ptr<Kiv::Entity> made;
  if (mount.flags().has(AllMountFlags::kWrite) && !database_->entity(path)) {
    made = Database::make(path, mount.typeName());
  }
  MountPoint& point = points_[path];
  if (point.typeName != mount.typeName()) {
    if (point.entity) return;  // what is mounted stays
    point.typeName = mount.typeName();
    point.flags = AllMountFlags(0);
  }
  point.flags.add(mount.flags().value());
  if (made) {
    database_->entityIs(path, made);
  } else {
    handleEntity(path);
  }
}

void EmbeddedSession::handleEntity(Kiv::String const& path) {
  auto const found = points_.find(path);
  if (found == points_.end()) return;
  MountPoint& point = found->second;
  Kiv::Ptr<Kiv::Entity> entity = database_->entity(path);
  if (!entity || database_->typeName(path) != point.typeName) return;
  if (!point.flags.has(AllMountFlags::kWrite)) {
    if (point.replica) return;
    entity = Kiv::ptrCast<Kiv::Entity>(entity->fwkType().construct({}));
    point.replica = std::make_unique<Replica>(database_->publisher(path), entity, path);
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
