// SPDX-License-Identifier: Apache-2.0
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <optional>
#include <string>
#include <unistd.h>
#include <vector>
#include <zlib.h>

#include "host/packets/CaptureReader.h"
#include "host/packets/CaptureWriter.h"
#include "tests/host/packets/Samples.h"

namespace {

using namespace Host::Packets;
using BfnTest::Buffer;
using BfnTest::counting;
using BfnTest::fileBytes;
using BfnTest::fileIs;
using BfnTest::hex;
using testing::AllOf;
using testing::HasSubstr;

// A pcap header: little-endian, microseconds, version 2.4, snap length 262144, Ethernet.
Buffer const kHeader = hex("d4c3b2a1 0200 0400 00000000 00000000 00000400 01000000");
Buffer const kNanosecondHeader = hex("4d3cb2a1 0200 0400 00000000 00000000 00000400 01000000");
// 1700000000.123456, 4 bytes of 60.
Buffer const kRecord = hex("00f15365 40e20100 04000000 3c000000 deadbeef");

class CaptureTest : public testing::Test {
 protected:
  std::string failureOf(Buffer const& bytes) {
    fileIs(path, bytes);
    try {
      CaptureReader reader(path);
      while (reader.next()) ++frames;
    } catch (CaptureError const& error) {
      return error.what();
    }
    return "no failure";
  }

