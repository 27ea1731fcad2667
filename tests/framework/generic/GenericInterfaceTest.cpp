// SPDX-License-Identifier: Apache-2.0
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sstream>
#include <vector>

#include "framework/collections/MemberCollection.h"
#include "framework/collections/ValueCollection.h"
#include "framework/core/Attribute.h"
#include "framework/core/Entity.h"
#include "framework/generic/Describe.h"
#include "framework/values/IpAddr.h"

namespace {

using Kiv::GenericOp;
using Kiv::GenericValue;
using Kiv::make;
using Kiv::makeActive;
using Kiv::Ptr;
using Kiv::RangeException;
using Kiv::String;
using Kiv::Type;
using Kiv::U16;
using Kiv::U32;
using ::testing::ElementsAre;

class Shelf final : public Kiv::PtrInterface {
 public:
  static constexpr Kiv::Attr<> kNumber{130};
  explicit Shelf(U32 number) : number_(number) {}
  U32 number() const { return number_; }
  Kiv::Type const& fwkType() const override { return _kivType(); }
  static Kiv::Type const& _kivType() {
    static Kiv::Type const type("Library::Shelf", &Kiv::PtrInterface::_kivType(),
                                {Kiv::describeConstant<&Shelf::number>("number", kNumber.id)});
    return type;
  }

 private:
  U32 const number_;
};

// A type with one attribute of each kind, and two operations.
class Library final : public Kiv::Entity {
 public:
  static constexpr Kiv::Attr<> kTitle{258};
  static constexpr Kiv::Attr<> kOpen{259};
  static constexpr Kiv::Attr<> kRent{260};
  static constexpr Kiv::Attr<U32> kShelf{261};
  static constexpr Kiv::Attr<U32> kLoans{262};

  Library(String title, U16 floors) : floors_(floors) { title_.is(title); }

  String title() const { return title_(); }
  void titleIs(String const& title) { title_.is(title); }
  bool open() const { return open_(); }
  void openIs(bool open) { open_.is(open); }
  double rent() const { return rent_(); }
  void rentIs(double rent) { rent_.is(rent); }
  U16 floors() const { return floors_; }
  Ptr<Shelf> shelfIs(U32 number) { return shelf_.is(number); }
  void shelfDel(U32 number) { shelf_.del(number); }
  void loansIs(U32 book, Ovra::IpAddr reader) { loans_.set({book, reader}); }
  void loansDel(U32 book) { loans_.del(book); }
  U32 area(U32 width, U32 depth) const { return width * depth * floors_; }
  void close() { open_.is(false); }

  Kiv::Type const& fwkType() const override { return _kivType(); }
  static Kiv::Type const& _kivType();

  auto const& shelves() const { return shelf_; }

 private:
  U16 const floors_;
  Kiv::Attribute<kTitle, String> title_{*this};
  Kiv::Attribute<kOpen, bool> open_{*this};
  Kiv::Attribute<kRent, double> rent_{*this};
  Kiv::MemberCollection<kShelf, Shelf, &Shelf::number, 1> shelf_{*this};
  Kiv::MapCollection<kLoans, U32, Ovra::IpAddr, 2> loans_{*this};
};

Ptr<Library> libraryFactory(String title, U16 floors) {
  return makeActive<Library>(title, floors);
}

Kiv::Type const& Library::_kivType() {
  using T = Library;
  static Kiv::Type const type(
      "Library", &Kiv::Entity::_kivType(),
      {Kiv::describeConstant<&T::floors>("floors", 257),
       Kiv::describeScalar<&T::title, &T::titleIs>("title", kTitle.id),
       Kiv::describeScalar<&T::open, &T::openIs>("open", kOpen.id),
       Kiv::describeScalar<&T::rent, &T::rentIs>("rent", kRent.id),
       Kiv::describeCollection<&T::shelf_, &T::shelfIs, &T::shelfDel>("shelf", kShelf.id),
       Kiv::describeCollection<&T::loans_, &T::loansIs, &T::loansDel>("loans", kLoans.id),
       Kiv::describeOperation<&T::area>("area"), Kiv::describeOperation<&T::close>("close")},
      Kiv::describeFactory<&libraryFactory>());
  return type;
}

Kiv::TypeRegistration const registration{&Library::_kivType, &Shelf::_kivType};

class GenericInterfaceTest : public ::testing::Test {
 protected:
  GenericValue op(GenericOp what, char const* attribute, std::vector<GenericValue> arguments = {}) {
    return library->genericIfAttributeOp(what, attribute, arguments);
  }
  std::string get(char const* attribute) {
    std::ostringstream text;
    text << op(GenericOp::Get, attribute);
    return text.str();
  }
  std::string print() {
    std::ostringstream text;
    Kiv::genericPrint(text, *library);
    return text.str();
  }
  // A call that is refused with this message and changes nothing.
  template <class F>
  void expectRefused(std::string const& message, F const& f) {
    std::string const before = print();
    try {
      f();
      ADD_FAILURE() << "not refused: " << message;
    } catch (RangeException const& exception) {
      EXPECT_THAT(exception.what(), ::testing::HasSubstr(message));
    }
    EXPECT_EQ(print(), before);
  }

