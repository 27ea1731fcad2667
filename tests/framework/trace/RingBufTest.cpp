// SPDX-License-Identifier: Apache-2.0
#include "framework/trace/RingBuf.h"

#include <algorithm>
#include <deque>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <map>
#include <random>
#include <string>
#include <vector>

#include "framework/core/AddressSanitizer.h"
#include "framework/trace/ArgTraits.h"
#include "framework/trace/Decode.h"

namespace {

using Kiv::U32;
using Kiv::U64;
using Ringlog::ArgTraits;
using Ringlog::MsgDesc;
using Ringlog::RecordLayout;
using Ringlog::RingBuf;
using ::testing::AllOf;
using ::testing::ElementsAre;
using ::testing::HasSubstr;

/// A small ring, and a statement that writes any number of texts to it.
class Ring {
 public:
  static constexpr size_t kWords = RingBuf::kMinWords;
  static constexpr size_t kMaxTexts = 8;

  Ring() : words_(kWords), ring_(words_) {}

  RingBuf& buf() { return ring_; }
  std::vector<U64>& words() { return words_; }

  U32 write(std::vector<std::string> const& texts) { return write(texts, wordsOf(texts)); }
  U32 write(std::vector<std::string> const& texts, U32 maxWords) {
    auto const& statement = statements()[texts.size()];
    Ringlog::EventScope const event(time_ += 1000);  // so that a seed gives the same bytes again
    Ringlog::Message message = ring_.startMsg(file(), statement.id, maxWords);
    for (std::string const& text : texts) ArgTraits<std::string>::put(message, text);
    ring_.endMsg(message);
    return ring_.written() - 1;
  }

  /// What such a record reads as.
  static std::string lineOf(std::vector<std::string> const& texts) {
    std::string line = "void write(): ";
    for (std::string const& text : texts) line += "<" + text + ">";
    return line;
  }
  static U32 wordsOf(std::vector<std::string> const& texts) {
    size_t words = 3;
    for (std::string const& text : texts) words += 1 + (text.size() + 7) / 8;
    return static_cast<U32>(words);
  }

  static Ringlog::TraceFile& file() {
    static auto& file = Ringlog::TraceFile::create("RingBufTest");
    return file;
  }

  struct Described {
    Ringlog::MsgId id = 0;
    MsgDesc* desc = nullptr;
  };
  static std::vector<Described>& statements() {
    static auto& made = *new std::vector<Described>(kMaxTexts + 1);
    for (size_t texts = 0; made.back().desc == nullptr; ++texts) {
      Described& it = made[texts];
      it.desc = new MsgDesc(file(), &it.id, "ring.cpp", static_cast<U32>(texts));
      it.desc->statementIs({9, "ring.cpp", static_cast<U32>(texts), "write", "void write()"});
      for (size_t i = 0; i < texts; ++i) *it.desc << "<" << &ArgTraits<std::string>::render << ">";
      it.desc->enter();
    }
    return made;
  }

