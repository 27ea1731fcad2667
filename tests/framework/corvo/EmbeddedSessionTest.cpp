// SPDX-License-Identifier: Apache-2.0
#include "framework/corvo/EmbeddedSession.h"

#include <functional>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <stdexcept>
#include <string>

#include "framework/core/AllocTrack.h"
#include "framework/corvo/Exceptions.h"
#include "tests/framework/corvo/TestTypes.h"
#include "tests/support/Watcher.h"

namespace {

using BfnTest::Changes;
using BfnTest::kL3StatusType;
using BfnTest::kRouteStatusType;
using BfnTest::Log;
using Corvo::Mount;
using Corvo::MountException;
using Corvo::MountRequest;
using Corvo::ReadOnlyException;
using L3::VrfName;
using Pex::L3Status;
using Pex::VrfId;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::ThrowsMessage;

class EmbeddedSessionTest : public ::testing::Test {
 protected:
  Kiv::U64 const liveBefore = Kiv::AllocTrackTypeInfo::liveObjects();
  Kiv::Ptr<Corvo::Database> database = Kiv::makeActive<Corvo::Database>();
  Kiv::Ptr<Corvo::Session> writer = session();
  Kiv::Ptr<Corvo::Session> reader = session();
  Log log;

  void TearDown() override {
    writer.reset();
    reader.reset();
    database.reset();
    EXPECT_EQ(Kiv::AllocTrackTypeInfo::liveObjects(), liveBefore);
  }
  Kiv::Ptr<Corvo::Session> session() { return Corvo::embeddedSessionFactory(database); }
  static Mount mountOf(char const* path, char const* mode, char const* type = kL3StatusType) {
    Mount mount(path, type, mode);
    mount.handleFlags(mode);
    return mount;
  }
  static Kiv::Ptr<MountRequest> mount(Kiv::Ptr<Corvo::Session> const& who, char const* mode,
                                      char const* path = "vrfs", char const* type = kL3StatusType) {
    auto const request = who->mountRequest();
    request->doMount(mountOf(path, mode, type));
    request->close();
    return request;
  }
  static Kiv::Ptr<L3Status> vrfs(Kiv::Ptr<Corvo::Session> const& who) {
    return Kiv::ptrCast<L3Status>(who->getEntity("vrfs"));
  }
  Kiv::Ptr<Changes> watch(Kiv::Ptr<Kiv::PtrInterface> const& object, char const* name) {
    return Kiv::makeActive<Changes>(object, name, log);
  }
};

TEST_F(EmbeddedSessionTest, NothingIsThereThatIsNotMounted) {
  mount(writer, "w");
  EXPECT_FALSE(reader->getEntity("vrfs"));
  EXPECT_FALSE(writer->getEntity("vrf"));
}

TEST_F(EmbeddedSessionTest, AMountForWritingMakesTheEntity) {
  auto const request = writer->mountRequest();
  request->doMount(mountOf("vrfs", "w"));
  EXPECT_TRUE(vrfs(writer));
  EXPECT_FALSE(request->mounted());
  request->close();
  EXPECT_TRUE(request->mounted());
}

TEST_F(EmbeddedSessionTest, ARequestWithoutMountsIsMountedOnceClosed) {
  auto const request = writer->mountRequest();
  EXPECT_FALSE(request->mounted());
  request->close();
  request->close();
  EXPECT_TRUE(request->mounted());
}

TEST_F(EmbeddedSessionTest, AMountForReadingIsCompleteAtOnceAlsoWithoutItsEntity) {
  auto const request = reader->mountRequest();
  auto const watcher = watch(request, "request");
  request->doMount(mountOf("vrfs", "r"));
  EXPECT_FALSE(request->mounted());
  request->close();
  EXPECT_TRUE(request->mounted());
  EXPECT_THAT(log, ElementsAre("request mounted"));
  EXPECT_FALSE(reader->getEntity("vrfs"));
  EXPECT_FALSE(database->entity("vrfs"));
}

TEST_F(EmbeddedSessionTest, AnEntityThatComesLaterIsAnnouncedToItsReaders) {
  mount(reader, "r");
  auto const watcher = watch(reader, "reader");
  mount(writer, "w", "others");
  EXPECT_THAT(log, IsEmpty());
  mount(writer, "w");
  EXPECT_TRUE(vrfs(reader));
  EXPECT_EQ(log.size(), 1u);
}

TEST_F(EmbeddedSessionTest, AHandlerMayLetGoOfTheRequestAndItsSessionWhileItMounts) {
  auto request = writer->mountRequest();
  auto& raw = *request;
  auto const watcher = Kiv::makeActive<BfnTest::Watcher>(database);
  watcher->then = [&] {
    request.reset();
    writer.reset();
  };
  raw.doMount(mountOf("vrfs", "w"));
  EXPECT_FALSE(request);
  EXPECT_TRUE(database->entity("vrfs"));
}

TEST_F(EmbeddedSessionTest, AMountOutlivesItsRequest) {
  mount(reader, "r");
  auto const watcher = watch(reader, "session");
  mount(writer, "w");
  EXPECT_TRUE(vrfs(reader));
  EXPECT_EQ(log.size(), 1u);
}

TEST_F(EmbeddedSessionTest, AWriteReachesEveryOtherMountBeforeTheMutatorReturns) {
  auto const secondWriter = session();
  auto const secondReader = session();
  mount(reader, "r");
  mount(writer, "w");
  mount(secondWriter, "w");
  mount(secondReader, "r");
  auto const w1 = watch(vrfs(writer), "writer");
  auto const w2 = watch(vrfs(secondWriter), "second writer");
  auto const r1 = watch(vrfs(reader), "reader");
  auto const r2 = watch(vrfs(secondReader), "second reader");
  vrfs(writer)->vrfNameIs(VrfId(7), VrfName("red"));
  EXPECT_EQ(vrfs(reader)->vrfName(VrfId(7)), VrfName("red"));
  EXPECT_EQ(vrfs(secondReader)->vrfName(VrfId(7)), VrfName("red"));
  EXPECT_EQ(vrfs(secondWriter)->vrfName(VrfId(7)), VrfName("red"));
  EXPECT_THAT(log, ::testing::UnorderedElementsAre("writer vrfName", "second writer vrfName",
                                                   "reader vrfName", "second reader vrfName"));
  vrfs(secondWriter)->vrfNameDel(VrfId(7));
  EXPECT_EQ(vrfs(reader)->vrfName().size(), 0u);
  EXPECT_EQ(vrfs(writer)->vrfName().size(), 0u);
  EXPECT_EQ(log.size(), 8u);
}

TEST_F(EmbeddedSessionTest, WhatWasWrittenBeforeIsThereWhenItIsMounted) {
  mount(writer, "w");
  vrfs(writer)->vrfIs(VrfName("red"), VrfId(7));
  writer.reset();
  mount(reader, "r");
  EXPECT_EQ(vrfs(reader)->vrfName(VrfId(7)), VrfName("red"));
}

TEST_F(EmbeddedSessionTest, AReaderCannotWriteAndItsAttemptDoesNotNotify) {
  mount(writer, "w");
  vrfs(writer)->vrfNameIs(VrfId(7), VrfName("red"));
  auto const other = session();
  mount(reader, "r");
  mount(other, "r");
  auto const w = watch(vrfs(writer), "writer");
  auto const r = watch(vrfs(reader), "reader");
  auto const o = watch(vrfs(other), "other");
  EXPECT_THAT([&] { vrfs(reader)->vrfNameIs(VrfId(7), VrfName("blue")); },
              ThrowsMessage<ReadOnlyException>(HasSubstr("\"vrfs\" is mounted for reading")));
  EXPECT_THROW(vrfs(reader)->vrfNameDel(VrfId(7)), ReadOnlyException);
  for (auto const& who : {writer, reader, other}) {
    EXPECT_EQ(vrfs(who)->vrfName(VrfId(7)), VrfName("red"));
  }
  EXPECT_THAT(log, IsEmpty());
}

TEST_F(EmbeddedSessionTest, AReaderCannotWriteThroughTheGenericInterfaceEither) {
  mount(writer, "w");
  mount(reader, "r");
  Kiv::GenericValue const arguments[] = {"'red'", "7"};
  EXPECT_THROW(reader->getEntity("vrfs")->genericIfAttributeOp(Kiv::GenericOp::Set, "vrfNameToId",
                                                               arguments),
               ReadOnlyException);
  EXPECT_EQ(vrfs(reader)->vrfNameToId().size(), 0u);
  writer->getEntity("vrfs")->genericIfAttributeOp(Kiv::GenericOp::Set, "vrfNameToId", arguments);
  EXPECT_EQ(*vrfs(reader)->vrfNameToId(VrfName("red")), VrfId(7));
}

TEST_F(EmbeddedSessionTest, AnUnmountedReaderKeepsItsEntityForItself) {
  mount(reader, "r");
  mount(writer, "w");
  auto const kept = vrfs(reader);
  auto const watcher = watch(reader, "session");
  reader->unmount("vrfs");
  reader->unmount("vrfs");
  EXPECT_EQ(log.size(), 1u);
  EXPECT_FALSE(reader->getEntity("vrfs"));
  vrfs(writer)->vrfNameIs(VrfId(7), VrfName("red"));
  EXPECT_EQ(kept->vrfName().size(), 0u);
  kept->vrfNameIs(VrfId(8), VrfName("blue"));
  EXPECT_EQ(vrfs(writer)->vrfName().size(), 1u);
}

TEST_F(EmbeddedSessionTest, AMountWithoutItsEntityCanBeGivenUp) {
  mount(reader, "r");
  auto const watcher = watch(reader, "session");
  reader->unmount("vrfs");
  mount(writer, "w");
  EXPECT_FALSE(reader->getEntity("vrfs"));
  EXPECT_THAT(log, IsEmpty());
}

TEST_F(EmbeddedSessionTest, AnUnmountedEntityStaysInTheDatabase) {
  mount(writer, "w");
  vrfs(writer)->vrfNameIs(VrfId(7), VrfName("red"));
  writer->unmount("vrfs");
  EXPECT_FALSE(writer->getEntity("vrfs"));
  mount(writer, "w");
  EXPECT_EQ(vrfs(writer)->vrfName(VrfId(7)), VrfName("red"));
}

TEST_F(EmbeddedSessionTest, MountingTwiceGivesTheSameEntity) {
  mount(writer, "w");
  mount(reader, "r");
  auto const first = vrfs(reader);
  auto const watcher = watch(reader, "session");
  auto const again = mount(reader, "r");
  EXPECT_TRUE(again->mounted());
  EXPECT_EQ(vrfs(reader), first);
  auto const writersWatcher = watch(writer, "writer");
  mount(writer, "w");
  mount(writer, "r");
  EXPECT_THAT(log, IsEmpty());
}

TEST_F(EmbeddedSessionTest, WritingAddedToReadingGivesTheDatabasesOwnObject) {
  mount(writer, "w");
  mount(reader, "r");
  auto const replica = vrfs(reader);
  mount(reader, "w");
  EXPECT_EQ(vrfs(reader), vrfs(writer));
  mount(reader, "r");
  EXPECT_EQ(vrfs(reader), vrfs(writer));
  vrfs(reader)->vrfNameIs(VrfId(7), VrfName("red"));
  EXPECT_EQ(replica->vrfName(VrfId(7)), VrfName("red"));
}

TEST_F(EmbeddedSessionTest, AReadersTypeSettlesNothing) {
  mount(reader, "r", "vrfs", kRouteStatusType);
  mount(writer, "w");
  EXPECT_TRUE(vrfs(writer));
  EXPECT_FALSE(reader->getEntity("vrfs"));
}

TEST_F(EmbeddedSessionTest, OfAnotherTypeThanTheEntityAMountGivesNullAndTheRequestCompletes) {
  mount(writer, "w");
  for (char const* const mode : {"r", "w"}) {
    SCOPED_TRACE(mode);
    auto const other = session();
    auto const request = other->mountRequest();
    request->doMount(mountOf("vrfs", mode, kRouteStatusType));
    request->doMount(mountOf("others", "w"));
    request->close();
    EXPECT_TRUE(request->mounted());
    EXPECT_FALSE(other->getEntity("vrfs"));
    EXPECT_TRUE(other->getEntity("others"));
  }
  EXPECT_EQ(database->typeName("vrfs"), kL3StatusType);
}

TEST_F(EmbeddedSessionTest, AMountWithoutItsEntityTakesTheTypeOfTheNextOne) {
  mount(writer, "w");
  mount(reader, "w", "vrfs", kRouteStatusType);
  EXPECT_FALSE(reader->getEntity("vrfs"));
  mount(reader, "r");
  ASSERT_TRUE(vrfs(reader));
  EXPECT_NE(vrfs(reader), vrfs(writer));
}

TEST_F(EmbeddedSessionTest, AMountOfAnotherTypeLeavesWhatIsMounted) {
  mount(writer, "w");
  mount(reader, "r");
  auto const replica = vrfs(reader);
  mount(reader, "w", "vrfs", kRouteStatusType);
  EXPECT_EQ(vrfs(reader), replica);
  mount(reader, "r");
  EXPECT_EQ(vrfs(reader), replica);
}

TEST_F(EmbeddedSessionTest, WhatCanNeverBeMountedIsRefusedAtOnce) {
  auto const request = reader->mountRequest();
  EXPECT_THAT([&] { request->doMount(Mount("a", kL3StatusType, "r")); },
              ThrowsMessage<MountException>(HasSubstr("neither to read nor to write")));
  EXPECT_THAT(
      [&] {
        request->doMount(
            Mount("a", kL3StatusType, "r", Corvo::AllMountFlags(1), Corvo::MountFilter(true)));
      },
      ThrowsMessage<MountException>(HasSubstr("a filter is not supported")));
  EXPECT_THAT([&] { request->doMount(mountOf("a", "r", "X::Y")); },
              ThrowsMessage<MountException>(HasSubstr("unknown type X::Y")));
  request->close();
  EXPECT_TRUE(request->mounted());
  EXPECT_THAT([&] { request->doMount(mountOf("a", "r")); },
              ThrowsMessage<MountException>(HasSubstr("the request is closed")));
}

TEST_F(EmbeddedSessionTest, AReplicaEndsWithItsSession) {
  mount(writer, "w");
  mount(reader, "r");
  auto const kept = vrfs(reader);
  reader.reset();
  vrfs(writer)->vrfNameIs(VrfId(7), VrfName("red"));
  EXPECT_EQ(kept->vrfName().size(), 0u);
}

// A handler's exception.
struct Thrown : std::runtime_error {
  using std::runtime_error::runtime_error;
};
std::function<void()> throwing(char const* what) {
  return [what] { throw Thrown(what); };
}

TEST_F(EmbeddedSessionTest, EveryCopyGetsAChangeThoughTheHandlersOfOthersThrow) {
  auto const third = session();
  for (auto const& who : {reader, writer, third}) mount(who, who == writer ? "w" : "r");
  auto const first = watch(vrfs(reader), "first");
  auto const second = watch(vrfs(third), "second");
  first->action = throwing("first");
  second->action = throwing("second");
  EXPECT_THAT([&] { vrfs(writer)->vrfNameIs(VrfId(7), VrfName("red")); },
              ThrowsMessage<Thrown>("first"));
  EXPECT_THAT(log, ElementsAre("first vrfName", "second vrfName"));
  for (auto const& who : {reader, writer, third}) {
    EXPECT_EQ(vrfs(who)->vrfName(VrfId(7)), VrfName("red"));
  }
}

TEST_F(EmbeddedSessionTest, ACopyGetsAChangeThoughAHandlerOfTheWriterThrows) {
  mount(writer, "w");
  auto const own = watch(vrfs(writer), "writer");
  mount(reader, "r");
  own->action = throwing("writer");
  EXPECT_THROW(vrfs(writer)->vrfNameIs(VrfId(7), VrfName("red")), Thrown);
  EXPECT_EQ(vrfs(reader)->vrfName(VrfId(7)), VrfName("red"));
}

TEST_F(EmbeddedSessionTest, AMembersChangeReachesEveryCopyThoughAHandlerThrows) {
  auto const third = session();
  mount(writer, "w", "routes", kRouteStatusType);
  mount(reader, "r", "routes", kRouteStatusType);
  mount(third, "r", "routes", kRouteStatusType);
  using Routing::Hardware::RouteStatus;
  auto const routes = [](Kiv::Ptr<Corvo::Session> const& who) {
    return Kiv::ptrCast<RouteStatus>(who->getEntity("routes"));
  };
  routes(writer)->vrfStatusIs(VrfName("red"));
  Kiv::Ptr<Routing::Hardware::VrfStatus> const copy(routes(reader)->vrfStatus(VrfName("red")));
  auto const watcher = watch(copy, "copy");
  watcher->action = throwing("copy");
  EXPECT_THROW(routes(writer)->vrfStatus(VrfName("red"))->fwdVlanIdIs(300), Thrown);
  EXPECT_EQ(routes(reader)->vrfStatus(VrfName("red"))->fwdVlanId(), 300u);
  EXPECT_EQ(routes(third)->vrfStatus(VrfName("red"))->fwdVlanId(), 300u);
}

TEST_F(EmbeddedSessionTest, AnAnnouncementIsCompleteThoughAHandlerThrows) {
  auto const third = session();
  auto const watcher = watch(reader, "reader");
  watcher->action = throwing("reader");
  auto const ofDatabase = watch(database, "database");
  ofDatabase->action = throwing("database");
  mount(reader, "r");
  mount(third, "r");
  auto const request = writer->mountRequest();
  EXPECT_THAT([&] { request->doMount(mountOf("vrfs", "w")); }, ThrowsMessage<Thrown>("reader"));
  EXPECT_TRUE(vrfs(writer));
  EXPECT_TRUE(vrfs(reader));
  EXPECT_TRUE(vrfs(third));
  EXPECT_EQ(log, (Log{"reader 130", "database 130"}));
  request->doMount(mountOf("vrfs", "w"));
  request->close();
  EXPECT_TRUE(request->mounted());
  EXPECT_EQ(log.size(), 2u);
}

TEST_F(EmbeddedSessionTest, ASessionMayGoWhileAnEntityIsAnnounced) {
  auto third = session();
  mount(reader, "r");
  mount(third, "r");
  auto const watcher = watch(reader, "reader");
  watcher->action = [&] { third.reset(); };
  mount(writer, "w");
  EXPECT_TRUE(vrfs(reader));
  EXPECT_FALSE(third);
}

TEST_F(EmbeddedSessionTest, AReaderMayComeAndAnotherGoWhileAChangeIsPassedOn) {
  auto third = session();
  auto const late = session();
  mount(writer, "w");
  mount(reader, "r");
  mount(third, "r");
  auto const kept = vrfs(third);
  auto const watcher = watch(vrfs(reader), "reader");
  watcher->action = [&] {
    third->unmount("vrfs");
    mount(late, "r");
  };
  vrfs(writer)->vrfNameIs(VrfId(7), VrfName("red"));
  EXPECT_EQ(kept->vrfName().size(), 0u);
  EXPECT_EQ(vrfs(late)->vrfName(VrfId(7)), VrfName("red"));
  watcher->action = nullptr;
  vrfs(writer)->vrfNameIs(VrfId(7), VrfName("blue"));
  EXPECT_EQ(vrfs(late)->vrfName(VrfId(7)), VrfName("blue"));
}

TEST_F(EmbeddedSessionTest, EverySessionNotifiesOfTheDatabasesConnection) {
  mount(writer, "w");
  auto const first = watch(reader, "reader");
  auto const second = watch(writer, "writer");
  EXPECT_TRUE(reader->connected());
  database->connectedIs(false);
  EXPECT_FALSE(reader->connected());
  EXPECT_FALSE(writer->connected());
  EXPECT_TRUE(vrfs(writer));
  database->connectedIs(true);
  EXPECT_TRUE(reader->connected());
  EXPECT_THAT(log, ElementsAre("writer 131", "reader 131", "writer 131", "reader 131"));
}

}  // namespace