  Ptr<Library> library = makeActive<Library>(String("Town"), U16{3});
};

TEST_F(GenericInterfaceTest, ScalarsAreReadAndSetByNameInTheirStringForms) {
  EXPECT_EQ(get("title"), "Town");
  op(GenericOp::Set, "title", {"It's \"new\""});
  EXPECT_EQ(library->title(), "It's \"new\"");
  EXPECT_EQ(get("open"), "False");
  op(GenericOp::Set, "open", {"True"});
  EXPECT_TRUE(library->open());
  op(GenericOp::Set, "rent", {"12.5"});
  EXPECT_EQ(library->rent(), 12.5);
  EXPECT_EQ(get("rent"), "12.5");
  EXPECT_EQ(get("floors"), "3");
}

TEST_F(GenericInterfaceTest, MembersAreMadeFoundAndRemovedByName) {
  op(GenericOp::Set, "shelf", {"7"});
  auto const shelf = op(GenericOp::Get, "shelf", {"7"}).as<Ptr<Shelf>>();
  ASSERT_NE(shelf, nullptr);
  EXPECT_EQ(shelf, library->shelves().get(7));
  EXPECT_TRUE(op(GenericOp::Get, "shelf", {"8"}).isNothing());
  op(GenericOp::Del, "shelf", {"7"});
  EXPECT_TRUE(library->shelves().empty());
}

TEST_F(GenericInterfaceTest, ValuesThatDoNotCarryTheirKeyAreSetWithIt) {
  op(GenericOp::Set, "loans", {"12", "10.0.0.1"});
  EXPECT_EQ(op(GenericOp::Get, "loans", {"12"}).strep(), "10.0.0.1");
}

TEST_F(GenericInterfaceTest, AMemberMadeByNameIsInNoCollectionUntilItIsStored) {
  auto const& shelf = *Library::_kivType().attribute("shelf");
  auto const made = shelf.makeMember("7");
  EXPECT_TRUE(made->hasNotificationActive());
  EXPECT_TRUE(op(GenericOp::Get, "shelf", {"7"}).isNothing());
  shelf.replication.memberIs(*library, made);
  EXPECT_EQ(op(GenericOp::Get, "shelf", {"7"}).object(), made);
  EXPECT_THROW(shelf.makeMember("seven"), RangeException);
}

TEST_F(GenericInterfaceTest, ACollectionKnowsTheFormOfItsKeysAndHowItIsSet) {
  auto const& shelf = *Library::_kivType().attribute("shelf");
  auto const& loans = *Library::_kivType().attribute("loans");
  EXPECT_EQ(loans.canonicalKey("17").strep(), "17");
  EXPECT_THROW(loans.canonicalKey("x"), RangeException);
  EXPECT_TRUE(loans.keyAndValue);
  EXPECT_FALSE(shelf.keyAndValue);
  EXPECT_EQ(loans.makeMember, nullptr);
  EXPECT_EQ(loans.readValue, nullptr);
}

TEST_F(GenericInterfaceTest, AWalkGivesKeyAndObjectAndDeletesUnderItself) {
  for (char const* key : {"1", "2", "3", "4"}) op(GenericOp::Set, "shelf", {key});
  std::vector<U32> walked;
  for (auto walk = library->genericIfIterator("shelf"); !walk->atEnd(); walk->iterInc()) {
    walked.push_back(walk->iterKey().as<U32>());
    EXPECT_EQ(walk->iterObj().as<Ptr<Shelf>>()->number(), walked.back());
  }
  EXPECT_THAT(walked, ::testing::UnorderedElementsAre(1, 2, 3, 4));

  auto walk = library->genericIfIterator("shelf");
  walk->iterInc();
  walk->iterDel();
  EXPECT_EQ(walk->iterKey().as<U32>(), walked[2]);
  walk->iterInc();
  walk->iterInc();
  EXPECT_TRUE(walk->atEnd());
  EXPECT_EQ(library->shelves().size(), 3u);
  EXPECT_EQ(library->shelves().find(walked[1]), nullptr);
  op(GenericOp::DelAll, "shelf");
  EXPECT_TRUE(library->shelves().empty());
}

TEST_F(GenericInterfaceTest, AWalkHoldsTheObjectItWalks) {
  op(GenericOp::Set, "shelf", {"1"});
  auto walk = library->genericIfIterator("shelf");
  library.reset();
  EXPECT_EQ(walk->iterKey().as<U32>(), 1u);
  walk->iterDel();
  EXPECT_TRUE(walk->atEnd());
}

TEST_F(GenericInterfaceTest, OperationsAreCalledByName) {
  EXPECT_EQ(op(GenericOp::Call, "area", {"4", "5"}).as<U32>(), 60u);
  library->openIs(true);
  EXPECT_TRUE(op(GenericOp::Call, "close").isNothing());
  EXPECT_FALSE(library->open());
}

TEST_F(GenericInterfaceTest, PrintsEveryAttributeInTheOrderOfDeclaration) {
  op(GenericOp::Set, "shelf", {"7"});
  op(GenericOp::Set, "loans", {"12", "10.0.0.1"});
  op(GenericOp::Set, "title", {"a\"b\n"});
  EXPECT_EQ(print(),
            R"({"fullName": "", "parent": null, "parentAttrName": "", "entity": "Library", )"
            R"("floors": "3", "title": "a\"b\u000a", "open": "False", "rent": "0", )"
            R"("shelf": {"7": {"number": "7"}}, "loans": {"12": "10.0.0.1"}})");
}

