// SPDX-License-Identifier: Apache-2.0
#include "host/store/StoreUrl.h"

#include <cstdlib>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "framework/core/Exceptions.h"
#include "host/store/OpenStore.h"
#include "tests/host/store/Places.h"

namespace {

using Host::readStoreSecret;
using Host::StoreRefused;
using Host::StoreUrl;
using ::testing::HasSubstr;
using ::testing::ThrowsMessage;

TEST(StoreUrl, NamesEachKindOfStore) {
  EXPECT_EQ(StoreUrl("memory").kind, StoreUrl::Kind::Memory);
  EXPECT_EQ(StoreUrl("sqlite:/var/lib/x.db").kind, StoreUrl::Kind::Sqlite);
  EXPECT_EQ(StoreUrl("sqlite:/var/lib/x.db").path, "/var/lib/x.db");
  StoreUrl const plain("redis://db.example");
  EXPECT_EQ(plain.kind, StoreUrl::Kind::Redis);
  EXPECT_EQ(plain.host, "db.example");
  EXPECT_EQ(plain.port, 6379);
  EXPECT_EQ(plain.database, 0u);
  StoreUrl const full("redis://[::1]:7000/12");
  EXPECT_EQ(full.host, "::1");
  EXPECT_EQ(full.port, 7000);
  EXPECT_EQ(full.database, 12u);
  EXPECT_EQ(full.text, "redis://[::1]:7000/12");
  EXPECT_EQ(StoreUrl("redis://[fe80::1]").host, "fe80::1");
  EXPECT_EQ(StoreUrl("redis://h/1").database, 1u);
  StoreUrl const socket("redis+unix:///run/redis.sock");
  EXPECT_EQ(socket.kind, StoreUrl::Kind::Redis);
  EXPECT_EQ(socket.path, "/run/redis.sock");
  EXPECT_EQ(socket.host, "");
  EXPECT_EQ(StoreUrl("redis+unix:///run/redis.sock?db=3").database, 3u);
}

TEST(StoreUrl, WhatIsNoneIsRefusedWithTheReason) {
  std::vector<std::pair<char const*, char const*>> const cases{
      {"", "memory, sqlite:FILE, redis://HOST[:PORT][/DB] or redis+unix://PATH expected"},
      {"memory:", "expected"},
      {"sqlite:", "the file is missing"},
      {"redis://", "the host is missing"},
      {"redis://:7000", "the host is missing"},
      {"redis://h:", "a port is a number"},
      {"redis://h:0", "a port is a number"},
      {"redis://h:65536", "a port is a number"},
      {"redis://h:7x", "a port is a number"},
      {"redis://h/", "a database is a number"},
      {"redis://h/x", "a database is a number"},
      {"redis://h/-1", "a database is a number"},
      {"redis://[::1", "\"]\" is missing"},
      {"redis://[::1]7", "expected after \"]\""},
      {"redis://me:secret@h", "user and secret do not belong into a URL"},
      {"redis+unix://run/redis.sock", "an absolute path expected"},
      {"redis+unix:///s?db=", "a database is a number"},
      {"http://h", "expected"},
  };
  for (auto const& [text, why] : cases) {
    SCOPED_TRACE(text);
    std::string const url = text;
    EXPECT_THAT([&url] { (void)StoreUrl(url); },
                ThrowsMessage<Kiv::RangeException>(
                    ::testing::AllOf(HasSubstr("store \"" + url + "\": "), HasSubstr(why))));
  }
}

TEST(OpenStore, OpensWhatThisBuildHasAndSaysWhatItHasNot) {
  BfnTest::TemporaryDirectory const directory;
  EXPECT_EQ(openStore(StoreUrl("memory"))->name(), "memory");
  for (std::string const& text :
       {"sqlite:" + directory.file("store"), std::string("redis://localhost:1")}) {
    StoreUrl const url(text);
    if (Host::hasStore(url.kind)) {
      EXPECT_EQ(openStore(url)->name(), text);
    } else {
      EXPECT_THAT([&] { openStore(url); },
                  ThrowsMessage<StoreRefused>(HasSubstr("this build has no such stores")));
    }
  }
}

TEST(StoreSecret, IsTheFileWithoutItsLineEnd) {
  BfnTest::TemporaryDirectory const directory;
  std::ofstream(directory.file("secret")) << "a b\n";
  EXPECT_EQ(readStoreSecret(directory.file("secret")), "a b");
  ::setenv("CREDENTIALS_DIRECTORY", directory.file("").c_str(), 1);
  EXPECT_EQ(readStoreSecret("secret"), "a b");
  EXPECT_THAT([&] { readStoreSecret("other"); },
              ThrowsMessage<StoreRefused>(HasSubstr("No such file")));
  ::unsetenv("CREDENTIALS_DIRECTORY");
  EXPECT_THAT([&] { readStoreSecret("secret"); },
              ThrowsMessage<StoreRefused>(HasSubstr("CREDENTIALS_DIRECTORY is not set")));
  std::ofstream(directory.file("empty")) << "\n";
  EXPECT_THAT([&] { readStoreSecret(directory.file("empty")); },
              ThrowsMessage<StoreRefused>(HasSubstr("it is empty")));
}

}  // namespace
