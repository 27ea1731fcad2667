// SPDX-License-Identifier: Apache-2.0
// Random runs of two notifiers and many notifiees against a plain model of what a visit does.
#include <algorithm>
#include <array>
#include <cstddef>
#include <gtest/gtest.h>
#include <random>
#include <stdexcept>
#include <vector>

#include "framework/core/Notifiee.h"
#include "framework/core/Ptr.h"
#include "tests/support/Seed.h"

namespace {

using Kiv::make;
using Kiv::makeActive;
using Kiv::Ptr;
using Kiv::U32;
using Kiv::U64;

struct HandlerFailed : std::runtime_error {
  HandlerFailed() : std::runtime_error("handler") {}
};

class Notifier final : public Kiv::PtrInterface {
 public:
  explicit Notifier(U64 number) : serial(number) {}
  U64 const serial;
};

class World;

class Listener final : public Kiv::NotifieeConst {
 public:
  Listener(World& world, U64 number) : serial(number), world_(world) {}
  void onAttribute(Kiv::AttributeId, void const* key) override;
  void onNotificationException() override;
  U64 const serial;

 private:
  World& world_;
};

// The model of one notifier's list: the serials in order of registration. A visit works on a copy
// and asks before each call whether that registration is still valid; registrations have serials of
// their own, so that one that left and came back is another one.
struct Registration {
  U64 listener;
  U64 number;
};
struct Model {
  U64 notifier = 0;
  std::vector<Registration> list;
};

class World {
 public:
  explicit World(U64 seed) : random_(seed) {
    for (size_t i = 0; i < kNotifiers; ++i) renewNotifier(i);
    listeners_.resize(kListeners);
  }

  void step() { act(); }

  // Notifies one change of notifier `at`, checking each call against the model.
  void visit(size_t at) {
    Model const before = models_[at];
    Notifier* const notifier = notifiers_[at].get();
    Visit expected{before, 0, outer_, 0};
    outer_ = &expected;
    ++depth_;
    try {
      notifier->notify(130, &expected);
    } catch (HandlerFailed const&) {
      outer_ = expected.outer;
      --depth_;
      // A listener that is still registered has been notified of its exception.
      if (running_ != 0) {
        EXPECT_EQ(notified_, registered(before.notifier, running_) ? running_ : 0);
        running_ = notified_ = 0;
      }
      ++exceptions;
      // Some go through to the visit around this one.
      if (depth_ > 0 && chance(50)) {
        running_ = expected.outer->current;
        throw;
      }
      return;
    }
    outer_ = expected.outer;
    --depth_;
    // Every listener that was due at the end has been called.
    EXPECT_EQ(nextDue(expected), before.list.size());
  }

  void called(U64 listener, void const* key) {
    ++calls;
    Visit& visit = *const_cast<Visit*>(static_cast<Visit const*>(key));
    ASSERT_EQ(&visit, outer_);
    size_t const due = nextDue(visit);
    ASSERT_LT(due, visit.before.list.size());
    ASSERT_EQ(visit.before.list[due].listener, listener);
    visit.next = due + 1;
    visit.current = visit.before.list[due].number;
    U64 const number = visit.current;
    unsigned const actions = static_cast<unsigned>(random_() % 4);
    for (unsigned i = 0; i < actions; ++i) act();
    if (chance(3)) {
      running_ = number;
      throw HandlerFailed();
    }
  }
  void notified(U64 listener) { notified_ = numberOf(listener); }

  U64 calls = 0;
  U64 exceptions = 0;
  U64 steps = 0;

  ~World() {
    listeners_.clear();
    for (auto& notifier : notifiers_) notifier.reset();
  }

 private:
  static constexpr size_t kNotifiers = 3;
  static constexpr size_t kListeners = 10;
  static constexpr int kMaxDepth = 3;

  struct Visit {
    Model before;
    size_t next;
    Visit* outer;
    U64 current;
  };
  struct Entry {
    Ptr<Listener> listener;
    size_t notifier = kNotifiers;  // none
  };

  bool chance(unsigned percent) { return random_() % 100 < percent; }