TEST_F(GenericInterfaceTest, TypesAreFoundAndConstructedByName) {
  Type const* const type = Type::find("Library");
  ASSERT_EQ(type, &Library::_kivType());
  std::vector<GenericValue> const arguments{"City", "9"};
  auto const made = Kiv::ptrCast<Library>(type->construct(arguments));
  ASSERT_NE(made, nullptr);
  EXPECT_EQ(made->title(), "City");
  EXPECT_EQ(made->floors(), 9);
  EXPECT_TRUE(made->hasNotificationActive());
  EXPECT_EQ(&made->fwkType(), type);
  EXPECT_EQ(type->base(), &Kiv::Entity::_kivType());
  EXPECT_EQ(Type::find("Library::Cellar"), nullptr);
}

TEST_F(GenericInterfaceTest, ARegistrationEndsWithItsLibrary) {
  static Kiv::Type const local("Local", nullptr, {});
  {
    Kiv::TypeRegistration const loaded{[]() -> Kiv::Type const& { return local; }};
    EXPECT_EQ(Type::find("Local"), &local);
  }
  EXPECT_EQ(Type::find("Local"), nullptr);
}

TEST_F(GenericInterfaceTest, ATypeKnowsItsAttributesByNameAndId) {
  Type const& type = Library::_kivType();
  EXPECT_EQ(type.attribute("shelf")->id, Library::kShelf.id);
  EXPECT_EQ(type.attribute(Library::kShelf.id)->name, "shelf");
  EXPECT_EQ(type.attribute("parent")->id, Kiv::Entity::kParent.id);
  EXPECT_EQ(type.attribute("shelf")->kind, Kiv::AttributeKind::Members);
  EXPECT_EQ(type.attribute("loans")->kind, Kiv::AttributeKind::Values);
  EXPECT_EQ(*type.attribute("shelf")->keyType, typeid(U32));
  EXPECT_EQ(*type.attribute("shelf")->valueType, typeid(Shelf));
  EXPECT_EQ(type.attribute("cellar"), nullptr);
  EXPECT_EQ(type.attribute(Kiv::AttributeId{999}), nullptr);
  // Operations are no attributes of notifications.
  EXPECT_EQ(type.attribute(Kiv::AttributeId{0}), nullptr);
}

TEST_F(GenericInterfaceTest, AnUnknownAttributeIsRefused) {
  expectRefused("Library has no attribute \"cellar\"", [&] { op(GenericOp::Get, "cellar"); });
  expectRefused("has no attribute", [&] { op(GenericOp::Call, "demolish"); });
  expectRefused("has no attribute", [&] { (void)library->genericIfIterator("cellar"); });
}

