#include "framework/corvo/Replica.h"

#include <string>
#include <utility>

#include "framework/core/Reactor.h"
#include "framework/corvo/Exceptions.h"
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

}  // namespace

// One object and its copy. The two notifiees go by what both objects hold now, never by what a
// notification may have meant when it was sent: so handlers may change the original again while a
// change is being told, and every order of the nested calls ends equal.
class Replica::Node final : public PtrInterface {
 public:
  Node(Ptr<PtrInterface const> const& original, Ptr<PtrInterface> const& copy,
       Kiv::String const& name)
      : original_(original), copy_(copy), name_(name) {
    if (&original->fwkType() != &copy->fwkType()) {
      throw MountException("a copy of another type for \"" + name.stdString() + "\"");
    }
    forEachAttribute(original->fwkType(),
                     [this](AttributeDescription const& attribute) { fill(attribute); });
    // The guard is the first to hear of a change of the copy: nobody watches the copy yet.
    guard_ = Kiv::makeActive<Guard>(copy, this);
    follower_ = Kiv::makeActive<Follower>(original, this);
  }

  /// Ends the replication, that of the members first.
  void end() {
    for (auto& [copy, member] : members_) member->end();
    members_.clear();
    follower_->ownerIs(nullptr);
    guard_->ownerIs(nullptr);
    follower_.reset();
    guard_.reset();
  }

  Ptr<PtrInterface> const& copy() const { return copy_; }

 private:
  // A notifiee for all attributes of its notifier.
  template <auto Handler>
  class Watcher final : public Kiv::NotifieeConst {
   public:
    Watcher(Ptr<PtrInterface const> const& notifier, Node* owner) : owner_(owner) {
      NotifieeConst::notifierIs(notifier);
    }
    void ownerIs(Node* owner) { owner_ = owner; }
    void onAttribute(Kiv::AttributeId id, void const* key) override {
      if (owner_ == nullptr) return;
      AttributeDescription const* const attribute = owner_->original_->fwkType().attribute(id);
      if (attribute == nullptr || (attribute->iterate != nullptr && key == nullptr)) return;
      Ptr<Node> const node(owner_);
      (node.get()->*Handler)(*attribute, key);
    }

   private:
    Node* owner_;
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

  void follow(AttributeDescription const& attribute, void const* key) {
    if (attribute.replication.member != nullptr) {
      followMember(attribute, key);
    } else if (attribute.replication.copy != nullptr) {
      attribute.replication.copy(*original_, *copy_, key);
    }
  }

  void followMember(AttributeDescription const& attribute, void const* key) {
    auto const& replication = attribute.replication;
    Ptr<PtrInterface> const wanted = replication.member(*original_, key);
    Ptr<PtrInterface> const there = replication.member(*copy_, key);
    if (isCopyOf(there, wanted)) return;
    Ptr<PtrInterface> made;
    if (wanted) {
      // Filled before it goes in, so that it comes complete, as one change.
      made = replication.makeMember(key);
      members_.emplace(made.get(), Kiv::make<Node>(wanted, made, name_));
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
    // Nobody hears of the change, nor of its being taken back: the exception ends the telling.
    copy_->hasNotificationActiveIs(false);
    bool const refused = restore(attribute, key);
    copy_->hasNotificationActiveIs(true);
    if (!refused) return;
    throw ReadOnlyException("\"" + name_.stdString() + "\" is mounted for reading; " +
                            std::string(attribute.name) + " stays as it was");
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

  using Follower = Watcher<&Node::follow>;
  using Guard = Watcher<&Node::guard>;

  Ptr<PtrInterface const> const original_;
  Ptr<PtrInterface> const copy_;
  Kiv::String const name_;
  std::unordered_map<PtrInterface const*, Ptr<Node>> members_;  // by copy
  Ptr<Follower> follower_;
  Ptr<Guard> guard_;
};

Replica::Replica(Ptr<PtrInterface const> const& original, Ptr<PtrInterface> const& copy,
                 Kiv::String const& name)
    : node_(Kiv::make<Node>(original, copy, name)) {}

Replica::~Replica() {
  node_->end();
}

Ptr<PtrInterface> const& Replica::copy() const {
  return node_->copy();
}

}  // namespace Corvo
