// SPDX-License-Identifier: Apache-2.0
// Several processes change one store at random while they are killed, cut off and lose changes. At
// rest all hold the same, no change that was taken is lost, and each process has seen the changes
// of a key in one writer's order.
//
// BFN_STORE_OPERATIONS is the number of operations of all processes together; how far they are is
// printed then.
#include <array>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <gtest/gtest.h>
#include <iostream>
#include <map>
#include <poll.h>
#include <random>
#include <set>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include "framework/core/Fatal.h"
#include "framework/l3/L3Status.h"
#include "framework/log/LogService.h"
#include "host/store/OpenStore.h"
#include "host/store/RedisConnection.h"
#include "host/store/StoreMirror.h"
#include "tests/host/store/Changes.h"
#include "tests/host/store/Records.h"
#include "tests/host/store/RedisServer.h"
#include "tests/support/Seed.h"

namespace {

using BfnTest::delOf;
using BfnTest::form;
using BfnTest::kVrfsPath;
using BfnTest::kVrfsType;
using BfnTest::makeOf;
using BfnTest::setOf;
using BfnTest::textOf;
using Host::StoreChange;
using Host::StoreMirror;
using Kiv::U32;

constexpr U32 kMostProcesses = 4;
constexpr U32 kOwnKeys = 8;     // of each process
constexpr U32 kSharedKeys = 8;  // written by all
constexpr U32 kRemoved = ~U32{0};

#if defined(__SANITIZE_ADDRESS__)
constexpr U32 kOperations = 4'000;
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
constexpr U32 kOperations = 4'000;
#else
constexpr U32 kOperations = 100'000;
#endif
#else
constexpr U32 kOperations = 100'000;
#endif

U32 operations() {
  char const* const given = std::getenv("BFN_STORE_OPERATIONS");
  return given == nullptr ? kOperations : static_cast<U32>(std::stoul(given));
}

// What a process says of one of its operations.
struct Report {
  enum What : U32 { Begins, Taken, Unknown };
  U32 key;
  U32 value;  // or kRemoved
  What what;
};

// All of them at once, or none when the process is killed.
void say(int to, std::vector<Report> const& reports) {
  size_t const size = reports.size() * sizeof(Report);
  KIV_CHECK(::write(to, reports.data(), size) == static_cast<ssize_t>(size));
}

// A value is "w<writer>n<number>", so that it says whose and which one it is.
std::string nameOf(U32 writer, U32 number) {
  return "'w" + std::to_string(writer) + "n" + std::to_string(number) + "'";
}

// Checks that a process sees the values of a key in their writers' order.
class Order final : public Kiv::NotifieeConst {
 public:
  explicit Order(Kiv::Ptr<Pex::L3Status> const& vrfs) { notifierIs(vrfs); }
  void onAttribute(Kiv::AttributeId id, void const* key) override {
    if (id != Pex::L3Status::kVrfName.id) return;
    auto const& vrfs = static_cast<Pex::L3Status const&>(*notifierBase());
    auto const vrfId = *static_cast<Pex::VrfId const*>(key);
    std::string const name = form(vrfs.vrfName(vrfId));
    if (name == "''") return;
    U32 writer = 0;
    U32 number = 0;
    KIV_CHECK(std::sscanf(name.c_str(), "'w%un%u'", &writer, &number) == 2, name);
    U32& last = last_[{form(vrfId), writer}];
    KIV_CHECK(number >= last, form(vrfId), " ", name, " after ", last);
    last = number;
  }

