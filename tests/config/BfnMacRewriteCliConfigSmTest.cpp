// SPDX-License-Identifier: Apache-2.0
#include "config/BfnMacRewriteCliConfigSm.h"

#include <cstdio>
#include <set>
#include <stdexcept>

#include "framework/trace/TraceHandle.h"
#include "framework/trace/TraceHelper.h"
#include "tests/support/PluginTest.h"
#include "tests/support/Watcher.h"

// The operator's lines by VRF name become the agent's records by VRF id.
namespace {

using BfnMacRewrite::OverlaySrcMacRewriteCliConfigSm;
using BfnTest::ip;
using BfnTest::mac;
using BfnTest::TraceCapture;
using BfnTest::Watcher;
using Pex::VrfId;
using ::testing::AllOf;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;

constexpr char const* kMac1 = "02:00:00:00:00:01";
constexpr char const* kMac2 = "02:00:00:00:00:02";

L3::VrfName name(char const* text) {
  return L3::VrfName(text);
}

class CliConfigSmTest : public BfnTest::PluginTest {
 protected:
  void TearDown() override {
    sm.reset();
    config.reset();
    PluginTest::TearDown();
  }
  void start() {
    sm = BfnMacRewrite::overlaySrcMacRewriteCliConfigSmFactory(host.cliConfig, config,
                                                               host.l3Status);
    TraceCapture::clear();
  }
  /// "<vrf id> <address> <mac>", sorted; an empty record is "<vrf id>".
  std::vector<std::string> output() const {
    std::set<std::string> lines;
    for (auto const& record : config->overlaySrcMacRewrite()) {
      std::ostringstream id;
      id << record->vrfId();
      if (record->ipAndMac().empty()) lines.insert(id.str());
      for (auto const& entry : record->ipAndMac()) {
        std::ostringstream line;
        line << record->vrfId() << ' ' << entry.ip << ' ' << entry.mac;
        lines.insert(line.str());
      }
    }
    return {lines.begin(), lines.end()};
  }