TEST_F(GenericInterfaceTest, AnOperationThatTheAttributeDoesNotKnowIsRefused) {
  std::string const unknown = "does not know this operation";
  expectRefused("Library::floors " + unknown, [&] { op(GenericOp::Set, "floors", {"4"}); });
  expectRefused(unknown, [&] { op(GenericOp::Del, "title", {"x"}); });
  expectRefused(unknown, [&] { op(GenericOp::DelAll, "title"); });
  expectRefused(unknown, [&] { op(GenericOp::Call, "title"); });
  expectRefused(unknown, [&] { op(GenericOp::Call, "shelf", {"1"}); });
  expectRefused(unknown, [&] { op(GenericOp::Set, "area", {"1", "2"}); });
  expectRefused(unknown, [&] { op(GenericOp::Get, "area", {"1", "2"}); });
  expectRefused(unknown, [&] { (void)library->genericIfIterator("title"); });
}

TEST_F(GenericInterfaceTest, AStringFormThatDoesNotParseIsRefused) {
  expectRefused("", [&] { op(GenericOp::Set, "open", {"yes"}); });
  expectRefused("", [&] { op(GenericOp::Set, "rent", {"1.5x"}); });
  expectRefused("", [&] { op(GenericOp::Set, "shelf", {"seven"}); });
  expectRefused("", [&] { op(GenericOp::Set, "shelf", {"4294967296"}); });
  expectRefused("", [&] { op(GenericOp::Set, "loans", {"1", "10.0.0.256"}); });
  expectRefused("", [&] { op(GenericOp::Del, "shelf", {""}); });
  expectRefused("", [&] { op(GenericOp::Call, "area", {"1", "wide"}); });
}

TEST_F(GenericInterfaceTest, AWrongNumberOfArgumentsIsRefused) {
  expectRefused("0 arguments expected, 1 given", [&] { op(GenericOp::Get, "title", {"x"}); });
  expectRefused("1 arguments expected, 0 given", [&] { op(GenericOp::Set, "title"); });
  expectRefused("1 arguments expected, 2 given", [&] { op(GenericOp::Set, "title", {"a", "b"}); });
  expectRefused("1 arguments expected, 0 given", [&] { op(GenericOp::Get, "shelf"); });
  expectRefused("1 arguments expected, 0 given", [&] { op(GenericOp::Del, "shelf"); });
  expectRefused("0 arguments expected, 1 given", [&] { op(GenericOp::DelAll, "shelf", {"1"}); });
  expectRefused("2 arguments expected, 1 given", [&] { op(GenericOp::Set, "loans", {"1"}); });
  expectRefused("2 arguments expected, 3 given", [&] {
    op(GenericOp::Call, "area", {"1", "2", "3"});
  });
  std::vector<GenericValue> const one{"City"};
  expectRefused("2 arguments expected, 1 given", [&] { (void)Library::_kivType().construct(one); });
}

TEST_F(GenericInterfaceTest, ATypeWithoutConstructorIsRefused) {
  expectRefused("Library::Shelf cannot be constructed by name",
                [&] { (void)Shelf::_kivType().construct({}); });
}

TEST_F(GenericInterfaceTest, AnObjectInPlaceOfAValueIsRefused) {
  expectRefused("an object where a value is expected",
                [&] { op(GenericOp::Set, "title", {GenericValue(library)}); });
  expectRefused("a value is missing", [&] { op(GenericOp::Set, "title", {GenericValue()}); });
}

TEST(GenericValue, CarriesObjectsWithTheirRights) {
  auto const shelf = make<Shelf>(7u);
  EXPECT_EQ(GenericValue(shelf).as<Ptr<Shelf>>(), shelf);
  EXPECT_EQ(GenericValue(shelf).as<Ptr<Shelf const>>(), shelf);
  GenericValue const constant{Ptr<Shelf const>(shelf)};
  EXPECT_EQ(constant.as<Ptr<Shelf const>>(), shelf);
  EXPECT_THROW((void)constant.as<Ptr<Shelf>>(), RangeException);
  EXPECT_THROW((void)GenericValue(shelf).as<Ptr<Library>>(), RangeException);
  EXPECT_THROW((void)GenericValue("text").as<Ptr<Shelf>>(), RangeException);
  EXPECT_EQ(GenericValue().as<Ptr<Shelf>>(), nullptr);
}

}  // namespace