 private:
  std::map<std::pair<std::string, U32>, U32> last_;
};

struct Process {
  explicit Process(std::string const& url)
      : mirror(Host::openStore(Host::StoreUrl(url)), database, clock) {}
  // Until the store is there. A server that has gone for good ends the process.
  void follow() {
    auto const deadline = std::chrono::steady_clock::now() + std::chrono::seconds(60);
    while (true) {
      mirror.follow();
      clock->advance(20);
      if (mirror.current()) return;
      KIV_CHECK(std::chrono::steady_clock::now() < deadline, mirror.status().reason);
      ::usleep(1000);
    }
  }
  Kiv::Ptr<Pex::L3Status> vrfs() const {
    return Kiv::ptrCast<Pex::L3Status>(database->object(kVrfsPath));
  }
  Kiv::Ptr<Kiv::ManualClock> const clock = Kiv::makeActive<Kiv::ManualClock>();
  Kiv::Ptr<Corvo::Database> const database = Kiv::makeActive<Corvo::Database>();
  StoreMirror mirror;
};

// One life of a writer. Numbers begin at `first`.
void write(std::string const& url, U32 writer, U32 first, U32 count, U32 seed, int to) {
  Process process(url);
  process.follow();
  auto const order = Kiv::makeActive<Order>(process.vrfs());
  std::mt19937 random(seed);
  for (U32 number = first; number < first + count;) {
    // Some together, as one transaction.
    U32 const together = random() % 4 == 0 ? 2 + random() % 4 : 1;
    std::vector<Report> reports;
    std::vector<StoreChange> changes;
    for (U32 i = 0; i < together && number < first + count; ++i, ++number) {
      bool const shared = random() % 4 == 0;
      U32 const key = shared ? kMostProcesses * kOwnKeys + random() % kSharedKeys
                             : writer * kOwnKeys + random() % kOwnKeys;
      bool const remove = random() % 4 == 0;
      reports.push_back({key, remove ? kRemoved : number, Report::Begins});
      std::string const id = std::to_string(key + 1);
      changes.push_back(remove ? delOf(kVrfsPath, "vrfName", id)
                               : setOf(kVrfsPath, "vrfName", id, nameOf(writer, number)));
    }
    say(to, reports);
    Report::What what = Report::Taken;
    try {
      if (changes.size() == 1) {
        process.mirror.submit(changes);
      } else {
        size_t next = 0;
        process.mirror.submitReadable(
            changes,
            {[&](size_t at) { KIV_CHECK(at == next++, at, " ", next); },
             [](size_t, std::exception_ptr const& thrown) { std::rethrow_exception(thrown); }});
      }
    } catch (Host::StoreAway const&) {
      what = Report::Unknown;
      process.follow();
    }
    for (Report& report : reports) report.what = what;
    say(to, reports);
  }
}

class StoreRandomTest : public ::testing::Test {
 protected:
  std::unique_ptr<BfnTest::RedisServer> const server =
      BfnTest::RedisServer::isThere() ? std::make_unique<BfnTest::RedisServer>() : nullptr;
  U32 const seed = BfnTest::testSeed();
  std::mt19937 random{seed};

  struct Writer {
    pid_t process = -1;
    int reports = -1;
    U32 begun = 0;  // operations, in all lives
    std::string rest;
  };
  U32 const processes = 2 + seed % (kMostProcesses - 1);
  std::array<Writer, kMostProcesses> writers;
  std::map<U32, std::set<U32>> expected;  // what may be there, by own key
  U32 const perWriter = operations() / processes;
  U32 kills = 0;
  U32 taken = 0;

  void SetUp() override {
    if (!server) GTEST_SKIP() << "there is no redis-server";
  }

  void startWriter(U32 index) {
    Writer& writer = writers[index];
    int ends[2];
    ASSERT_EQ(::pipe(ends), 0);
    U32 const own = static_cast<U32>(random());
    writer.process = ::fork();
    ASSERT_GE(writer.process, 0);
    if (writer.process == 0) {
      ::prctl(PR_SET_PDEATHSIG, SIGKILL);
      ::close(ends[0]);
      Kiv::LogService::sinkIs([](Kiv::LogMessage const&) {});
      write(server->url(), index, writer.begun + 1, perWriter - writer.begun, own, ends[1]);
      ::_exit(0);
    }
    ::close(ends[1]);
    writer.reports = ends[0];
    writer.rest.clear();
  }

  void note(U32 index, Report const& report) {
    if (report.what == Report::Begins) ++writers[index].begun;
    if (report.what == Report::Taken) ++taken;
    if (report.key / kOwnKeys != index) return;
    // It may come or not until it has been taken: then nothing else is there.
    std::set<U32>& may = expected.try_emplace(report.key, std::set{kRemoved}).first->second;
    if (report.what == Report::Taken) may.clear();
    may.insert(report.value);
  }

  // Reads what a writer says. False: it has ended.
  bool read(U32 index) {
    Writer& writer = writers[index];
    char bytes[4096];
    ssize_t const got = ::read(writer.reports, bytes, sizeof bytes);
    if (got <= 0) return false;
    writer.rest.append(bytes, static_cast<size_t>(got));
    size_t at = 0;
    for (; at + sizeof(Report) <= writer.rest.size(); at += sizeof(Report)) {
      Report report{};
      std::memcpy(&report, writer.rest.data() + at, sizeof report);
      note(index, report);
    }
    writer.rest.erase(0, at);
    return true;
  }

