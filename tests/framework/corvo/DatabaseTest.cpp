// SPDX-License-Identifier: Apache-2.0
#include "framework/corvo/Database.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "framework/corvo/Exceptions.h"
#include "framework/corvo/Replica.h"
#include "tests/framework/corvo/TestTypes.h"

namespace {

using BfnTest::kL3StatusType;
using BfnTest::kRouteStatusType;
using Corvo::Database;
using Corvo::MountException;
using ::testing::ElementsAre;
using ::testing::StrEq;
using ::testing::ThrowsMessage;

TEST(Database, HasNothingAtAPathThatWasNeverMade) {
  auto const database = Kiv::makeActive<Database>();
  EXPECT_FALSE(database->entity("a"));
  EXPECT_EQ(database->typeName("a"), "");
}

TEST(Database, AnEntityIsMadeOnceWithNotificationOnAndAnnounced) {
  auto const database = Kiv::makeActive<Database>();
  BfnTest::Log log;
  auto const watcher = Kiv::makeActive<BfnTest::Changes>(database, "database", log);
  auto const made = database->entityIs("a", kL3StatusType);
  ASSERT_TRUE(Kiv::ptrCast<Pex::L3Status>(made));
  EXPECT_TRUE(made->hasNotificationActive());
  EXPECT_EQ(database->entityIs("a", kL3StatusType), made);
  EXPECT_EQ(database->entity("a"), made);
  EXPECT_THAT(log, ElementsAre("database 130"));
}

TEST(Database, PathsAreTakenAsTheyAre) {
  auto const database = Kiv::makeActive<Database>();
  auto const made = database->entityIs("a/b", kL3StatusType);
  EXPECT_FALSE(database->entity("a"));
  EXPECT_FALSE(database->entity("a/b/"));
  EXPECT_NE(database->entityIs("a", kL3StatusType), made);
}

TEST(Database, AnotherTypeAtAPathIsRefusedByName) {
  auto const database = Kiv::makeActive<Database>();
  database->entityIs("a", kL3StatusType);
  EXPECT_THAT(
      [&] { database->entityIs("a", kRouteStatusType); },
      ThrowsMessage<MountException>(StrEq("cannot mount \"a\": it is of type Pex::L3Status, not "
                                          "Routing::Hardware::RouteStatus")));
}

TEST(Database, WhatItCannotMakeIsRefusedAndSettlesNothing) {
  auto const database = Kiv::makeActive<Database>();
  EXPECT_THAT([&] { database->entityIs("a", "X::Y"); },
              ThrowsMessage<MountException>(StrEq("cannot mount \"a\": unknown type X::Y")));
  EXPECT_THAT(
      [&] { database->entityIs("a", BfnTest::kUnmakeableType); },
      ThrowsMessage<MountException>(StrEq("cannot mount \"a\": Routing::Hardware::VrfStatus "
                                          "cannot be constructed by name")));
  EXPECT_THAT([&] { database->entityIs("a", BfnTest::kNoEntityType); },
              ThrowsMessage<MountException>(
                  StrEq("cannot mount \"a\": BfnTest::NoEntity is not the type of an entity")));
  EXPECT_THAT([&] { database->entityIs("", kL3StatusType); },
              ThrowsMessage<MountException>(StrEq("cannot mount \"\": the path is empty")));
  EXPECT_EQ(database->typeName("a"), "");
  EXPECT_TRUE(database->entityIs("a", kL3StatusType));
}

TEST(Database, ARecordThatIsNoEntityIsHeldAndReachedAsAnObjectOnly) {
  auto const database = Kiv::makeActive<Database>();
  auto const made = Database::makeObject("a", BfnTest::kNoEntityType);
  database->objectIs("a", made);
  EXPECT_EQ(database->object("a"), made);
  EXPECT_EQ(database->typeName("a"), BfnTest::kNoEntityType);
  EXPECT_EQ(database->publisher("a")->original(), made);
  EXPECT_FALSE(database->entity("a"));
  EXPECT_THAT([&] { database->entityIs("a", BfnTest::kNoEntityType); },
              ThrowsMessage<MountException>(
                  StrEq("cannot mount \"a\": BfnTest::NoEntity is not the type of an entity")));
}

TEST(Database, MakesEveryRecordThatAHostPublishes) {
  auto const database = Kiv::makeActive<Database>();
  for (char const* const type : {"Pex::L3Status", "BfnL3::L3RoutingStatus",
                                 "Routing::Hardware::RouteStatus", "BfnSystem::SystemStatus"}) {
    EXPECT_EQ(database->entityIs(type, type)->fwkType().name(), type);
  }
}

TEST(Database, ConnectionIsThereFromTheStartAndNotifiesOfRealChanges) {
  auto const database = Kiv::makeActive<Database>();
  BfnTest::Log log;
  auto const watcher = Kiv::makeActive<BfnTest::Changes>(database, "database", log);
  EXPECT_TRUE(database->connected());
  database->connectedIs(true);
  EXPECT_TRUE(log.empty());
  database->connectedIs(false);
  EXPECT_FALSE(database->connected());
  EXPECT_THAT(log, ElementsAre("database 131"));
}

}  // namespace