  Model* model(U64 notifier) {
    for (Model& m : models_) {
      if (m.notifier == notifier) return &m;
    }
    for (Model& m : gone_) {
      if (m.notifier == notifier) return &m;
    }
    return nullptr;
  }
  bool registered(U64 notifier, U64 number) {
    Model const* const m = model(notifier);
    return m != nullptr && std::any_of(m->list.begin(), m->list.end(),
                                       [number](auto const& r) { return r.number == number; });
  }
  U64 numberOf(U64 listener) {
    for (auto* models : {&live(), &gone_}) {
      for (Model const& m : *models) {
        for (Registration const& r : m.list) {
          if (r.listener == listener) return r.number;
        }
      }
    }
    return 0;
  }
  std::vector<Model>& live() {
    liveCopy_.assign(models_.begin(), models_.end());
    return liveCopy_;
  }
  size_t nextDue(Visit const& visit) {
    size_t at = visit.next;
    while (at < visit.before.list.size() &&
           !registered(visit.before.notifier, visit.before.list[at].number)) {
      ++at;
    }
    return at;
  }

  void unregister(U64 listener) {
    auto const drop = [listener](Model& m) {
      std::erase_if(m.list, [listener](auto const& r) { return r.listener == listener; });
    };
    for (Model& m : models_) drop(m);
    for (Model& m : gone_) drop(m);
    std::erase_if(gone_, [](Model const& m) { return m.list.empty(); });
  }
  void registerWith(U64 notifier, U64 listener) {
    if (numberOf(listener) != 0) return;
    model(notifier)->list.push_back({listener, ++numbers_});
  }
  void renewNotifier(size_t at) {
    // A notifier that is replaced lives on while it is watched.
    if (!models_[at].list.empty()) gone_.push_back(models_[at]);
    notifiers_[at] = makeActive<Notifier>(++serials_);
    models_[at] = {serials_, {}};
  }

  void act() {
    ++steps;
    size_t const at = random_() % kListeners;
    size_t const notifier = random_() % kNotifiers;
    Ptr<Listener>& listener = listeners_[at];
    unsigned const what = static_cast<unsigned>(random_() % 16);
    if (what < 4) {
      if (depth_ < kMaxDepth) visit(notifier);
    } else if (!listener) {
      listener = make<Listener>(*this, ++serials_);
    } else if (what < 8) {
      // Rebind, or bind for the first time, and register.
      Notifier const* const target = notifiers_[notifier].get();
      if (listener->notifierBase().get() != target) unregister(listener->serial);
      listener->notifierIs(Ptr<Kiv::PtrInterface const>(target));
      listener->hasNotificationActiveIs(true);
      registerWith(target->serial, listener->serial);
    } else if (what < 10) {
      unregister(listener->serial);
      listener->hasNotificationActiveIs(false);
    } else if (what < 12) {
      auto const* const bound = static_cast<Notifier const*>(listener->notifierBase().get());
      listener->hasNotificationActiveIs(true);
      if (bound == nullptr) return;
      if (model(bound->serial) == nullptr) gone_.push_back({bound->serial, {}});
      registerWith(bound->serial, listener->serial);
    } else if (what < 13) {
      unregister(listener->serial);
      listener->notifierIs(nullptr);
    } else if (what < 15) {
      unregister(listener->serial);
      listener.reset();
    } else {
      renewNotifier(notifier);
    }
  }

  std::mt19937_64 random_;
  U64 serials_ = 0;
  U64 numbers_ = 0;
  std::array<Ptr<Notifier>, kNotifiers> notifiers_;
  std::array<Model, kNotifiers> models_;
  std::vector<Model> gone_;
  std::vector<Model> liveCopy_;
  std::vector<Ptr<Listener>> listeners_;
  Visit* outer_ = nullptr;
  int depth_ = 0;
  // The registration whose handler has thrown, and the one that was notified of an exception.
  U64 running_ = 0;
  U64 notified_ = 0;
};

void Listener::onAttribute(Kiv::AttributeId, void const* key) {
  world_.called(serial, key);
}
void Listener::onNotificationException() {
  world_.notified(serial);
}

class NotifieeListRandomTest : public ::testing::TestWithParam<U64> {};

TEST_P(NotifieeListRandomTest, VisitsCallWhomThePlainModelCalls) {
  U64 const seed = GetParam() != 0 ? GetParam() : BfnTest::testSeed(std::random_device{}());
  SCOPED_TRACE("seed " + std::to_string(seed));
  RecordProperty("seed", std::to_string(seed));
#ifdef NDEBUG
  constexpr U64 kSteps = 1'000'000;
#else
  constexpr U64 kSteps = 150'000;
#endif
  World world(seed);
  while (world.steps < kSteps && !HasFailure()) world.step();
  EXPECT_GT(world.calls, kSteps / 20);
  EXPECT_GT(world.exceptions, kSteps / 2000);
}

INSTANTIATE_TEST_SUITE_P(Seeds, NotifieeListRandomTest, ::testing::Values(1, 2, 3, 0));

}  // namespace