  Kiv::Ptr<BfnMacRewrite::Agent::Config> config = Kiv::makeActive<BfnMacRewrite::Agent::Config>();
  Kiv::Ptr<OverlaySrcMacRewriteCliConfigSm> sm;
};

TEST_F(CliConfigSmTest, TheFactoryWatchesItsInputsAndTranslatesWhatIsThere) {
  host.vrf("red", 5);
  host.vrf("blue", 6);
  host.rewrite("red", "10.0.0.1", kMac1);
  host.rewrite("blue", "10.0.0.2", kMac2);
  host.rewrite("green", "10.0.0.3", kMac2);
  start();
  EXPECT_TRUE(sm->hasNotificationActive());
  EXPECT_TRUE(sm->initialized());
  EXPECT_EQ(sm->overlaySrcMacRewriteCliConfig(), host.cliConfig);
  EXPECT_EQ(sm->overlaySrcMacRewriteAgentConfig(), config);
  EXPECT_EQ(sm->l3Status(), host.l3Status);
  EXPECT_THAT(output(),
              ElementsAre("5 10.0.0.1 02:00:00:00:00:01", "6 10.0.0.2 02:00:00:00:00:02"));
}

TEST_F(CliConfigSmTest, NullInputsContributeNothing) {
  host.vrf("red", 5);
  host.rewrite("red", "10.0.0.1", kMac1);
  for (unsigned mask = 0; mask < 7; ++mask) {
    SCOPED_TRACE(mask);
    auto const made = BfnMacRewrite::overlaySrcMacRewriteCliConfigSmFactory(
        mask & 1 ? host.cliConfig : nullptr, mask & 2 ? config : nullptr,
        mask & 4 ? host.l3Status : nullptr);
    EXPECT_EQ(made->overlaySrcMacRewriteCliConfig() != nullptr, (mask & 1) != 0);
    EXPECT_EQ(made->l3Status() != nullptr, (mask & 4) != 0);
    host.rewrite("red", "10.0.0.1", kMac2);
    host.rewriteDel("red", "10.0.0.1");
    host.rewrite("red", "10.0.0.1", kMac1);
    host.l3Status->vrfDel(name("red"));
    host.vrf("red", 5);
    if ((mask & 4) == 0) made->handleVrfId();
    made->handleVrfId(name("blue"));
    made->handleOverlaySrcMacRewriteEntry({name("red"), ip("10.0.0.1")});
    EXPECT_THAT(output(), IsEmpty());
  }
}

TEST_F(CliConfigSmTest, AnEntryWaitsForItsVrf) {
  start();
  host.rewrite("red", "10.0.0.1", kMac1);
  EXPECT_THAT(output(), IsEmpty());
  EXPECT_EQ(TraceCapture::records()[0].statement->level(), 9u);
  EXPECT_EQ(TraceCapture::records()[1].statement->level(), 4u);
  EXPECT_EQ(TraceCapture::records()[1].statement->facility(), "BfnMacRewriteCliConfigSm");
  EXPECT_THAT(traces(),
              ElementsAre("OverlaySrcMacRewriteCliConfigSm::handleOverlaySrcMacRewriteEntry: "
                          "vrfName: red, ip address: 10.0.0.1",
                          "OverlaySrcMacRewriteCliConfigSm::handleOverlaySrcMacRewriteEntry: "
                          "Vrf doesn't exist, vrfName: red"));
  host.vrf("red", 5);
  EXPECT_THAT(output(), ElementsAre("5 10.0.0.1 02:00:00:00:00:01"));
}

TEST_F(CliConfigSmTest, TracesOfAVrfThatComesAndGoes) {
  host.rewrite("red", "10.0.0.1", kMac1);
  host.rewrite("blue", "10.0.0.2", kMac1);
  start();
  host.vrf("red", 5);
  EXPECT_THAT(
      traces(),
      ElementsAre("OverlaySrcMacRewriteCliConfigSm::handleVrfId: vrfName: red",
                  "OverlaySrcMacRewriteCliConfigSm::addVrf: vrfName: red",
                  "OverlaySrcMacRewriteCliConfigSm::doAddOverlaySrcMacRewriteEntry: vrfName: red",
                  "OverlaySrcMacRewriteCliConfigSm::handleOverlaySrcMacRewriteEntry: vrfName: "
                  "red, ip address: 10.0.0.1",
                  "OverlaySrcMacRewriteCliConfigSm::handleOverlaySrcMacRewriteEntry: vrfId: 5"));
  host.l3Status->vrfDel(name("red"));
  EXPECT_THAT(traces(), ElementsAre("OverlaySrcMacRewriteCliConfigSm::handleVrfId: vrfName: red",
                                    "OverlaySrcMacRewriteCliConfigSm::deleteVrf: vrfName: red"));
}

TEST_F(CliConfigSmTest, TracesOfAConstruction) {
  host.vrf("red", 5);
  TraceCapture::clear();
  sm = OverlaySrcMacRewriteCliConfigSm::OverlaySrcMacRewriteCliConfigSmIs(host.cliConfig, config,
                                                                          host.l3Status);
  EXPECT_THAT(
      TraceCapture::texts(),
      ElementsAre(
          "void BfnMacRewrite::OverlaySrcMacRewriteCliConfigSm::handleInitialized(): ",
          "void BfnMacRewrite::OverlaySrcMacRewriteCliConfigSm::handleVrfId(): ",
          "void BfnMacRewrite::OverlaySrcMacRewriteCliConfigSm::addVrf(L3::VrfName): vrfName: red",
          "void BfnMacRewrite::OverlaySrcMacRewriteCliConfigSm::doAddOverlaySrcMacRewriteEntry("
          "L3::VrfName): vrfName: red"));
  for (auto const& trace : TraceCapture::records()) {
    EXPECT_EQ(trace.statement->level(), 9u) << trace.text;
  }
}

TEST_F(CliConfigSmTest, LevelsAreFourForDecisionsAndNineForTheRest) {
  start();
  host.vrf("red", 5);
  host.rewrite("red", "10.0.0.1", kMac1);
  host.rewriteDel("red", "10.0.0.1");
  host.rewrite("blue", "10.0.0.1", kMac1);
  host.rewriteDel("blue", "10.0.0.1");
  host.l3Status->vrfDel(name("red"));
  for (auto const& trace : TraceCapture::records()) {
    bool const decision = trace.text.find("): vrfId: ") != std::string::npos ||
                          trace.text.find("): Vrf doesn't exist") != std::string::npos;
    EXPECT_EQ(trace.statement->level(), decision ? 4u : 9u) << trace.text;
  }
}

TEST_F(CliConfigSmTest, TheLastEntryOfAVrfTakesItsRecordAlong) {
  host.vrf("red", 5);
  host.rewrite("red", "10.0.0.1", kMac1);
  host.rewrite("red", "10.0.0.2", kMac1);
  start();
  auto const* const record = config->overlaySrcMacRewrite(VrfId(5));
  host.rewriteDel("red", "10.0.0.1");
  EXPECT_EQ(config->overlaySrcMacRewrite(VrfId(5)), record);
  EXPECT_THAT(output(), ElementsAre("5 10.0.0.2 02:00:00:00:00:01"));
  traces();
  host.rewriteDel("red", "10.0.0.2");
  EXPECT_THAT(output(), IsEmpty());
  EXPECT_THAT(
      traces(),
      ElementsAre("OverlaySrcMacRewriteCliConfigSm::handleOverlaySrcMacRewriteEntry: vrfName: "
                  "red, ip address: 10.0.0.2",
                  "OverlaySrcMacRewriteCliConfigSm::handleOverlaySrcMacRewriteEntry: vrfId: 5"));
  host.rewrite("red", "10.0.0.2", kMac2);
  EXPECT_THAT(output(), ElementsAre("5 10.0.0.2 02:00:00:00:00:02"));
}

TEST_F(CliConfigSmTest, ARemovalInAnUnknownVrfOnlyTraces) {
  host.rewrite("red", "10.0.0.1", kMac1);
  start();
  host.rewriteDel("red", "10.0.0.1");
  EXPECT_THAT(
      traces(),
      ElementsAre("OverlaySrcMacRewriteCliConfigSm::handleOverlaySrcMacRewriteEntry: vrfName: "
                  "red, ip address: 10.0.0.1",
                  "OverlaySrcMacRewriteCliConfigSm::handleOverlaySrcMacRewriteEntry: Vrf doesn't "
                  "exist, vrfName: red"));
  EXPECT_THAT(output(), IsEmpty());
}

TEST_F(CliConfigSmTest, ARemovalWhoseRecordIsGoneCreatesNone) {
  host.vrf("red", 5);
  host.rewrite("red", "10.0.0.1", kMac1);
  start();
  config->overlaySrcMacRewriteDel(VrfId(5));
  auto const watcher = Kiv::makeActive<Watcher>(config);
  host.rewriteDel("red", "10.0.0.1");
  EXPECT_THAT(output(), IsEmpty());
  EXPECT_THAT(watcher->changes, IsEmpty());
}

TEST_F(CliConfigSmTest, AVrfThatComesBackUnderAnotherIdHasEverythingThere) {
  host.vrf("red", 5);
  host.rewrite("red", "10.0.0.1", kMac1);
  host.rewrite("red", "10.0.0.2", kMac2);
  start();
  host.l3Status->vrfDel(name("red"));
  EXPECT_THAT(output(), IsEmpty());
  EXPECT_FALSE(sm->localVrfNameToIdHas(name("red")));
  host.rewriteDel("red", "10.0.0.2");
  host.vrf("red", 7);
  EXPECT_THAT(output(), ElementsAre("7 10.0.0.1 02:00:00:00:00:01"));
  EXPECT_EQ(sm->localVrfNameToId(name("red")), VrfId(7));
}

TEST_F(CliConfigSmTest, AnotherMacOverwritesAndAnEqualOneDoesNotNotify) {
  host.vrf("red", 5);
  host.rewrite("red", "10.0.0.1", kMac1);
  start();
  auto const watcher = Kiv::makeActive<Watcher>(
      Kiv::Ptr<BfnMacRewrite::Agent::OverlaySrcMacRewrite>(config->overlaySrcMacRewrite(VrfId(5))));
  host.rewrite("red", "10.0.0.1", kMac2);
  EXPECT_THAT(output(), ElementsAre("5 10.0.0.1 02:00:00:00:00:02"));
  EXPECT_EQ(watcher->changes.size(), 1u);
  sm->handleOverlaySrcMacRewriteEntry({name("red"), ip("10.0.0.1")});
  EXPECT_EQ(watcher->changes.size(), 1u);
}

TEST_F(CliConfigSmTest, AnUnknownNameDeletesRecordZero) {
  config->overlaySrcMacRewriteIs(VrfId(0))->ipAndMacIs({ip("10.0.0.9"), mac(kMac1)});
  config->overlaySrcMacRewriteIs(VrfId(5));
  host.vrf("red", 5);
  start();
  sm->deleteVrf(name("absent"));
  EXPECT_THAT(output(), ElementsAre("5"));
  EXPECT_TRUE(sm->localVrfNameToIdHas(name("red")));
  EXPECT_FALSE(sm->localVrfNameToIdHas(name("absent")));
}

TEST_F(CliConfigSmTest, AVrfWithIdZeroIsLive) {
  start();
  host.vrf("default", 0);
  host.rewrite("default", "10.0.0.1", kMac1);
  EXPECT_THAT(output(), ElementsAre("0 10.0.0.1 02:00:00:00:00:01"));
  host.rewriteDel("default", "10.0.0.1");
  EXPECT_THAT(output(), IsEmpty());
}

TEST_F(CliConfigSmTest, AVrfAddedWithoutAPublishedIdGetsIdZero) {
  host.rewrite("red", "10.0.0.1", kMac1);
  start();
  sm->addVrf(name("red"));
  EXPECT_TRUE(sm->localVrfNameToIdHas(name("red")));
  EXPECT_THAT(output(), ElementsAre("0 10.0.0.1 02:00:00:00:00:01"));
}

TEST_F(CliConfigSmTest, OnlyTheAppliedIdIsUsed) {
  host.vrf("red", 5);
  start();
  sm->localVrfNameToIdIs(name("red"), VrfId(9));
  host.rewrite("red", "10.0.0.1", kMac1);
  EXPECT_THAT(output(), ElementsAre("9 10.0.0.1 02:00:00:00:00:01"));
  host.l3Status->vrfDel(name("red"));
  EXPECT_THAT(output(), IsEmpty());
}

TEST_F(CliConfigSmTest, TheLocalMapInsertsOverwritesAndForgets) {
  start();
  EXPECT_EQ(sm->localVrfNameToId(name("red")), VrfId(0));
  sm->localVrfNameToIdIs(name("red"), VrfId(5));
  sm->localVrfNameToIdIs(name("red"), VrfId(6));
  sm->localVrfNameToIdIs(name("blue"), VrfId(7));
  EXPECT_EQ(sm->localVrfNameToId(name("red")), VrfId(6));
  sm->localVrfNameToIdDel(name("red"));
  EXPECT_FALSE(sm->localVrfNameToIdHas(name("red")));
  EXPECT_TRUE(sm->localVrfNameToIdHas(name("blue")));
  sm->localVrfNameToIdIs(name("red"), VrfId(5));
  sm->localVrfNameToIdDelAll();
  EXPECT_FALSE(sm->localVrfNameToIdHas(name("red")));
  EXPECT_FALSE(sm->localVrfNameToIdHas(name("blue")));
}

TEST_F(CliConfigSmTest, TwoNamesOfOneIdShareARecordThatEitherTakesAway) {
  host.rewrite("red", "10.0.0.1", kMac1);
  host.rewrite("blue", "10.0.0.2", kMac2);
  start();
  host.vrf("red", 5);
  host.vrf("blue", 5);
  EXPECT_THAT(output(),
              ElementsAre("5 10.0.0.1 02:00:00:00:00:01", "5 10.0.0.2 02:00:00:00:00:02"));
  host.l3Status->vrfDel(name("red"));
  EXPECT_THAT(output(), IsEmpty());
  EXPECT_TRUE(sm->localVrfNameToIdHas(name("blue")));
}

TEST_F(CliConfigSmTest, OtherAttributesAndMissingKeysAreIgnored) {
  host.vrf("red", 5);
  host.rewrite("red", "10.0.0.1", kMac1);
  start();
  L3::VrfName const key = name("red");
  BfnMacRewrite::Input::VrfNameAndIp const line{name("red"), ip("10.0.0.1")};
  host.l3Status->notify(999, &key);
  host.l3Status->notify(Pex::L3Status::kVrfNameToId.id);
  host.cliConfig->notify(999, &line);
  host.cliConfig->notify(BfnMacRewrite::Input::Config::kOverlaySrcMacRewriteEntry.id);
  host.l3Status->vrfNameIs(VrfId(8), name("green"));
  EXPECT_THAT(traces(), IsEmpty());
}

TEST_F(CliConfigSmTest, BeforeInitialisationTheHandlersAreSilent) {
  host.vrf("red", 5);
  start();
  sm->initializedIs(false);
  sm->handleVrfId(name("red"));
  sm->handleOverlaySrcMacRewriteEntry({name("red"), ip("10.0.0.1")});
  EXPECT_THAT(traces(), IsEmpty());
}

TEST_F(CliConfigSmTest, DestructionLeavesTheOutputAndHearsNoMore) {
  host.vrf("red", 5);
  host.rewrite("red", "10.0.0.1", kMac1);
  start();
  sm.reset();
  host.rewrite("red", "10.0.0.2", kMac1);
  host.l3Status->vrfDel(name("red"));
  EXPECT_THAT(output(), ElementsAre("5 10.0.0.1 02:00:00:00:00:01"));
  EXPECT_THAT(traces(), IsEmpty());
}

TEST_F(CliConfigSmTest, AHandlerOfTheOutputMayDropTheMachineAtAnyWrite) {
  for (bool const whole : {false, true}) {
    SCOPED_TRACE(whole);
    config = Kiv::makeActive<BfnMacRewrite::Agent::Config>();
    host.rewrite("red", "10.0.0.1", kMac1);
    host.rewrite("red", "10.0.0.2", kMac1);
    start();
    auto watcher = Kiv::makeActive<Watcher>(config);
    watcher->then = [this] { sm.reset(); };
    host.vrf("red", 5);  // drops it at the first record
    EXPECT_EQ(sm, nullptr);
    watcher->then = nullptr;
    start();
    watcher->then = [this] { sm.reset(); };
    if (whole) {
      host.l3Status->vrfDel(name("red"));
    } else {
      auto const record =
          Kiv::makeActive<Watcher>(Kiv::Ptr<BfnMacRewrite::Agent::OverlaySrcMacRewrite>(
              config->overlaySrcMacRewrite(VrfId(5))));
      host.rewriteDel("red", "10.0.0.2");
      record->then = [this] { sm.reset(); };
      host.rewriteDel("red", "10.0.0.1");
      host.l3Status->vrfDel(name("red"));
    }
    EXPECT_EQ(sm, nullptr);
    EXPECT_THAT(output(), IsEmpty());
  }
}

TEST_F(CliConfigSmTest, ANameThatIsNotLiveAndNotPublishedDeletesRecordZero) {
  start();
  config->overlaySrcMacRewriteIs(VrfId(0));
  sm->handleVrfId(name("absent"));
  EXPECT_THAT(output(), IsEmpty());
}

TEST_F(CliConfigSmTest, AVrfIsLiveUntilItsRecordHasGone) {
  host.vrf("red", 5);
  host.rewrite("red", "10.0.0.1", kMac1);
  start();
  auto const watcher = Kiv::makeActive<Watcher>(config);
  watcher->then = [&] { EXPECT_TRUE(sm->localVrfNameToIdHas(name("red"))); };
  host.l3Status->vrfDel(name("red"));
  EXPECT_EQ(watcher->changes.size(), 1u);
  EXPECT_FALSE(sm->localVrfNameToIdHas(name("red")));
}

TEST_F(CliConfigSmTest, ARemovalThatFindsTheRecordEmptyDeletesIt) {
  host.vrf("red", 5);
  host.rewrite("red", "10.0.0.1", kMac1);
  start();
  config->overlaySrcMacRewrite(VrfId(5))->ipAndMacDelAll();
  EXPECT_THAT(output(), ElementsAre("5"));
  host.rewriteDel("red", "10.0.0.1");
  EXPECT_THAT(output(), IsEmpty());
}

TEST_F(CliConfigSmTest, AHandlerThatThrowsAtARemovalLeavesTheVrfFreeToReturn) {
  host.vrf("red", 5);
  host.rewrite("red", "10.0.0.1", kMac1);
  start();
  auto const watcher = Kiv::makeActive<Watcher>(config);
  watcher->then = [] { throw std::runtime_error("no"); };
  EXPECT_THROW(host.l3Status->vrfDel(name("red")), std::runtime_error);
  watcher->then = nullptr;
  EXPECT_FALSE(sm->localVrfNameToIdHas(name("red")));
  EXPECT_THAT(output(), IsEmpty());
  host.l3Status->vrfDel(name("red"));
  host.vrf("red", 6);
  EXPECT_THAT(output(), ElementsAre("6 10.0.0.1 02:00:00:00:00:01"));
}

TEST_F(CliConfigSmTest, ALineChangedWhileItsRecordIsAnnouncedKeepsTheChange) {
  host.vrf("red", 5);
  start();
  auto const watcher = Kiv::makeActive<Watcher>(config);
  watcher->then = [&] {
    watcher->then = nullptr;
    host.rewrite("red", "10.0.0.1", kMac2);
  };
  host.rewrite("red", "10.0.0.1", kMac1);
  EXPECT_THAT(output(), ElementsAre("5 10.0.0.1 02:00:00:00:00:02"));
}

TEST_F(CliConfigSmTest, ALineGoesIntoTheRecordThatReplacedTheAnnouncedOne) {
  host.vrf("red", 5);
  start();
  auto const watcher = Kiv::makeActive<Watcher>(config);
  watcher->then = [&] {
    watcher->then = nullptr;
    config->overlaySrcMacRewriteDel(VrfId(5));
    config->overlaySrcMacRewriteIs(VrfId(5));
  };
  host.rewrite("red", "10.0.0.1", kMac1);
  EXPECT_THAT(output(), ElementsAre("5 10.0.0.1 02:00:00:00:00:01"));
}

TEST_F(CliConfigSmTest, ALineOrVrfThatGoesWhileItsRecordIsAnnouncedIsNotTranslated) {
  for (bool const vrf : {false, true}) {
    SCOPED_TRACE(vrf);
    host.vrf("red", 5);
    host.vrf("blue", 5);
    start();
    auto const watcher = Kiv::makeActive<Watcher>(config);
    watcher->then = [&] {
      watcher->then = nullptr;
      if (!vrf) return host.rewriteDel("red", "10.0.0.1");
      host.l3Status->vrfDel(name("red"));
      host.rewrite("blue", "10.0.0.2", kMac2);
    };
    host.rewrite("red", "10.0.0.1", kMac1);
    if (vrf) {
      EXPECT_THAT(output(), ElementsAre("5 10.0.0.2 02:00:00:00:00:02"));
    } else {
      EXPECT_THAT(output(), IsEmpty());
    }
    sm.reset();
  }
}

TEST_F(CliConfigSmTest, ALineReplacedByAnotherWhileItsRecordIsAnnouncedIsNotTranslated) {
  host.vrf("red", 5);
  start();
  auto const watcher = Kiv::makeActive<Watcher>(config);
  watcher->then = [&] {
    watcher->then = nullptr;
    host.rewriteDel("red", "10.0.0.1");
    host.rewrite("red", "10.0.0.2", kMac2);
  };
  host.rewrite("red", "10.0.0.1", kMac1);
  EXPECT_THAT(output(), ElementsAre("5 10.0.0.2 02:00:00:00:00:02"));
}

TEST_F(CliConfigSmTest, AVrfAnnouncedAgainWhileItsLastLineGoesKeepsItsNewLine) {
  host.vrf("red", 5);
  host.rewrite("red", "10.0.0.1", kMac1);
  start();
  auto const watcher = Kiv::makeActive<Watcher>(
      Kiv::Ptr<BfnMacRewrite::Agent::OverlaySrcMacRewrite>(config->overlaySrcMacRewrite(VrfId(5))));
  watcher->then = [&] {
    watcher->then = nullptr;
    host.l3Status->vrfDel(name("red"));
    host.rewrite("red", "10.0.0.2", kMac2);
    host.vrf("red", 5);
  };
  host.rewriteDel("red", "10.0.0.1");
  EXPECT_THAT(output(), ElementsAre("5 10.0.0.2 02:00:00:00:00:02"));
}

using CliConfigSmDeathTest = CliConfigSmTest;

auto diesAs(std::string const& line) {
  return AllOf(HasSubstr("Failed(!localVrfNameToIdHas( vrfName )) " + line),
               Not(HasSubstr(line + "\n")), HasSubstr("BfnMacRewriteCliConfigSm"),
               HasSubstr("\"!localVrfNameToIdHas( vrfName )\" == nullptr"));
}

TEST_F(CliConfigSmDeathTest, AnIdThatChangesUnderALiveVrfIsFatal) {
  host.vrf("red", 5);
  start();
  EXPECT_DEATH(host.l3Status->vrfNameToIdIs(name("red"), VrfId(7)),
               diesAs("vrfId for red changed from 5 to 7"));
}

TEST_F(CliConfigSmDeathTest, ASecondAnnouncementOfALiveVrfIsFatal) {
  host.vrf("red", 5);
  start();
  L3::VrfName const key = name("red");
  EXPECT_DEATH(host.l3Status->notify(Pex::L3Status::kVrfNameToId.id, &key),
               diesAs("vrfId for red changed from 5 to 5"));
  EXPECT_DEATH(sm->handleVrfId(), diesAs("vrfId for red changed from 5 to 5"));
}

TEST_F(CliConfigSmDeathTest, TheInternalOperationsAssertInitialisation) {
  start();
  sm->initializedIs(false);
  // Each by itself: they call one another.
  auto const diesIn = [](char const* function) {
    return AllOf(HasSubstr("Failed(initialized()) "), HasSubstr("\"initialized()\" == nullptr"),
                 HasSubstr(std::string("OverlaySrcMacRewriteCliConfigSm::") + function + "("));
  };
  EXPECT_DEATH(sm->handleVrfId(), diesIn("handleVrfId"));
  EXPECT_DEATH(sm->addVrf(name("red")), diesIn("addVrf"));
  EXPECT_DEATH(sm->deleteVrf(name("red")), diesIn("deleteVrf"));
  EXPECT_DEATH(sm->doAddOverlaySrcMacRewriteEntry(name("red")),
               diesIn("doAddOverlaySrcMacRewriteEntry"));
}

TEST_F(CliConfigSmDeathTest, OnlyTheBulkPassTracesBeforeItAsserts) {
  start();
  sm->initializedIs(false);
  auto const traceTo = [] {
    Kiv::TraceHandle::levelsAre("BfnMacRewriteCliConfigSm", Kiv::TraceHandle::kAllLevels);
    Kiv::TraceHelper::sinkIs([](auto const&) { std::fputs("traced\n", stderr); });
  };
  auto const red = name("red");
  EXPECT_DEATH((traceTo(), sm->handleVrfId()), HasSubstr("traced"));
  EXPECT_DEATH((traceTo(), sm->addVrf(red)), Not(HasSubstr("traced")));
  EXPECT_DEATH((traceTo(), sm->deleteVrf(red)), Not(HasSubstr("traced")));
  EXPECT_DEATH((traceTo(), sm->doAddOverlaySrcMacRewriteEntry(red)), Not(HasSubstr("traced")));
}

}  // namespace
