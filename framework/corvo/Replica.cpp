// SPDX-License-Identifier: Apache-2.0
#include "framework/corvo/Replica.h"

#include <string>
#include <utility>

#include "framework/core/Notifiee.h"
#include "framework/corvo/Exceptions.h"
#include "framework/corvo/FanOut.h"
#include "framework/generic/Type.h"

namespace Corvo {

namespace {

using Kiv::AttributeDescription;
using Kiv::Ptr;
using Kiv::PtrInterface;

template <class F>
void forEachAttribute(Kiv::Type const& type, F const& f) {
  if (type.base() != nullptr) forEachAttribute(*type.base(), f);
  for (AttributeDescription const& attribute : type.attributes()) f(attribute);
}

// The attribute that a notification names; null for one that is not replicated: unknown, or a
// collection without its key.
AttributeDescription const* changed(PtrInterface const& object, Kiv::AttributeId id,
                                    void const* key) {
  AttributeDescription const* const attribute = object.fwkType().attribute(id);
  if (attribute == nullptr || (attribute->iterate != nullptr && key == nullptr)) return nullptr;
  return attribute;
}

}  // namespace

// One object that is published: the only notifiee of it on behalf of its replicas.
class Publisher::Source final : public Kiv::NotifieeConst {
 public:
  explicit Source(Ptr<PtrInterface const> const& object) { NotifieeConst::notifierIs(object); }

  FanOut<Replica::Node>& replicas() { return replicas_; }

  void onAttribute(Kiv::AttributeId id, void const* key) override;

 private:
  FanOut<Replica::Node> replicas_;
};

// One object and its copy. Follower and guard compare what both objects hold now and ignore what a
// notification meant when it was sent: handlers may change the original again while a change is
// being notified, and every order of the nested calls ends equal.
class Replica::Node final : public PtrInterface {
 public:
  Node(Ptr<Publisher> const& publisher, Ptr<PtrInterface const> const& original,
       Ptr<PtrInterface> const& copy, Kiv::String const& name)
      : publisher_(publisher), original_(original), copy_(copy), name_(name) {
    if (&original->fwkType() != &copy->fwkType()) {
      throw MountException("a copy of another type for \"" + name.stdString() + "\"");
    }
    forEachAttribute(original->fwkType(),
                     [this](AttributeDescription const& attribute) { fill(attribute); });
    copy_->hasNotificationActiveIs(true);
    // The guard is the copy's first notifiee: nothing else watches the copy yet.
    guard_ = Kiv::makeActive<Guard>(copy, this);
    source_ = publisher_->source(original_);
    source_->replicas().add(this);
  }
  ~Node() override { end(); }

  /// Ends the replication, that of the members first.
  void end() {
    for (auto& [copy, member] : members_) member->end();
    members_.clear();
    if (guard_) guard_->ownerIs(nullptr);
    guard_.reset();
    if (!source_) return;
    source_->replicas().remove(this);
    if (source_->replicas().empty()) publisher_->sourceDel(*source_);
    source_.reset();
  }

  void follow(AttributeDescription const& attribute, void const* key) {
    Following const following(*this);
    if (attribute.replication.member != nullptr) {
      followMember(attribute, key);
    } else if (attribute.replication.copy != nullptr) {
      attribute.replication.copy(*original_, *copy_, key);
    }
  }

  Ptr<PtrInterface> const& copy() const { return copy_; }

 private:
  class Guard final : public Kiv::NotifieeConst {
   public:
    Guard(Ptr<PtrInterface const> const& copy, Node* owner) : owner_(owner) {
      NotifieeConst::notifierIs(copy);
    }
    void ownerIs(Node* owner) { owner_ = owner; }
    void onAttribute(Kiv::AttributeId id, void const* key) override {
      if (owner_ == nullptr || std::exchange(owner_->following_, false)) return;
      if (AttributeDescription const* const attribute = changed(*owner_->original_, id, key)) {
        Ptr<Node> const node(owner_);
        node->guard(*attribute, key);
      }
    }
    void onNotificationOff() override {
      if (owner_ != nullptr && !owner_->restoring_) owner_->refuse("its notification stays on");
    }

   private:
    Node* owner_;
  };

  // While a change of the original is done to the copy. Its notification, the first that the guard
  // gets, needs no check; the handlers after the guard run with following_ off.
  class Following {
   public:
    explicit Following(Node& node) : node_(node) { node_.following_ = true; }
    Following(Following const&) = delete;
    Following& operator=(Following const&) = delete;
    ~Following() { node_.following_ = false; }

   private:
    Node& node_;
  };

  // Keeps the copy's notification off: neither the change nor its reversal is notified.
  class Silence {
   public:
    explicit Silence(Node& node) : node_(node) {
      node_.restoring_ = true;
      node_.copy_->hasNotificationActiveIs(false);
    }
    Silence(Silence const&) = delete;
    Silence& operator=(Silence const&) = delete;
    ~Silence() {
      node_.copy_->hasNotificationActiveIs(true);
      node_.restoring_ = false;
    }