  BfnTest::Folder folder;
  std::filesystem::path const path = folder / "some.pcap";
  int frames = 0;
};

// kHeader and kRecord as gzip compresses them.
Buffer compressed(Buffer const& bytes) {
  Buffer packed(bytes.size() + 100);
  z_stream stream{};
  constexpr int kGzip = 15 + 16;
  EXPECT_EQ(deflateInit2(&stream, Z_BEST_SPEED, Z_DEFLATED, kGzip, 8, Z_DEFAULT_STRATEGY), Z_OK);
  stream.next_in = const_cast<Kiv::U8*>(bytes.data());
  stream.avail_in = static_cast<unsigned>(bytes.size());
  stream.next_out = packed.data();
  stream.avail_out = static_cast<unsigned>(packed.size());
  EXPECT_EQ(deflate(&stream, Z_FINISH), Z_STREAM_END);
  packed.resize(stream.total_out);
  deflateEnd(&stream);
  return packed;
}

TEST_F(CaptureTest, ReadsACompressedFileAsWhatItWas) {
  fileIs(path, compressed(BfnTest::joined({kHeader, kRecord, kRecord})));
  CaptureReader reader(path);
  EXPECT_EQ(reader.timeUnit(), TimeUnit::Microseconds);
  auto const frame = reader.next();
  ASSERT_TRUE(frame);
  EXPECT_EQ(Buffer(frame->bytes.begin(), frame->bytes.end()), hex("deadbeef"));
  EXPECT_TRUE(reader.next());
  EXPECT_FALSE(reader.next());
}

TEST_F(CaptureTest, ACompressedFileThatIsCutOrBrokenIsRefused) {
  Buffer whole = compressed(BfnTest::joined({kHeader, kRecord}));
  for (size_t size = 4; size < whole.size(); ++size) {
    EXPECT_NE(failureOf(Buffer(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(size))),
              "no failure")
        << size;
  }
  whole[whole.size() - 8] ^= 1;  // of the checksum
  EXPECT_THAT(failureOf(whole), HasSubstr("expected a whole gzip file"));
  EXPECT_THAT(failureOf(compressed(hex("0102"))), HasSubstr("ends before its header"));
}

TEST_F(CaptureTest, ReadsARecordFromTheBytesOfAFile) {
  fileIs(path, BfnTest::joined({kHeader, kRecord}));
  CaptureReader reader(path);
  EXPECT_EQ(reader.timeUnit(), TimeUnit::Microseconds);
  auto const frame = reader.next();
  ASSERT_TRUE(frame);
  EXPECT_EQ(frame->time, (Timestamp{1'700'000'000, 123'456'000}));
  EXPECT_EQ(Buffer(frame->bytes.begin(), frame->bytes.end()), hex("deadbeef"));
  EXPECT_EQ(frame->wireLength, 60u);
  EXPECT_FALSE(reader.next());
  EXPECT_FALSE(reader.next()) << "and stays at its end";
  EXPECT_EQ(reader.frames(), 1u);
}

TEST_F(CaptureTest, ReadsAFileOfTheOtherByteOrder) {
  fileIs(path, hex("a1b2c3d4 0002 0004 00000000 00000000 00040000 00000001"
                   "6553f100 0001e240 00000001 00000001 77"));
  CaptureReader reader(path);
  EXPECT_EQ(reader.timeUnit(), TimeUnit::Microseconds);
  EXPECT_EQ(reader.next()->time, (Timestamp{1'700'000'000, 123'456'000}));
}

TEST_F(CaptureTest, KeepsNanoseconds) {
  fileIs(path, BfnTest::joined({kNanosecondHeader, hex("00f15365 ffc99a3b 01000000 01000000 77")}));
  CaptureReader reader(path);
  EXPECT_EQ(reader.timeUnit(), TimeUnit::Nanoseconds);
  EXPECT_EQ(reader.next()->time, (Timestamp{1'700'000'000, 999'999'999}));
}

TEST_F(CaptureTest, WritesTheBytesOfAFile) {
  CaptureWriter writer(path);
  Buffer const bytes = hex("deadbeef");
  writer.write({{1'700'000'000, 123'456'789}, bytes, 60});
  writer.close();
  EXPECT_EQ(fileBytes(path), BfnTest::joined({kHeader, kRecord}));
  EXPECT_EQ(writer.frames(), 1u);
}

TEST_F(CaptureTest, ReadsWhatItWroteInBothUnits) {
  for (TimeUnit const unit : {TimeUnit::Microseconds, TimeUnit::Nanoseconds}) {
    std::vector<Timestamp> const times{
        {0, 0}, {1, 999'999'000}, {0x7fff'ffff, 1'000}, {0xffff'ffff, 5'000}};
    {
      CaptureWriter writer(path, unit);
      for (size_t i = 0; i < times.size(); ++i) {
        Buffer const bytes = counting(i * 20'000);
        writer.write({times[i], bytes, bytes.size() + i});
      }
    }
    CaptureReader reader(path);
    EXPECT_EQ(reader.timeUnit(), unit);
    for (size_t i = 0; i < times.size(); ++i) {
      auto const frame = reader.next();
      ASSERT_TRUE(frame) << i;
      EXPECT_EQ(frame->time, times[i]);
      EXPECT_EQ(Buffer(frame->bytes.begin(), frame->bytes.end()), counting(i * 20'000));
      EXPECT_EQ(frame->wireLength, i * 20'001);
    }
    EXPECT_FALSE(reader.next());
  }
}

TEST_F(CaptureTest, CanBeReadUpToTheLastFlushWhileItIsWritten) {
  CaptureWriter writer(path);
  Buffer const bytes = counting(60);
  writer.write({{1, 0}, bytes, 60});
  writer.flush();
  CaptureReader reader(path);
  EXPECT_TRUE(reader.next());
  EXPECT_FALSE(reader.next());
}

TEST_F(CaptureTest, SaysThatAFileIsMissing) {
  try {
    CaptureReader reader(path);
    FAIL() << "opened";
  } catch (CaptureError const& error) {
    EXPECT_EQ(error.what(), path.string() +
                                ": expected a capture file that can be read: "
                                "No such file or directory");
  }
}

TEST_F(CaptureTest, SaysThatAFileIsNoCapture) {
  EXPECT_EQ(failureOf({}), path.string() + ": expected a capture file, ends before its header");
  EXPECT_THAT(failureOf(hex("d4c3b2a1 0200")),
              HasSubstr("expected a capture file (pcap or pcapng)"));
  EXPECT_THAT(failureOf(hex("23212f62696e2f7368")),
              HasSubstr("expected a capture file (pcap or pcapng): unknown file format"));
  EXPECT_THROW(CaptureReader(path.parent_path()), CaptureError);
}

TEST_F(CaptureTest, RefusesAnotherLinkType) {
  Buffer header = kHeader;
  header[20] = 113;
  EXPECT_EQ(failureOf(header), path.string() +
                                   ": expected Ethernet frames (link type EN10MB), "
                                   "has link type LINUX_SLL");
}

TEST_F(CaptureTest, GivesEveryFrameBeforeTheOneInWhichAFileEnds) {
  Buffer const whole = BfnTest::joined({kHeader, kRecord, kRecord});
  for (size_t size = whole.size() - kRecord.size() + 1; size < whole.size(); ++size) {
    frames = 0;
    EXPECT_THAT(failureOf(Buffer(whole.begin(), whole.begin() + std::ptrdiff_t(size))),
                HasSubstr("expected a whole record 2: truncated dump file"));
    EXPECT_EQ(frames, 1) << size;
  }
}

TEST_F(CaptureTest, RefusesARecordThatMakesNoSense) {
  EXPECT_THAT(failureOf(BfnTest::joined({kHeader, hex("00f15365 40e20100 ffffffff 3c000000")})),
              HasSubstr("expected a whole record 1: "));
  EXPECT_THAT(failureOf(BfnTest::joined({kHeader, hex("00f15365 40420f00 01000000 01000000 77")})),
              HasSubstr("expected a time stamp with less than a second after its seconds in "
                        "record 1"));
}

TEST_F(CaptureTest, RefusesToWriteWhatAFileCannotHold) {
  CaptureWriter writer(path);
  Buffer const bytes = counting(60);
  Buffer const large(kMaxSnapLength + 1);
  EXPECT_THROW(writer.write({{0x1'0000'0000, 0}, bytes, 60}), CaptureError);
  EXPECT_THROW(writer.write({{1, 1'000'000'000}, bytes, 60}), CaptureError);
  EXPECT_THROW(writer.write({{1, 0}, bytes, 59}), CaptureError);
  EXPECT_THROW(writer.write({{1, 0}, large, large.size()}), CaptureError);
  writer.close();
  EXPECT_EQ(fileBytes(path), kHeader);
}

TEST_F(CaptureTest, SaysThatAFileCannotBeWritten) {
  try {
    CaptureWriter writer(folder / "none" / "some.pcap");
    FAIL() << "opened";
  } catch (CaptureError const& error) {
    EXPECT_THAT(error.what(), HasSubstr("expected a file that can be written: No such file"));
  }
}

TEST_F(CaptureTest, SaysThatTheDiskIsFull) {
  if (access("/dev/full", W_OK) != 0) GTEST_SKIP() << "no /dev/full here";
  CaptureWriter writer("/dev/full");
  Buffer const bytes = counting(60);
  writer.write({{1, 0}, bytes, 60});
  EXPECT_THROW(writer.flush(), CaptureError);
}

}  // namespace
