// SPDX-License-Identifier: Apache-2.0
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "framework/platform/BfTableException.h"
#include "tests/show/ShowTest.h"

// What is shown, and in which form.
namespace {

using BfnTest::ip;
using BfnTest::mac;
using BfnTest::ShowOptions;
using nlohmann::json;

using ShowOutputTest = BfnTest::ShowTest;

constexpr Kiv::U32 kJson = 1;

TEST_F(ShowOutputTest, AnEmptyTableIsAHeaderAndABlankLine) {
  EXPECT_EQ(shown(),
            "\n"
            "VRF name        Source IP            Source MAC          \n"
            "------------------------------------------------------------\n"
            "\n");
  EXPECT_EQ(shown({.format = kJson}), "{\"vrfs\":{}}\n");
}

TEST_F(ShowOutputTest, AnEmptyTableTakesOneSliceAlsoWithCliTesting) {
  EXPECT_EQ(run(command({.cliTesting = true})), 1u);
  EXPECT_EQ(received, std::string(kHeader) + "\n");
}

TEST_F(ShowOutputTest, LinesAreGroupedByVrfAndAscendByAddress) {
  blueAndRed();
  EXPECT_EQ(shown(),
            "\n"
            "VRF name        Source IP            Source MAC          \n"
            "------------------------------------------------------------\n"
            "blue            10.0.0.1             02:00:00:00:02:01   \n"
            "blue            10.0.0.2             02:00:00:00:02:02   \n"
            "red             10.0.0.1             02:00:00:00:01:01   \n"
            "red             10.0.0.2             02:00:00:00:01:02   \n"
            "\n");
}

TEST_F(ShowOutputTest, AddressesAscendNumerically) {
  vrf("red", 1);
  for (char const* text : {"10.0.0.10", "9.255.0.1", "10.0.0.2", "200.0.0.1", "0.0.0.0"})
    row("red", 1, text, "02:00:00:00:00:01");
  std::string expected = kHeader;
  for (char const* text : {"0.0.0.0", "9.255.0.1", "10.0.0.2", "10.0.0.10", "200.0.0.1"})
    expected += line("red", text, "02:00:00:00:00:01");
  EXPECT_EQ(shown(), expected + "\n");
}

// More interfaces than are remembered at a time: each row is in the VRF of its own one.
TEST_F(ShowOutputTest, EachRowIsInTheVrfOfItsInterfaceHoweverManyThereAre) {
  constexpr unsigned kInterfaces = 3000;
  char const* const vrfs[] = {"blue", "red"};
  host.vrf("blue", 1);
  host.vrf("red", 2);
  std::string expected[2];
  for (unsigned n = 0; n < kInterfaces; ++n) {
    unsigned const side = n / 2 % 2;
    std::string const text = Ovra::IpAddr(0x0a000000 + n).valueToStrep().charPtr();
    host.port(intfOf(n).c_str(), 100, side + 1);
    host.address(side + 1, text.c_str(), intfOf(n).c_str());
    expected[side] += line(vrfs[side], text, "00:00:00:00:00:00");
  }
  EXPECT_EQ(shown(), kHeader + expected[0] + expected[1] + "\n");
}

TEST_F(ShowOutputTest, ALineOfShortValuesHas57CharactersWithItsTrailingBlanks) {
  vrf("red", 1);
  row("red", 1, "255.255.255.255", "ff:ff:ff:ff:ff:ff");
  std::string const text = shown();
  size_t const begin = std::string(kHeader).size();
  EXPECT_EQ(text.find('\n', begin) - begin, 57u);
}

TEST_F(ShowOutputTest, ALongVrfNameIsNotCutAndMovesItsLine) {
  std::string const longName(100, 'v');
  vrf("exactly15bytes_", 1);
  vrf("sixteen_bytes_16", 2);
  vrf(longName, 3);
  for (unsigned id = 1; id <= 3; ++id) host.address(id, "10.0.0.1", intfOf(id).c_str());
  EXPECT_EQ(shown(),
            kHeader +
                std::string("exactly15bytes_ 10.0.0.1             00:00:00:00:00:00   \n"
                            "sixteen_bytes_16 10.0.0.1             00:00:00:00:00:00   \n") +
                longName + " 10.0.0.1             00:00:00:00:00:00   \n\n");
}

TEST_F(ShowOutputTest, TheStructuredFormNestsVrfsAddressesAndAttributes) {
  blueAndRed();
  std::string const text = shown({.format = kJson});
  EXPECT_EQ(text, R"({"vrfs":{"blue":{"addresses":{)"
                  R"("10.0.0.1":{"vrfName":"blue","sip":"10.0.0.1","smac":"02:00:00:00:02:01"},)"
                  R"("10.0.0.2":{"vrfName":"blue","sip":"10.0.0.2","smac":"02:00:00:00:02:02"}}},)"
                  R"("red":{"addresses":{)"
                  R"("10.0.0.1":{"vrfName":"red","sip":"10.0.0.1","smac":"02:00:00:00:01:01"},)"
                  R"("10.0.0.2":{"vrfName":"red","sip":"10.0.0.2","smac":"02:00:00:00:01:02"}}}}})"
                  "\n");
  EXPECT_EQ(json::parse(text)["vrfs"]["red"]["addresses"]["10.0.0.2"]["smac"], "02:00:00:00:01:02");
}

TEST_F(ShowOutputTest, TheStructuredFormIsValidWhateverBytesAVrfNameHolds) {
  std::vector<std::string> const names{
      "say \"hi\"", "back\\slash",       "line\nend\ttab\x01\x1f\x7f",
      "},{",        "\xc3\xa9t\xc3\xa9", "\xff\xfe"};
  for (unsigned id = 1; id <= names.size(); ++id) {
    vrf(names[id - 1], id);
    row(names[id - 1], id, "10.0.0." + std::to_string(id), "02:00:00:00:00:01");
  }
  json const parsed = json::parse(shown({.format = kJson}));
  ASSERT_EQ(parsed["vrfs"].size(), names.size());
  for (unsigned id = 1; id < names.size(); ++id) {
    std::string const& name = names[id - 1];
    std::string const sip = "10.0.0." + std::to_string(id);
    json const expected{{"vrfName", name}, {"sip", sip}, {"smac", "02:00:00:00:00:01"}};
    EXPECT_EQ(parsed["vrfs"][name]["addresses"][sip], expected) << name;
  }
  // A byte that is no UTF-8 is the code point U+10FF00 + byte.
  EXPECT_TRUE(parsed["vrfs"].contains("\xf4\x8f\xbf\xbf\xf4\x8f\xbf\xbe"));
}

TEST_F(ShowOutputTest, NamesThatDifferAreKeysThatDifferWhateverBytesTheyHold) {
  std::vector<std::string> const names{"\xff", "\xc3\xbf", "\xef\xbf\xbd", "\xf4\x8f\xbf\xbf"};
  for (unsigned id = 1; id <= names.size(); ++id) {
    vrf(names[id - 1], id);
    row(names[id - 1], id, "10.0.0.1", "02:00:00:00:00:01");
  }
  EXPECT_EQ(json::parse(shown({.format = kJson}))["vrfs"].size(), names.size());
}

TEST_F(ShowOutputTest, TheMacIsTheOneInTheChip) {
  vrf("red", 1);
  row("red", 1, "10.0.0.1", "02:00:00:00:00:01");
  auto const rows = host.chip.rows();
  ASSERT_EQ(rows.size(), 1u);
  BfnDriver::TableAddress address;
  address.table = BfnChip::ChipModel::kRewriteTable;
  BfnChip::ActionBytes const action{0x33, 0x22, 0x11, 0, 0x66, 0x55, 0x44, 0};
  ASSERT_EQ(host.chip.write(*host.chip.open(address), rows[0].key, action),
            BfnDriver::WriteResult::Ok);
  EXPECT_EQ(shown(), kHeader + line("red", "10.0.0.1", "11:22:33:44:55:66") + "\n");
}

TEST_F(ShowOutputTest, ARowWithoutConfiguredMacIsShownWithTheZeroMac) {
  vrf("red", 1);
  host.address(1, "10.0.0.1", "Ethernet1");
  EXPECT_EQ(shown(), kHeader + line("red", "10.0.0.1", "00:00:00:00:00:00") + "\n");
}

TEST_F(ShowOutputTest, TheVrfIsThatOfTheInterfaceAndNamelessIdsComeFirst) {
  vrf("red", 1);
  row("red", 1, "10.0.0.1", "02:00:00:00:00:01");
  host.port("Ethernet9", 109, 9);
  host.address(9, "10.0.0.9", "Ethernet9");
  EXPECT_EQ(shown(), kHeader + line("", "10.0.0.9", "00:00:00:00:00:00") +
                         line("red", "10.0.0.1", "02:00:00:00:00:01") + "\n");
  EXPECT_EQ(shown({.cliTesting = true}), shown());
}

TEST_F(ShowOutputTest, ARecordWhoseSharedEntryIsGoneIsSkipped) {
  vrf("red", 1);
  vrf("blue", 2);
  host.port("Ethernet3", 102, 1);  // in red, on blue's VLAN
  host.address(1, "10.0.0.1", "Ethernet3");
  host.address(2, "10.0.0.1", "Ethernet2");
  EXPECT_EQ(shown(), kHeader + line("blue", "10.0.0.1", "00:00:00:00:00:00") +
                         line("red", "10.0.0.1", "00:00:00:00:00:00") + "\n");
  host.addressDel(1, "10.0.0.1");
  ASSERT_EQ(walkOrder().size(), 1u);
  EXPECT_EQ(shown(), std::string(kHeader) + "\n");
}

TEST_F(ShowOutputTest, ARecordWhoseSharedEntryIsGoneIsFollowedByALook) {
  vrf("blue", 2);
  host.port("Ethernet3", 102, 1);
  host.address(1, "10.0.0.1", "Ethernet3");
  host.address(2, "10.0.0.1", "Ethernet2");
  host.addressDel(1, "10.0.0.1");
  auto const sm = command();
  printerIs(sm);
  EXPECT_EQ(looksOfSlice(sm), 1u);
  EXPECT_EQ(run(command({.cliTesting = true})), 2u);
}

TEST_F(ShowOutputTest, TwoInterfacesOfOneVrfWithOneAddressAreOneLine) {
  vrf("red", 1);
  host.port("Ethernet3", 103, 1);
  host.address(1, "10.0.0.1", "Ethernet1");
  host.address(4, "10.0.0.1", "Ethernet3");
  ASSERT_EQ(walkOrder().size(), 2u);
  EXPECT_EQ(shown(), kHeader + line("red", "10.0.0.1", "00:00:00:00:00:00") + "\n");
}

TEST_F(ShowOutputTest, OfTwoMacsOfOneAddressTheLaterRecordsIsShown) {
  vrf("red", 1);
  host.port("Ethernet3", 103, 1);
  host.address(1, "10.0.0.1", "Ethernet1");
  host.address(4, "10.0.0.1", "Ethernet3");
  std::vector<Key> const order = walkOrder();
  ASSERT_EQ(order.size(), 2u);
  manager().updateEntry(order[0].intfId, ip("10.0.0.1"), mac("02:00:00:00:00:01"));
  manager().updateEntry(order[1].intfId, ip("10.0.0.1"), mac("02:00:00:00:00:02"));
  EXPECT_EQ(shown(), kHeader + line("red", "10.0.0.1", "02:00:00:00:00:02") + "\n");
  manager().updateEntry(order[1].intfId, ip("10.0.0.1"), mac("02:00:00:00:00:03"));
  manager().updateEntry(order[0].intfId, ip("10.0.0.1"), mac("02:00:00:00:00:04"));
  EXPECT_EQ(shown(), kHeader + line("red", "10.0.0.1", "02:00:00:00:00:03") + "\n");
}

TEST_F(ShowOutputTest, ManyRowsAreSortedByVrfAndAddress) {
  constexpr unsigned kRows = 20'000;
  char const* const vrfs[] = {"blue", "green", "red"};
  for (unsigned v = 0; v < 3; ++v) vrf(vrfs[v], v + 1);
  std::string expected = kHeader;
  for (unsigned v = 0; v < 3; ++v) {
    for (unsigned n = v; n < kRows; n += 3) {
      std::string const ipText = Ovra::IpAddr(0x0a000000u + n).valueToStrep().stdString();
      std::string const macText =
          Ovra::ethAddrFromOuiStation(0x020000u, n).valueToStrep().stdString();
      row(vrfs[v], v + 1, ipText, macText);
      expected += line(vrfs[v], ipText, macText);
    }
  }
  expected += "\n";
  EXPECT_EQ(shown(), expected);
}

// The filters: which of the three are given, and with values that match all, some or nothing.
TEST_F(ShowOutputTest, FiltersKeepWhatTheirTableSays) {
  struct Row {
    std::string vrf, ip, mac;
  };
  std::vector<Row> const rows{{"blue", "10.0.0.1", "02:00:00:00:00:01"},
                              {"blue", "10.0.0.2", "02:00:00:00:00:02"},
                              {"blue", "10.0.0.3", "02:00:00:00:00:01"},
                              {"red", "10.0.0.1", "02:00:00:00:00:02"},
                              {"red", "10.0.0.2", "02:00:00:00:00:01"}};
  vrf("red", 1);
  vrf("blue", 2);
  for (Row const& each : rows) row(each.vrf, each.vrf == "red" ? 1 : 2, each.ip, each.mac);

  unsigned combinations = 0;
  unsigned lines = 0;
  for (char const* vrfFilter : {static_cast<char const*>(nullptr), "blue", "green"}) {
    for (char const* ipFilter : {static_cast<char const*>(nullptr), "10.0.0.2", "10.0.0.9"}) {
      for (char const* macFilter :
           {static_cast<char const*>(nullptr), "02:00:00:00:00:01", "02:00:00:00:00:09"}) {
        std::string expected = kHeader;
        for (Row const& each : rows) {
          bool kept = true;
          if (vrfFilter != nullptr) kept = kept && each.vrf == vrfFilter;
          if (ipFilter != nullptr) kept = kept && each.ip == ipFilter;
          if (macFilter != nullptr && vrfFilter == nullptr && ipFilter == nullptr)
            kept = each.mac == macFilter;
          if (!kept) continue;
          expected += line(each.vrf, each.ip, each.mac);
          ++lines;
        }
        expected += "\n";
        for (bool const cliTesting : {false, true}) {
          EXPECT_EQ(
              shown(
                  {.vrf = vrfFilter, .sip = ipFilter, .smac = macFilter, .cliTesting = cliTesting}),
              expected)
              << (vrfFilter ? vrfFilter : "any VRF") << ' ' << (ipFilter ? ipFilter : "any IP")
              << ' ' << (macFilter ? macFilter : "any MAC");
        }
        ++combinations;
      }
    }
  }
  EXPECT_EQ(combinations, 27u);
  EXPECT_EQ(lines, 26u);
}

TEST_F(ShowOutputTest, AFilterForTheZeroMacShowsRowsWithoutConfiguredMac) {
  blueAndRed();
  host.address(1, "10.0.0.3", "Ethernet1");
  EXPECT_EQ(shown({.smac = "00:00:00:00:00:00"}),
            kHeader + line("red", "10.0.0.3", "00:00:00:00:00:00") + "\n");
}

TEST_F(ShowOutputTest, AnEntryIsPrintedInBothForms) {
  std::string const expected[] = {
      "red             1.22.133.4           0a:0b:cd:ef:90:01   \n",
      R"({"addresses":{"1.22.133.4":{"vrfName":"red","sip":"1.22.133.4",)"
      R"("smac":"0a:0b:cd:ef:90:01"}}})"
      "\n"};
  for (Kiv::U32 const format : {0u, kJson}) {
    auto const sm = command({.format = format});
    sm->prettyoutPrinterIs(Kiv::make<prettyout::Printer>(static_cast<prettyout::Format>(format),
                                                         size_t{65'536}, request()->sink()));
    auto& renderer = sm->prettyoutPrinter()->renderer();
    renderer.start();
    renderer.startDict("addresses");
    sm->printEntry(L3::VrfName("red"), ip("1.22.133.4"), mac("0a:0B:cd:EF:90:01"));
    renderer.endDict();
    renderer.end();
    renderer.ioflush();
    EXPECT_EQ(received, expected[format]);
  }
}

// A row that the chip cannot read is not taken for one that is absent.
TEST_F(ShowOutputTest, ARowThatCannotBeReadEndsTheCommandWithAnException) {
  blueAndRed();
  using Kind = BfnChip::Fault::Kind;
  for (Kind const kind : {Kind::Error, Kind::Exception}) {
    host.chip.readFaults().failNth(3, {kind, nullptr});
    auto const sm = command();
    try {
      sm->runSlice();
      ADD_FAILURE() << "no exception";
    } catch (BfTable::BfTableException const& exception) {
      EXPECT_STREQ(exception.what(), "the table overlaySrcMacRewrite could not be read");
    }
    EXPECT_TRUE(sm->aborted());
    EXPECT_EQ(sm->runSlice(), ::Agent::SliceResult::Aborted);
    EXPECT_EQ(shown(), blueAndRedText()) << "the agent still runs";
  }
}

class ShowWithoutTableTest : public BfnTest::ShowTest {
 protected:
  void SetUp() override {}
  void expectEmptyListing() {
    for (bool const cliTesting : {false, true}) {
      EXPECT_EQ(run(command({.cliTesting = cliTesting})), 1u);
      EXPECT_EQ(received, std::string(kHeader) + "\n");
      EXPECT_EQ(shown({.cliTesting = cliTesting, .format = kJson}), "{\"vrfs\":{}}\n");
    }
    EXPECT_EQ(shown({.vrf = "red", .sip = "10.0.0.1"}), std::string(kHeader) + "\n");
  }
};

TEST_F(ShowWithoutTableTest, AChipWithoutTheTableShowsNothing) {
  host.systemStatus->profileInfoIs(BfnTest::PluginHost::kProfile)->chipCapabilitiesIs({false, 0});
  host.bringUp();
  ASSERT_FALSE(manager().overlaySrcMacRewriteTable());
  expectEmptyListing();
}

TEST_F(ShowWithoutTableTest, ATableThatWaitsForInitialisationShowsNothing) {
  host.createAgent();
  host.l3Shared->bfnL3Output()->initMacRewriteTablesIs(true);
  ASSERT_EQ(manager().pendingTableCount(), 1u);
  expectEmptyListing();
}

TEST_F(ShowWithoutTableTest, AfterAProfileChangeNothingIsShownUntilTheNewTableIsInitialised) {
  host.bringUp();
  blueAndRed();
  auto const output = host.l3Shared->bfnL3Output();
  auto const other = host.profileData->profileDataEntryIs("other");
  host.systemStatus->profileInfoIs("other")->chipCapabilitiesIs({true, 100});
  output->profileNameIs("other");
  output->profileEntryIs(other);
  output->initMacRewriteTablesIs(!output->initMacRewriteTables());
  ASSERT_FALSE(manager().overlaySrcMacRewriteTable());
  expectEmptyListing();
}

TEST_F(ShowWithoutTableTest, ARecordWithoutATableIsNotRead) {
  host.createAgent();
  host.l3Shared->bfnL3Output()->initMacRewriteTablesIs(true);
  manager().matchSpecAndRefCountIs({ip("10.0.0.1"), Ovra::IntfId("Ethernet1"), false});
  expectEmptyListing();
}

}  // namespace