   private:
    Node& node_;
  };

  void fill(AttributeDescription const& attribute) {
    auto const& replication = attribute.replication;
    if (replication.eachKey == nullptr) {
      follow(attribute, nullptr);
      return;
    }
    std::pair<Node*, AttributeDescription const*> context(this, &attribute);
    replication.eachKey(*original_, &context, [](void* opaque, void const* key) {
      auto const& [node, which] = *static_cast<decltype(context)*>(opaque);
      node->follow(*which, key);
    });
  }

  void followMember(AttributeDescription const& attribute, void const* key) {
    auto const& replication = attribute.replication;
    Ptr<PtrInterface> const wanted = replication.member(*original_, key);
    Ptr<PtrInterface> const there = replication.member(*copy_, key);
    if (isCopyOf(there, wanted)) return;
    Ptr<PtrInterface> made;
    if (wanted) {
      // Filled before it is inserted, so that it is announced complete, as one change.
      made = replication.makeMember(key);
      members_.emplace(made.get(), Kiv::make<Node>(publisher_, wanted, made, name_));
    }
    if (there) drop(there.get());
    if (made) {
      replication.memberIs(*copy_, made);
    } else {
      replication.memberDel(*copy_, key);
    }
  }

  bool isCopyOf(Ptr<PtrInterface> const& there, Ptr<PtrInterface> const& wanted) const {
    if (!there || !wanted) return there == wanted;
    auto const found = members_.find(there.get());
    return found != members_.end() && found->second->original_ == wanted;
  }

  void drop(PtrInterface const* member) {
    auto const found = members_.find(member);
    if (found == members_.end()) return;
    Ptr<Node> const node = found->second;
    members_.erase(found);
    node->end();
  }

  void guard(AttributeDescription const& attribute, void const* key) {
    bool refused = false;
    {
      Silence const silence(*this);
      refused = restore(attribute, key);
    }
    // The exception ends the notification: no later notifiee is called.
    if (refused) refuse(std::string(attribute.name) + " stays as it was");
  }

  [[noreturn]] void refuse(std::string const& what) const {
    throw ReadOnlyException("\"" + name_.stdString() + "\" is mounted for reading; " + what);
  }

  bool restore(AttributeDescription const& attribute, void const* key) {
    auto const& replication = attribute.replication;
    if (replication.member == nullptr) {
      return replication.copy != nullptr && replication.copy(*original_, *copy_, key);
    }
    Ptr<PtrInterface> const wanted = replication.member(*original_, key);
    Ptr<PtrInterface> const there = replication.member(*copy_, key);
    if (isCopyOf(there, wanted)) return false;
    for (auto const& [copy, node] : members_) {
      if (node->original_ != wanted) continue;
      replication.memberIs(*copy_, node->copy_);
      return true;
    }
    replication.memberDel(*copy_, key);
    return true;
  }

  Ptr<Publisher> const publisher_;
  Ptr<PtrInterface const> const original_;
  Ptr<PtrInterface> const copy_;
  Kiv::String const name_;
  std::unordered_map<PtrInterface const*, Ptr<Node>> members_;  // by copy
  Ptr<Guard> guard_;
  Ptr<Publisher::Source> source_;
  bool following_ = false;
  bool restoring_ = false;
};

void Publisher::Source::onAttribute(Kiv::AttributeId id, void const* key) {
  if (replicas_.empty()) return;
  AttributeDescription const* const attribute = changed(*notifierBase(), id, key);
  if (attribute == nullptr) return;
  Ptr<Source> const self(this);
  std::exception_ptr const thrown =
      replicas_.each([&](Replica::Node& node) { node.follow(*attribute, key); });
  if (thrown) std::rethrow_exception(thrown);
}

Publisher::Publisher(Ptr<PtrInterface const> const& original) : original_(original) {
  source(original);
}
Publisher::~Publisher() = default;

Ptr<Publisher::Source> Publisher::source(Ptr<PtrInterface const> const& object) {
  auto const found = sources_.find(object.get());
  if (found != sources_.end()) return found->second;
  auto made = Kiv::makeActive<Source>(object);
  sources_.emplace(object.get(), made);
  return made;
}

void Publisher::sourceDel(Source const& source) {
  // The object's own source stays, so that it keeps its place before all other notifiees.
  if (source.notifierBase() != original_) sources_.erase(source.notifierBase().get());
}

Replica::Replica(Ptr<Publisher> const& publisher, Ptr<PtrInterface> const& copy,
                 Kiv::String const& name)
    : node_(Kiv::make<Node>(publisher, publisher->original(), copy, name)) {}

Replica::Replica(Ptr<PtrInterface const> const& original, Ptr<PtrInterface> const& copy,
                 Kiv::String const& name)
    : Replica(Kiv::make<Publisher>(original), copy, name) {}

Replica::~Replica() {
  node_->end();
}

Ptr<PtrInterface> const& Replica::copy() const {
  return node_->copy();
}

}  // namespace Corvo