  void command(std::initializer_list<std::string_view> words) const {
    Host::RedisConnection connection(Host::StoreUrl(server->url()), {});
    connection.add(words);
    connection.need();
  }

  void fault() {
    switch (random() % 3) {
      case 0: {
        pid_t const process = writers[random() % processes].process;
        if (process <= 0) return;
        ::kill(process, SIGKILL);
        ++kills;
        return;
      }
      case 1:
        return command({"CLIENT", "KILL", "TYPE", "normal", "SKIPME", "yes"});
      default:
        return command({"XTRIM", "macrewrite:stream", "MAXLEN", "0"});
    }
  }

  void run(Process& watcher) {
    U32 alive = processes;
    U32 const between =
        std::clamp(operations() / 60, U32{1}, U32{5000});  // operations between faults
    U32 nextFault = between;
    U32 nextPrinted = operations() / 100;
    while (alive > 0) {
      std::vector<pollfd> waiting;
      std::vector<U32> of;
      for (U32 i = 0; i < processes; ++i) {
        if (writers[i].process < 0) continue;
        waiting.push_back({writers[i].reports, POLLIN, 0});
        of.push_back(i);
      }
      ASSERT_GT(::poll(waiting.data(), waiting.size(), 60'000), 0);
      for (size_t i = 0; i < waiting.size(); ++i) {
        if (waiting[i].revents == 0 || read(of[i])) continue;
        if (end(of[i])) --alive;
      }
      U32 begun = 0;
      for (Writer const& writer : writers) begun += writer.begun;
      // It follows closely half of the time; in between it may lose changes.
      if (begun / between % 2 != 0) {
        watcher.mirror.follow();
        watcher.clock->advance(20);
      }
      if (std::getenv("BFN_STORE_OPERATIONS") != nullptr && begun >= nextPrinted) {
        std::cerr << begun << " operations of " << processes << " processes, " << kills
                  << " kills\n";
        nextPrinted = begun + operations() / 100;
      }
      if (begun < nextFault) continue;
      nextFault += between;
      fault();
    }
  }

  // Whether a writer that has ended has done all of its work; it is started again otherwise.
  bool end(U32 index) {
    Writer& writer = writers[index];
    ::close(writer.reports);
    int status = 0;
    ::waitpid(writer.process, &status, 0);
    writer.process = -1;
    bool const killed = WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL;
    EXPECT_TRUE(killed || (WIFEXITED(status) && WEXITSTATUS(status) == 0)) << status;
    if (!killed || writer.begun >= perWriter) return true;
    startWriter(index);
    return false;
  }
};

TEST_F(StoreRandomTest, AtRestAllAreEqualAndNothingThatWasTakenIsLost) {
  SCOPED_TRACE("BFN_TEST_SEED=" + std::to_string(seed));
  Kiv::LogService::sinkIs([](Kiv::LogMessage const&) {});
  Process watcher(server->url());
  watcher.follow();
  watcher.mirror.make(kVrfsPath, kVrfsType);
  auto const order = Kiv::makeActive<Order>(watcher.vrfs());
  for (U32 i = 0; i < processes; ++i) startWriter(i);
  run(watcher);
  // Changes that it has not read are lost before the last one.
  Process fresh(server->url());
  fresh.follow();
  command({"XTRIM", "macrewrite:stream", "MAXLEN", "0"});
  fresh.mirror.set(kVrfsPath, "vrfName", "1000", nameOf(0, operations()));
  watcher.follow();
  watcher.follow();
  EXPECT_EQ(textOf(*watcher.vrfs()), textOf(*fresh.vrfs()));
  for (auto const& [key, may] : expected) {
    std::string const there = form(fresh.vrfs()->vrfName(Pex::VrfId(key + 1)));
    std::set<std::string> names;
    for (U32 const value : may) {
      names.insert(value == kRemoved ? "''" : nameOf(key / kOwnKeys, value));
    }
    EXPECT_TRUE(names.contains(there)) << key << ": " << there << ", not " << *names.begin();
  }
  EXPECT_EQ(expected.size(), processes * kOwnKeys);
  EXPECT_GT(taken, operations() / 2);
  EXPECT_GT(kills, 0u);
  EXPECT_GT(watcher.mirror.status().resyncs, 1u);
  RecordProperty("taken", static_cast<int>(taken));
  RecordProperty("kills", static_cast<int>(kills));
  Kiv::LogService::reset();
}

}  // namespace