 private:
  std::vector<U64> words_;
  RingBuf ring_;
  U64 time_ = 0x00000a6312c3129f;
};

std::vector<std::string> texts(RingBuf const& ring) {
  std::vector<std::string> texts;
  for (auto const& record : Ringlog::decode(ring)) texts.push_back(record.text);
  return texts;
}

std::vector<std::string> randomTexts(std::mt19937& random) {
  std::vector<std::string> made(random() % (Ring::kMaxTexts + 1));
  for (std::string& text : made) {
    bool const isLong = random() % 4 == 0;
    text.resize(random() % (isLong ? 201 : 20));
    for (char& c : text) c = static_cast<char>('a' + random() % 26);
  }
  return made;
}

TEST(RingBuf, IsEmptyAtFirst) {
  Ring ring;
  EXPECT_TRUE(Ringlog::decode(ring.buf()).empty());
}

TEST(RingBuf, GivesRecordsBackInOrder) {
  Ring ring;
  ring.write({"a"});
  ring.write({});
  ring.write({"b", "c"});
  EXPECT_THAT(texts(ring.buf()),
              ElementsAre("void write(): <a>", "void write(): ", "void write(): <b><c>"));
}

TEST(RingBuf, ForgetsWhatWasWrittenWhenCleared) {
  Ring ring;
  ring.write({"a"});
  ring.buf().clear();
  EXPECT_TRUE(Ringlog::decode(ring.buf()).empty());
  ring.write({"b"});
  EXPECT_THAT(texts(ring.buf()), ElementsAre("void write(): <b>"));
}

TEST(RingBuf, LeavesNoRecordOfAMessageThatIsNotEnded) {
  Ring ring;
  ring.write({"a"});
  {
    Ringlog::Message message = ring.buf().startMsg(Ring::file(), Ring::statements()[2].id, 20);
    ArgTraits<std::string>::put(message, "half");
    EXPECT_THAT(texts(ring.buf()), ElementsAre("void write(): <a>"));
  }
  ring.write({"b"});
  EXPECT_THAT(texts(ring.buf()), ElementsAre("void write(): <a>", "void write(): <b>"));
  EXPECT_EQ(ring.buf().written(), 2U);
}

/// How many records the ring finds in a text that contains one, made for exactly the place where
/// the text is stored in a ring that starts at 0, once what is before it has been overwritten.
size_t forgedRecordsFound(U64 start) {
  Ring ring;
  ring.buf().startIs(start);
  constexpr U32 kSequence = 123456789;
  constexpr U64 kPosition = RecordLayout::kHeaderWords + 1 + 8;
  constexpr U64 kTime = 1000;
  U64 const identity = RecordLayout::pack(
      {kSequence, RecordLayout::kHeaderWords, Ring::file().number(), Ring::statements()[0].id});
  U64 const forged[] = {RecordLayout::mix(RecordLayout::start(kPosition, kTime), identity), kTime,
                        identity};
  std::string text(8 * sizeof(U64), 'x');
  text.append(reinterpret_cast<char const*>(forged), sizeof forged);
  U64 const first = ring.buf().head();
  ring.write({text});
  while (ring.buf().head() <= first + Ring::kWords) ring.write({"filler"});
  EXPECT_LE(ring.buf().head(), first + Ring::kWords + kPosition);
  auto const records = Ringlog::decode(ring.buf());
  EXPECT_GT(records.size(), Ring::kWords / 8);
  return static_cast<size_t>(std::count_if(
      records.begin(), records.end(), [](auto const& it) { return it.sequence == kSequence; }));
}

TEST(RingBuf, TakesNoTextForARecordUnlessTheTextKnowsItsStart) {
  EXPECT_EQ(forgedRecordsFound(0), 1U) << "the forgery is a good one";
  EXPECT_EQ(forgedRecordsFound(0x5EC7'0F2B'93AD'4418), 0U);
  EXPECT_EQ(forgedRecordsFound(~U64{0}), 0U);
}

TEST(RingBuf, OfTheProcessStartsAtASecretPosition) {
  Ring::file();
  EXPECT_GT(Ringlog::defaultRinglogHandle.head(), U64{1} << 24);
}

// A message inside another is against the rules; it costs records, never wrong ones.
TEST(RingBuf, MisreadsNothingWhenAMessageStartsInsideAnother) {
  Ring ring;
  ring.write({"a"});
  Ringlog::Message outer = ring.buf().startMsg(Ring::file(), Ring::statements()[2].id, 20);
  ArgTraits<std::string>::put(outer, "outer one");
  ring.write({"inner"});
  ArgTraits<std::string>::put(outer, "outer two");
  ring.buf().endMsg(outer);
  for (std::string const& text : texts(ring.buf())) {
    EXPECT_THAT(text, ::testing::AnyOf("void write(): <a>", "void write(): <inner>",
                                       "void write(): <outer one><outer two>"));
  }
}

TEST(RingBuf, SkipsWhatAHalfWrittenRecordHasOverwritten) {
  Ring ring;
  std::deque<U32> sequences;
  while (ring.buf().head() < 3 * Ring::kWords - 100) ring.write({"some text to fill the ring"});
  auto const before = Ringlog::decode(ring.buf());
  U64 const head = ring.buf().head();
  Ringlog::Message message =
      ring.buf().startMsg(Ring::file(), Ring::statements()[2].id, RecordLayout::kHeaderWords + 52);
  ArgTraits<std::string>::put(message, std::string(200, 'h'));
  ASSERT_EQ(ring.buf().head(), head);
  auto const during = Ringlog::decode(ring.buf());
  // 29 words are touched, that is at most 5 records of 8 words.
  ASSERT_GE(during.size(), before.size() - 5);
  ASSERT_LT(during.size(), before.size());
  size_t const gone = before.size() - during.size();
  for (size_t i = 0; i < during.size(); ++i) {
    ASSERT_EQ(during[i].sequence, before[i + gone].sequence);
    ASSERT_EQ(during[i].text, before[i + gone].text);
  }
}

// What must be readable: every record whose first word is at most one round old.
TEST(RingBuf, KeepsEveryRecordOfTheLastRoundThroughManyRounds) {
  struct Written {
    U64 position;
    U32 sequence;
    std::string line;
  };
  U32 const seed = 20240501;
  SCOPED_TRACE(seed);
  std::mt19937 random(seed);
  Ring ring;
  std::deque<Written> model;
  U64 head = 0;
  for (int i = 0; i < 60000; ++i) {
    auto const record = randomTexts(random);
    U32 const words = Ring::wordsOf(record);
    U32 const atMost = words + static_cast<U32>(random() % 100);
    if (head % Ring::kWords + atMost > Ring::kWords) head += Ring::kWords - head % Ring::kWords;
    U32 const sequence = ring.write(record, atMost);
    model.push_back({head, sequence, Ring::lineOf(record)});
    head += words;
    ASSERT_EQ(ring.buf().head(), head);
    while (model.front().position + Ring::kWords < head) model.pop_front();
    if (random() % 16 != 0) continue;
    auto const records = Ringlog::decode(ring.buf());
    ASSERT_EQ(records.size(), model.size()) << "after record " << i;
    for (size_t k = 0; k < records.size(); ++k) {
      ASSERT_EQ(records[k].sequence, model[k].sequence);
      ASSERT_EQ(records[k].text, model[k].line);
    }
  }
  EXPECT_GT(head, 1000 * Ring::kWords);
}

/// A ring that has gone round several times, and what it holds.
class FullRing : public Ring {
 public:
  explicit FullRing(std::mt19937& random) {
    while (buf().head() < 5 * kWords + random() % kWords) {
      auto const record = randomTexts(random);
      lines_[write(record)] = lineOf(record);
    }
    pristine_ = words();
    for (U64 const position : Ringlog::wholeRecords(buf())) {
      U64 const identity = pristine_[position % kWords + 2];
      whole_[position] = RecordLayout::unpack(identity).words;
    }
  }

  void restore() { words() = pristine_; }

  /// Whether everything that still counts as a record is one that was written, unchanged.
  bool readsOnlyWhatWasWritten() {
    for (U64 const position : Ringlog::wholeRecords(buf())) {
      auto const was = whole_.find(position);
      if (was == whole_.end()) return false;
      auto const at = static_cast<std::ptrdiff_t>(position % kWords);
      if (!std::equal(words().begin() + at, words().begin() + at + was->second,
                      pristine_.begin() + at)) {
        return false;
      }
    }
    return true;
  }

  bool decodesOnlyWhatWasWritten() {
    auto const records = Ringlog::decode(buf());
    return std::all_of(records.begin(), records.end(), [this](Ringlog::Record const& record) {
      auto const line = lines_.find(record.sequence);
      return line != lines_.end() && line->second == record.text;
    });
  }

  char* bytes() { return reinterpret_cast<char*>(words().data()); }
  std::vector<U64> const& pristine() const { return pristine_; }
  size_t wholeRecordCount() const { return whole_.size(); }

 private:
  std::map<U32, std::string> lines_;
  std::vector<U64> pristine_;
  std::map<U64, U32> whole_;
};

/// Damages one place of the ring in one of many ways.
void damage(FullRing& ring, std::mt19937& random) {
  constexpr size_t kBytes = Ring::kWords * sizeof(U64);
  size_t const at = random() % kBytes;
  size_t const length = std::min(kBytes - at, size_t{1} + random() % 64);
  char* const bytes = ring.bytes();
  switch (random() % 6) {
    case 0:  // one bit
      bytes[at] = static_cast<char>(bytes[at] ^ (1 << random() % 8));
      break;
    case 1:  // two top bits, words apart
      ring.words()[at / 8] ^= U64{1} << 63;
      ring.words()[(at / 8 + 1 + length % 3) % Ring::kWords] ^= U64{1} << (random() % 64);
      break;
    case 2:  // noise
      for (size_t i = 0; i < length; ++i) bytes[at + i] = static_cast<char>(random());
      break;
    case 3:  // nothing
      std::memset(bytes + at, 0, length);
      break;
    case 4: {  // whole words of another place, headers included
      size_t const from = random() % Ring::kWords;
      size_t const count = std::min({length, Ring::kWords - from, Ring::kWords - at / 8});
      std::copy_n(ring.pristine().begin() + static_cast<std::ptrdiff_t>(from), count,
                  ring.words().begin() + static_cast<std::ptrdiff_t>(at / 8));
      break;
    }
    default: {  // two words change places
      std::swap(ring.words()[at / 8], ring.words()[(at / 8 + 1 + random() % 8) % Ring::kWords]);
      break;
    }
  }
}

TEST(RingBuf, MisreadsNothingInADamagedRing) {
#ifdef KIV_ADDRESS_SANITIZER
  constexpr int kTrials = 20'000;
#else
  constexpr int kTrials = 200'000;
#endif
  constexpr int kPlaces = 16;
  U32 const seed = 20240502;
  SCOPED_TRACE(seed);
  std::mt19937 random(seed);
  FullRing ring(random);
  ASSERT_GT(ring.wholeRecordCount(), 10U);
  ASSERT_TRUE(ring.decodesOnlyWhatWasWritten());
  for (int trial = 0; trial < kTrials; ++trial) {
    for (int place = 0; place < kPlaces; ++place) damage(ring, random);
    ASSERT_TRUE(ring.readsOnlyWhatWasWritten()) << "trial " << trial;
    if (trial % 500 == 0) {
      ASSERT_TRUE(ring.decodesOnlyWhatWasWritten()) << "trial " << trial;
    }
    ring.restore();
  }
}

// The check covers position and time so that an error in one cannot cancel an error in the other: a
// record of an earlier round, at the end of the buffer where this round did not fit, stays
// unreadable even if its time is off by just the rounds that lie between.
TEST(RingBuf, TakesNoLeftOverRecordForOneOfThisRound) {
  constexpr U64 kLast = 1020;
  Ring ring;
  while (ring.buf().head() <= kLast) ring.write({});
  while (ring.buf().head() < Ring::kWords + kLast) ring.write({});
  ring.write({}, RecordLayout::kMaxWords);  // goes to the next round: there may be too little room
  ASSERT_EQ(ring.buf().head(), 2 * Ring::kWords + 3);
  auto const positions = Ringlog::wholeRecords(ring.buf());
  ASSERT_THAT(positions, ::testing::Not(::testing::Contains(Ring::kWords + kLast)));
  U64 const time = ring.words()[kLast + 1];
  for (U64 const wrong : {time - Ring::kWords, time + Ring::kWords, time}) {
    ring.words()[kLast + 1] = wrong;
    EXPECT_EQ(Ringlog::wholeRecords(ring.buf()), positions);
  }
}

// As when the writer continues while the ring is being copied: the front is of a later moment than
// the rest, and the cut falls anywhere.
TEST(RingBuf, MisreadsNothingInATornCopy) {
  U32 const seed = 20240503;
  SCOPED_TRACE(seed);
  std::mt19937 random(seed);
  for (int round = 0; round < 300; ++round) {
    FullRing ring(random);
    // The same ring, some records later.
    std::vector<U64> const earlier = ring.words();
    std::vector<U64> later;
    {
      for (int i = 0; i < 20; ++i) ring.write(randomTexts(random));
      later = ring.words();
    }
    std::map<U32, std::string> whole;
    for (auto const& record : Ringlog::decode(ring.buf())) whole[record.sequence] = record.text;
    for (int cut = 0; cut < 20; ++cut) {
      size_t const at = random() % (Ring::kWords * sizeof(U64));
      ring.words() = earlier;
      std::memcpy(ring.bytes(), later.data(), at);
      for (auto const& record : Ringlog::decode(ring.buf())) {
        ASSERT_EQ(whole.count(record.sequence), 1U);
        ASSERT_EQ(whole[record.sequence], record.text);
      }
    }
  }
}

TEST(RingBuf, KeepsSequenceNumbersOverAGap) {
  Ring ring;
  for (int i = 0; i < 5; ++i) ring.write({std::to_string(i)});
  ring.words()[2 * 5 + 4] ^= 1;  // the third record, of five words each
  std::vector<U32> sequences;
  for (auto const& record : Ringlog::decode(ring.buf())) sequences.push_back(record.sequence);
  EXPECT_THAT(sequences, ElementsAre(0, 1, 3, 4));
  std::ostringstream printed;
  Ringlog::print(printed, ring.buf());
  EXPECT_THAT(printed.str(), HasSubstr("<1>\n(1 skipped)\n"));
}

TEST(RingBufDeathTest, RefusesASizeThatIsNoPowerOfTwoOrTooSmall) {
  std::vector<U64> words(RingBuf::kMinWords * 2);
  EXPECT_DEATH(RingBuf(std::span(words).first(RingBuf::kMinWords + 8)),
               AllOf(HasSubstr("the ring buffer has 1032 words"),
                     HasSubstr("words.size() >= kMinWords\" == nullptr")));
  EXPECT_DEATH(RingBuf(std::span(words).first(RingBuf::kMinWords / 2)),
               HasSubstr("the ring buffer has 512 words"));
}

}  // namespace
