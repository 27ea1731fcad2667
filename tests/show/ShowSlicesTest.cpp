// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <map>
#include <random>
#include <string>
#include <vector>

#include "framework/core/Exceptions.h"
#include "tests/show/ShowTest.h"

// How the work is cut into slices, and what happens between them.
namespace {

using ::Agent::SliceResult;
using BfnTest::ip;
using BfnTest::ShowOptions;
using BfnTest::TraceCapture;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

class ShowSlicesTest : public BfnTest::ShowTest {
 protected:
  /// `vrfs` VRFs with `perVrf` rows each, 10.<id>.<n / 250>.<n % 250 + 1> in VRF v<100 + id>.
  void rows(unsigned vrfs, unsigned perVrf) {
    for (unsigned id = 1; id <= vrfs; ++id) {
      vrf(vrfOf(id), id);
      for (unsigned n = 0; n < perVrf; ++n) row(vrfOf(id), id, ipOf(id, n), macOf(id, n));
    }
  }
  static std::string vrfOf(unsigned id) { return "v" + std::to_string(100 + id); }
  static std::string ipOf(unsigned id, unsigned n) {
    return "10." + std::to_string(id) + "." + std::to_string(n / 250) + "." +
           std::to_string(n % 250 + 1);
  }
  static std::string macOf(unsigned id, unsigned n) {
    char text[32];
    std::snprintf(text, sizeof text, "02:00:%02x:00:%02x:%02x", id, n >> 8, n & 0xff);
    return text;
  }
  static unsigned vrfIdOf(Key const& key) { return key.ipAddr.value() >> 16 & 0xff; }
  void remove(Key const& key) {
    host.addressDel(vrfIdOf(key), key.ipAddr.valueToStrep().charPtr());
  }
  static std::string textOf(Ovra::IpAddr address) { return address.valueToStrep().stdString(); }
  /// The addresses of the lines received so far, in their order.
  std::vector<std::string> addresses() const {
    std::vector<std::string> found;
    for (size_t at = std::string(kHeader).size(); at < received.size();) {
      size_t const end = received.find('\n', at);
      if (end - at == 57) {
        std::string const column = received.substr(at + 16, 20);
        found.push_back(column.substr(0, column.find(' ')));
      }
      at = end + 1;
    }
    return found;
  }
  /// Slices of a command, driven by hand, whose first one is over.
  static void slice(Kiv::Ptr<Sm> const& sm) {
    sm->handleAsyncCommand(7, 0);
    sm->continuationIs(true);
  }
};

TEST_F(ShowSlicesTest, UnslicedEachRecordAndEachVrfIsFollowedByOneLook) {
  rows(3, 4);
  auto const sm = command();
  printerIs(sm);
  EXPECT_EQ(looksOfSlice(sm), 12u + 3u);
  EXPECT_TRUE(sm->executionCompleted());
  EXPECT_FALSE(sm->matchSpecIterDone()) << "a collection that ended within its slice";
}

TEST_F(ShowSlicesTest, RecordsThatAreFilteredOutAreFollowedByALookToo) {
  rows(3, 4);
  auto const sm = command({.vrf = "v102"});
  printerIs(sm);
  EXPECT_EQ(looksOfSlice(sm), 12u + 1u);
}

TEST_F(ShowSlicesTest, WithCliTestingEveryRecordAndEveryVrfEndsASlice) {
  rows(3, 4);
  std::string const unsliced = shown();
  EXPECT_EQ(run(command({.cliTesting = true})), 12u + 3u);
  EXPECT_EQ(received, unsliced);
  std::string const json = shown({.format = 1});
  EXPECT_EQ(shown({.cliTesting = true, .format = 1}), json);
}

TEST_F(ShowSlicesTest, WithCliTestingTheTimeIsLookedAtAllTheSame) {
  rows(1, 2);
  auto const sm = command({.cliTesting = true});
  printerIs(sm);
  EXPECT_EQ(looksOfSlice(sm), 1u);
  sm->continuationIs(true);
  EXPECT_EQ(looksOfSlice(sm), 1u);
  EXPECT_EQ(looksOfSlice(sm), 1u);
  EXPECT_TRUE(sm->executionCompleted());
}

TEST_F(ShowSlicesTest, WithEverythingFilteredOutOneSliceFollowsTheCollection) {
  rows(2, 3);
  EXPECT_EQ(run(command({.vrf = "other", .cliTesting = true})), 6u + 1u);
  EXPECT_EQ(received, std::string(kHeader) + "\n");
}

TEST_F(ShowSlicesTest, WhateverTheQuantumTheOutputIsThatOfOneSlice) {
  rows(4, 7);
  std::string const unsliced = shown();
  for (unsigned looks = 0; looks <= 40; ++looks) {
    auto const sm = command({.maxRunTime = static_cast<double>(looks)});
    unsigned const slices = run(sm);
    EXPECT_EQ(received, unsliced) << looks;
    EXPECT_EQ(sm->yieldCount(), slices - 1) << looks;
    if (looks <= 1) {
      EXPECT_EQ(slices, 28u + 4u) << looks;
    } else if (looks > 32) {
      EXPECT_EQ(slices, 1u) << looks;
    }
  }
}

TEST_F(ShowSlicesTest, AFullBufferEndsASliceAfterAVrf) {
  rows(5, 3);
  std::string const unsliced = shown();
  auto const sm = command();
  sm->maxBufferSizeIs(1);
  EXPECT_EQ(run(sm), 6u) << "the header fills the buffer while the first record is examined";
  EXPECT_EQ(received, unsliced);
  EXPECT_EQ(sm->bufferYieldCount(), 5u);
}

TEST_F(ShowSlicesTest, TheTracesOfASlicedCommand) {
  vrf("red", 1);
  vrf("blue", 2);
  row("red", 1, "10.0.0.1", "02:00:00:00:00:01");
  row("blue", 2, "10.0.0.2", "02:00:00:00:00:02");
  run(command({.cliTesting = true}));
  std::vector<unsigned> levels;
  for (auto const& record : TraceCapture::records()) levels.push_back(record.statement->level());
  EXPECT_THAT(levels, ElementsAre(9, 9, 4, 4, 9, 4, 4, 9, 4, 4, 9, 4, 4));
  std::string const slice =
      "virtual void BfnMacRewrite::ShowMacRewriteCommandRequestSm::"
      "handleAsyncCommand(Kiv::U32, Kiv::U32): ";
  EXPECT_THAT(
      TraceCapture::texts(),
      ElementsAre(
          "void BfnMacRewrite::ShowMacRewriteCommandRequestSm::handleInitialized(): SM Init.",
          slice + "Socket 7 format 0", slice + "TQ Expired",
          slice + "Saved a bookmark. Come back later.",  //
          slice + "Socket 7 format 0", slice + "TQ Expired", slice + "Completed.",
          slice + "Socket 7 format 0", slice + "TQ Expired",
          slice + "Saved bookmarks. Come back later.",  //
          slice + "Socket 7 format 0", slice + "TQ Expired", slice + "Completed."));
}

TEST_F(ShowSlicesTest, WithoutYieldNothingIsTracedButTheSlice) {
  rows(2, 2);
  (void)shown();
  EXPECT_EQ(TraceCapture::records().size(), 2u);
}

TEST_F(ShowSlicesTest, TheBookmarkIsTheNextRecordNotYetExamined) {
  rows(2, 2);
  auto const order = walkOrder();
  auto const sm = command({.cliTesting = true});
  for (size_t next = 1; next < order.size(); ++next) {
    EXPECT_EQ(sm->runSlice(), SliceResult::Again);
    EXPECT_EQ(sm->bookmarkMatch(), order[next]);
    EXPECT_FALSE(sm->matchSpecIterDone());
    EXPECT_EQ(received, kHeader);
  }
  EXPECT_EQ(sm->runSlice(), SliceResult::Again);
  EXPECT_TRUE(sm->matchSpecIterDone());
  EXPECT_EQ(sm->bookmarkMatch(), order.back());
  EXPECT_EQ(received, kHeader) << "printing starts with the next slice";
  EXPECT_EQ(sm->bookmarkVrf(), "");
  EXPECT_EQ(sm->runSlice(), SliceResult::Again);
  EXPECT_EQ(sm->bookmarkVrf(), "v102");
  EXPECT_EQ(sm->runSlice(), SliceResult::Completed);
}

TEST_F(ShowSlicesTest, AVrfAndAnAddressTogetherStopTheCollection) {
  rows(2, 8);
  auto const order = walkOrder();
  for (size_t at = 0; at < order.size(); ++at) {
    std::string const vrfName = vrfOf(vrfIdOf(order[at]));
    std::string const sip = textOf(order[at].ipAddr);
    auto const sm = command({.vrf = vrfName.c_str(), .sip = sip.c_str()});
    printerIs(sm);
    EXPECT_EQ(looksOfSlice(sm), at + 1) << "none after the one that was found, one after its VRF";
    EXPECT_TRUE(sm->matchSpecIterDone());
    EXPECT_TRUE(sm->executionCompleted());
    EXPECT_THAT(addresses(), ElementsAre(sip));
    EXPECT_EQ(run(command({.vrf = vrfName.c_str(), .sip = sip.c_str(), .cliTesting = true})),
              at + 1);
    EXPECT_THAT(addresses(), ElementsAre(sip));
  }
}

TEST_F(ShowSlicesTest, AfterARemovalOfTheBookmarkedRecordTheWalkContinuesWithItsSuccessor) {
  rows(2, 10);
  auto const order = walkOrder();
  for (size_t bookmarked = 1; bookmarked < order.size(); bookmarked += 6) {
    auto const sm = command({.cliTesting = true});
    for (size_t i = 0; i < bookmarked; ++i) ASSERT_EQ(sm->runSlice(), SliceResult::Again);
    ASSERT_EQ(sm->bookmarkMatch(), order[bookmarked]);
    remove(order[bookmarked]);
    run(sm);
    std::vector<std::string> const shownAddresses = addresses();
    EXPECT_EQ(shownAddresses.size(), order.size() - 1);
    EXPECT_EQ(std::ranges::count(shownAddresses, textOf(order[bookmarked].ipAddr)), 0);
    host.address(vrfIdOf(order[bookmarked]), textOf(order[bookmarked].ipAddr).c_str(),
                 intfOf(vrfIdOf(order[bookmarked])).c_str());
    ASSERT_EQ(walkOrder(), order);
  }
}

TEST_F(ShowSlicesTest, ABookmarkWithNothingAfterItEndsTheCollection) {
  rows(1, 3);
  auto const order = walkOrder();
  auto const sm = command({.cliTesting = true});
  ASSERT_EQ(sm->runSlice(), SliceResult::Again);
  ASSERT_EQ(sm->runSlice(), SliceResult::Again);
  remove(order[2]);
  EXPECT_EQ(sm->runSlice(), SliceResult::Completed) << "collection and the only VRF";
  EXPECT_EQ(addresses().size(), 2u);
}

TEST_F(ShowSlicesTest, GrowthBetweenSlicesRepeatsNoRowAndSkipsNone) {
  rows(2, 10);
  auto const before = walkOrder();
  auto const sm = command({.cliTesting = true});
  unsigned next = 10;
  run(sm, [&] {
    for (unsigned i = 0; i < 100 && next < 1000; ++i, ++next)
      row(vrfOf(1), 1, ipOf(1, next), macOf(1, next));
  });
  EXPECT_EQ(walkOrder().size(), 1010u);
  std::vector<std::string> const found = addresses();
  for (Key const& key : before) EXPECT_EQ(std::ranges::count(found, textOf(key.ipAddr)), 1);
  std::vector<std::string> unique = found;
  std::ranges::sort(unique);
  EXPECT_EQ(std::ranges::adjacent_find(unique), unique.end());
}

TEST_F(ShowSlicesTest, ARowThatIsRemovedAfterItWasCollectedIsShownStill) {
  rows(1, 4);
  std::string const unsliced = shown();
  auto const order = walkOrder();
  auto const sm = command({.cliTesting = true});
  ASSERT_EQ(sm->runSlice(), SliceResult::Again);
  remove(order[0]);
  run(sm);
  EXPECT_EQ(received, unsliced);
}

TEST_F(ShowSlicesTest, ARowThatIsRemovedBeforeItIsExaminedIsNotShown) {
  rows(1, 4);
  auto const order = walkOrder();
  auto const sm = command({.cliTesting = true});
  ASSERT_EQ(sm->runSlice(), SliceResult::Again);
  remove(order[3]);
  run(sm);
  EXPECT_EQ(std::ranges::count(addresses(), textOf(order[3].ipAddr)), 0);
  EXPECT_EQ(addresses().size(), 3u);
}

TEST_F(ShowSlicesTest, AfterANaturalEndEachLaterSliceCollectsAgain) {
  rows(3, 2);
  auto const sm = command({.maxRunTime = 7});  // 6 records and the first VRF
  EXPECT_EQ(sm->runSlice(), SliceResult::Again);
  EXPECT_FALSE(sm->matchSpecIterDone());
  EXPECT_EQ(sm->bookmarkMatch(), Key());
  EXPECT_EQ(sm->bookmarkVrf(), "v102");
  EXPECT_EQ(addresses().size(), 2u);
  // A row for a VRF that is still to come, one for a VRF that is not, and one that goes.
  row("v103", 3, "10.3.0.250", "02:00:00:00:00:01");
  row("v101", 1, "10.1.0.250", "02:00:00:00:00:01");
  host.addressDel(2, ipOf(2, 0).c_str());
  sm->maxRunTimeIs(1e9);
  Kiv::U64 const readings = clock->readings;
  EXPECT_EQ(sm->runSlice(), SliceResult::Completed);
  EXPECT_EQ(clock->readings - readings, 3u + 7u + 2u) << "the slice's own, records, VRFs";
  EXPECT_THAT(addresses(), ElementsAre(ipOf(1, 0), ipOf(1, 1), ipOf(2, 0), ipOf(2, 1), ipOf(3, 0),
                                       ipOf(3, 1), "10.3.0.250"));
}

TEST_F(ShowSlicesTest, CollectingAgainTakesAChangedMac) {
  rows(2, 1);
  auto const sm = command({.maxRunTime = 3});
  EXPECT_EQ(sm->runSlice(), SliceResult::Again);
  host.rewrite("v102", ipOf(2, 0).c_str(), "02:00:00:00:00:99");
  EXPECT_EQ(sm->runSlice(), SliceResult::Completed);
  EXPECT_EQ(received, kHeader + line("v101", ipOf(1, 0), macOf(1, 0)) +
                          line("v102", ipOf(2, 0), "02:00:00:00:00:99") + "\n");
}

TEST_F(ShowSlicesTest, AfterANaturalEndCollectionStartsAgainAtTheLastBookmark) {
  rows(2, 2);
  auto const order = walkOrder();
  auto const sm = command({.maxRunTime = 3});
  EXPECT_EQ(sm->runSlice(), SliceResult::Again);
  ASSERT_EQ(sm->bookmarkMatch(), order[3]);
  sm->maxRunTimeIs(2);
  EXPECT_EQ(sm->runSlice(), SliceResult::Again);  // the last record, v101
  EXPECT_EQ(sm->bookmarkMatch(), order[3]);
  EXPECT_FALSE(sm->matchSpecIterDone());
  Kiv::U64 const readings = clock->readings;
  sm->maxRunTimeIs(1e9);
  EXPECT_EQ(sm->runSlice(), SliceResult::Completed);
  EXPECT_EQ(clock->readings - readings, 3u + 1u + 1u);
  EXPECT_EQ(addresses().size(), 4u);
}

TEST_F(ShowSlicesTest, PrintingResumesAtTheFirstGreaterVrfWhenItsOwnIsGone) {
  rows(4, 1);
  auto const sm = command({.cliTesting = true});
  for (int i = 0; i < 4 + 1; ++i) ASSERT_EQ(sm->runSlice(), SliceResult::Again);
  ASSERT_EQ(sm->bookmarkVrf(), "v102");
  sm->sortedVrfIpToMacDel(L3::VrfName("v102"));
  run(sm);
  EXPECT_THAT(addresses(), ElementsAre(ipOf(1, 0), ipOf(3, 0), ipOf(4, 0)));
}

TEST_F(ShowSlicesTest, PrintingEndsWhenNoVrfIsLeftAfterTheBookmark) {
  rows(2, 1);
  auto const sm = command({.cliTesting = true});
  for (int i = 0; i < 2 + 1; ++i) ASSERT_EQ(sm->runSlice(), SliceResult::Again);
  sm->sortedVrfIpToMacDelAll();
  EXPECT_EQ(sm->runSlice(), SliceResult::Completed);
  EXPECT_EQ(received, kHeader + line("v101", ipOf(1, 0), macOf(1, 0)) + "\n");
}

TEST_F(ShowSlicesTest, ABookmarkTooLongForAVrfNameIsARangeError) {
  rows(1, 1);
  auto const sm = command();
  printerIs(sm);
  sm->prettyoutPrinter()->renderer().start();
  sm->prettyoutPrinter()->renderer().startDict("vrfs");
  sm->continuationIs(true);
  sm->bookmarkVrfIs(Kiv::String(std::string(101, 'v')));
  try {
    sm->handleAsyncCommand(7, 0);
    FAIL() << "no exception";
  } catch (Kiv::RangeException const& e) {
    EXPECT_STREQ(e.what(), "VrfName::value::bytes > VrfName::maxLength not allowed");
  }
  sm->bookmarkVrfIs(Kiv::String(std::string(100, 'v')));
  sm->handleAsyncCommand(7, 0);
  EXPECT_TRUE(sm->executionCompleted());
}

TEST_F(ShowSlicesTest, AVrfsNameIsReadAgainInEachSlice) {
  rows(1, 2);
  auto const order = walkOrder();
  auto const sm = command({.cliTesting = true});
  ASSERT_EQ(sm->runSlice(), SliceResult::Again);
  host.l3Status->vrfNameIs(Pex::VrfId(1), L3::VrfName("renamed"));
  run(sm);
  std::string expected = kHeader;
  for (size_t at : {1u, 0u}) {  // "renamed" comes before "v101"
    std::string const address = textOf(order[at].ipAddr);
    expected +=
        line(at == 1 ? "renamed" : "v101", address, macOf(1, address == ipOf(1, 0) ? 0 : 1));
  }
  EXPECT_EQ(received, expected + "\n");
}

TEST_F(ShowSlicesTest, ABookmarkHoldsANameWithZeroBytesWhole) {
  std::string const zero(1, '\0');
  unsigned id = 0;
  for (std::string const& name : {std::string("a"), "a" + zero, "a" + zero + "b", zero + "c"}) {
    ++id;
    host.l3Status->vrfIs(L3::VrfName(name), Pex::VrfId(id));
    host.port(intfOf(id).c_str(), 100 + id, id);
    host.address(id, ipOf(id, 0).c_str(), intfOf(id).c_str());
  }
  std::string const unsliced = shown();
  EXPECT_EQ(addresses().size(), 4u);
  std::string const json = shown({.format = 1});
  EXPECT_EQ(shown({.cliTesting = true}), unsliced);
  EXPECT_EQ(shown({.cliTesting = true, .format = 1}), json);
}

TEST_F(ShowSlicesTest, TheOutputIsFlushedBeforeTheCommandIsCompleted) {
  rows(1, 1);
  bool flushed = false;
  Kiv::Ptr<Sm> sm;
  auto const asked =
      Kiv::make<::Agent::AgentCommandRequest const>(7u, 0u, [&](std::string_view text) {
        received += text;
        EXPECT_FALSE(sm->executionCompleted());
        flushed = true;
        return text.size();
      });
  sm = BfnMacRewrite::showMacRewriteCommandRequestSmFactory(
      "show", asked, 1e9, clock, host.agent->overlaySrcMacRewriteManager(), false, L3::VrfName(),
      false, Ovra::IpAddr(), false, Ovra::EthAddr(), false);
  sm->prettyoutPrinterIs(
      Kiv::make<prettyout::Printer>(prettyout::Format::Text, size_t{65'536}, asked->sink()));
  sm->handleAsyncCommand(7, 0);
  EXPECT_TRUE(flushed);
  EXPECT_TRUE(sm->executionCompleted());
  EXPECT_EQ(addresses().size(), 1u);
}

// Rows come, go, return and change their MACs between the slices.
TEST_F(ShowSlicesTest, RowsThatStayAreShownOnceWhateverComesAndGoes) {
  constexpr unsigned kPerVrf = 40;
  rows(3, kPerVrf);
  auto const seed = static_cast<unsigned>(::testing::UnitTest::GetInstance()->random_seed());
  std::mt19937 random(seed);
  auto const pick = [&random](unsigned below) { return static_cast<unsigned>(random() % below); };
  SCOPED_TRACE("seed " + std::to_string(seed));
  for (int round = 0; round < 20; ++round) {
    bool const cliTesting = round % 2 == 0;
    std::map<std::string, bool> stayed;
    for (Key const& key : walkOrder()) stayed[textOf(key.ipAddr)] = true;
    auto const atStart = stayed;
    auto const sm =
        command({.cliTesting = cliTesting, .maxRunTime = static_cast<double>(pick(30) + 1)});
    std::map<std::string, bool> existed = stayed;
    unsigned slices = 0;
    run(sm, [&] {
      if (++slices > 400) return;
      unsigned const id = pick(3) + 1;
      unsigned const n = pick(kPerVrf + 60);
      std::string const address = ipOf(id, n);
      if (pick(2) == 0) {
        host.addressDel(id, address.c_str());
        stayed[address] = false;
      } else {
        row(vrfOf(id), id, address, macOf(id, pick(1000)));
        existed[address] = true;
      }
    });
    std::vector<std::string> found = addresses();
    std::ranges::sort(found);
    EXPECT_EQ(std::ranges::adjacent_find(found), found.end());
    for (auto const& [address, stays] : stayed) {
      if (!stays || !atStart.contains(address)) continue;
      EXPECT_TRUE(std::ranges::binary_search(found, address)) << address;
    }
    for (std::string const& address : found) EXPECT_TRUE(existed.contains(address)) << address;
  }
}

}  // namespace
