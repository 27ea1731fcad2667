// SPDX-License-Identifier: Apache-2.0
#include "host/store/RecordForm.h"

#include <exception>
#include <set>
#include <span>
#include <utility>

#include "framework/core/Strep.h"

namespace Host {

namespace {

using Kiv::AttributeDescription;
using Kiv::AttributeKind;
using Kiv::GenericValue;
using Kiv::Ptr;
using Kiv::PtrInterface;
using Kind = StoreChange::Kind;

[[noreturn]] void unreadable(std::string const& what) {
  throw UnreadableException(what);
}

bool isKept(AttributeDescription const& attribute) {
  switch (attribute.kind) {
    case AttributeKind::Scalar:
      return attribute.set != nullptr && attribute.replication.copy != nullptr;
    case AttributeKind::Values:
      return attribute.call != nullptr && attribute.del != nullptr &&
             attribute.replication.copy != nullptr;
    case AttributeKind::Members:
      return attribute.makeMember != nullptr && attribute.del != nullptr &&
             attribute.replication.memberIs != nullptr;
    case AttributeKind::Constant:
    case AttributeKind::Operation:
      return false;
  }
  return false;
}

// Calls f for each attribute of one kind that is kept, those of the base first.
template <class F>
void forEachKept(Kiv::Type const& type, AttributeKind kind, F const& f) {
  if (type.base() != nullptr) forEachKept(*type.base(), kind, f);
  for (AttributeDescription const& attribute : type.attributes()) {
    if (attribute.kind == kind && isKept(attribute)) f(attribute);
  }
}

AttributeDescription const& keptAttribute(Kiv::Type const& type, std::string_view name) {
  AttributeDescription const* const attribute = type.attribute(name);
  if (attribute == nullptr || !isKept(*attribute)) {
    unreadable(std::string(type.name()) + " keeps no \"" + std::string(name.substr(0, 100)) + "\"");
  }
  return *attribute;
}

// The name of a collection: of the record's own, or of one in a member of a collection.
struct CollectionName {
  std::string_view attribute;
  std::string_view memberKey;
  std::string_view inner;  // empty: the record's own

  explicit CollectionName(std::string_view name) : attribute(name) {
    auto const open = name.find('[');
    auto const close = name.rfind("].");
    if (open == std::string_view::npos || close == std::string_view::npos || close < open) return;
    if (close + 2 == name.size()) return;
    attribute = name.substr(0, open);
    memberKey = name.substr(open + 1, close - open - 1);
    inner = name.substr(close + 2);
  }
};

std::string nestedName(std::string_view attribute, std::string_view memberKey,
                       std::string_view inner) {
  std::string name(attribute);
  name.append("[").append(memberKey).append("].").append(inner);
  return name;
}

GenericValue generic(std::string_view text) {
  return GenericValue(Kiv::String(text));
}

std::unique_ptr<Kiv::GenericIterator> walk(PtrInterface const& object,
                                           AttributeDescription const& attribute) {
  // A walk that only reads; it is shared with the writers and so asks for a writable object.
  return attribute.iterate(Ptr<PtrInterface>(const_cast<PtrInterface*>(&object)), attribute);
}

Ptr<PtrInterface> memberOf(PtrInterface& record, AttributeDescription const& attribute,
                           GenericValue const& key) {
  return attribute.get(record, std::span(&key, 1)).writableObject();
}

// --- Objects as one value

std::string memberText(PtrInterface const& member) {
  std::string text = "{";
  forEachKept(member.fwkType(), AttributeKind::Scalar, [&](AttributeDescription const& attribute) {
    GenericValue const value = attribute.get(member, {});
    if (!value.isStrep()) return;
    if (text.size() > 1) text += ", ";
    text.append("'").append(attribute.name).append("': ");
    text += Kiv::quotedToStrep(value.strep()).view();
  });
  return text + "}";
}

void readMemberText(PtrInterface& member, std::string const& text) {
  Kiv::String const form(text);
  Kiv::String::Iterator it = form.begin();
  Kiv::String::Iterator const end = form.end();
  Kiv::needString(it, end, "{");
  bool first = true;
  while (it == end || *it != '}') {
    if (!first) Kiv::needString(it, end, ", ");
    first = false;
    std::string const name = Kiv::quotedFromStrep(it, end);
    Kiv::needString(it, end, ": ");
    std::string const value = Kiv::quotedFromStrep(it, end);
    AttributeDescription const& attribute = keptAttribute(member.fwkType(), name);
    if (attribute.kind != AttributeKind::Scalar) unreadable(name + " is not a field");
    attribute.set(member, generic(value));
  }
  ++it;
  Kiv::strepToValueEnd(it, end);
}

// --- One change, read into what others do not see

struct Read {
  AttributeDescription const* attribute;
  AttributeDescription const* inner = nullptr;  // of the member
  GenericValue key;                             // of the member, where there is one
  std::function<void(PtrInterface&)> value;     // the new value, where a setter takes it alone
  Ptr<PtrInterface> fresh;                      // else what holds it: a record, or the member
};

void needCanonical(AttributeDescription const& attribute, std::string const& key) {
  if (attribute.canonicalKey(generic(key)).strep() != key) unreadable("its key has another form");
}

// A value whose setter takes it with its key is set in an object that `make` makes.
template <class F>
void readValue(AttributeDescription const& attribute, StoreChange const& change, Read& read,
               F const& make) {
  if (change.kind == Kind::Replace) unreadable("a value is not replaced, but set");
  if (change.kind == Kind::Set && attribute.readValue != nullptr) {
    auto value = attribute.readValue(generic(change.value));
    // A key that the value's own is written as has the one form that there is.
    if (value.key.strep() != change.key) {
      needCanonical(attribute, change.key);
      unreadable("its value has another key");
    }
    read.value = std::move(value.set);
    return;
  }
  needCanonical(attribute, change.key);
  if (change.kind != Kind::Set) return;
  read.fresh = make();
  GenericValue const arguments[] = {generic(change.key), generic(change.value)};
  attribute.call(*read.fresh, std::span(arguments));
  auto const at = walk(*read.fresh, attribute);
  if (at->atEnd() || at->iterKey().strep() != change.key) unreadable("its value has another key");
}

Read readChecked(StoreChange const& change, Kiv::Type const& type) {
  CollectionName const name(change.collection);
  Read read{.attribute = &keptAttribute(type, name.attribute), .key = {}, .value = {}, .fresh = {}};
  if (!name.inner.empty()) {
    std::string const memberKey(name.memberKey);
    if (read.attribute->kind != AttributeKind::Members) unreadable("it has no members");
    needCanonical(*read.attribute, memberKey);
    read.key = generic(memberKey);
    read.fresh = read.attribute->makeMember(read.key);
    read.inner = &keptAttribute(read.fresh->fwkType(), name.inner);
    if (read.inner->kind != AttributeKind::Values) unreadable("it has no values");
    readValue(*read.inner, change, read, [&] { return read.fresh; });
    return read;
  }
  switch (read.attribute->kind) {
    case AttributeKind::Scalar:
      if (!change.key.empty()) unreadable("it has no keys");
      if (change.kind != Kind::Set) unreadable("it can be set only");
      read.fresh = type.construct({});
      read.attribute->set(*read.fresh, generic(change.value));
      break;
    case AttributeKind::Values:
      readValue(*read.attribute, change, read, [&] { return type.construct({}); });
      break;
    default:
      needCanonical(*read.attribute, change.key);
      read.key = generic(change.key);
      read.fresh = read.attribute->makeMember(read.key);
      if (change.kind != Kind::Del) readMemberText(*read.fresh, change.value);
      break;
  }
  return read;
}

Read readChange(StoreChange const& change, Kiv::Type const& type) {
  try {
    return readChecked(change, type);
  } catch (UnreadableException const&) {
    throw;
  } catch (Kiv::RangeException const& exception) {
    throw UnreadableException(exception.what());
  }
}

// --- Applying what has been read

void copyValues(PtrInterface const& from, PtrInterface& to, AttributeDescription const& attribute) {
  struct Context {
    PtrInterface const& from;
    PtrInterface& to;
    AttributeDescription const& attribute;
  } context{from, to, attribute};
  attribute.replication.eachKey(from, &context, [](void* opaque, void const* key) {
    auto const& each = *static_cast<Context const*>(opaque);
    each.attribute.replication.copy(each.from, each.to, key);
  });
}

void setValue(Read const& read, PtrInterface& to, AttributeDescription const& attribute) {
  if (read.value) {
    read.value(to);
  } else {
    copyValues(*read.fresh, to, attribute);
  }
}

void setMember(Read const& read, PtrInterface& record) {
  Ptr<PtrInterface> const there = memberOf(record, *read.attribute, read.key);
  if (!there) {
    read.attribute->replication.memberIs(record, read.fresh);
    return;
  }
  std::exception_ptr first;  // of a handler
  forEachKept(there->fwkType(), AttributeKind::Scalar, [&](AttributeDescription const& field) {
    try {
      field.replication.copy(*read.fresh, *there, nullptr);
    } catch (...) {
      if (!first) first = std::current_exception();
    }
  });
  if (first) std::rethrow_exception(first);
}

void applyNested(Read const& read, StoreChange const& change, PtrInterface& record) {
  Ptr<PtrInterface> const there = memberOf(record, *read.attribute, read.key);
  if (change.kind == Kind::Del) {
    if (there) read.inner->del(*there, generic(change.key));
  } else if (there) {
    setValue(read, *there, *read.inner);
  } else {
    if (read.value) read.value(*read.fresh);
    read.attribute->replication.memberIs(record, read.fresh);
  }
}

// --- Many values of one object

// A collection of values whose setter takes nothing else: of a record, or of a member that is
// there.
struct ManyValues {
  Ptr<PtrInterface> object;
  AttributeDescription const* attribute = nullptr;  // null: it is something else
};

AttributeDescription const* readableValues(Kiv::Type const& type, std::string_view name) {
  AttributeDescription const* const attribute = type.attribute(name);
  bool const readable = attribute != nullptr && attribute->kind == AttributeKind::Values &&
                        isKept(*attribute) && attribute->readValue != nullptr;
  return readable ? attribute : nullptr;
}

ManyValues manyValues(PtrInterface& record, std::string_view collection) {
  CollectionName const name(collection);
  if (name.inner.empty()) {
    return {Ptr<PtrInterface>(&record), readableValues(record.fwkType(), collection)};
  }
  try {
    AttributeDescription const& members = keptAttribute(record.fwkType(), name.attribute);
    if (members.kind != AttributeKind::Members) return {};
    needCanonical(members, std::string(name.memberKey));
    auto const member = memberOf(record, members, generic(name.memberKey));
    if (!member) return {};
    return {member, readableValues(member->fwkType(), name.inner)};
  } catch (Kiv::RangeException const&) {
    return {};
  }
}

// False, and nothing is done: it cannot be read so.
bool setOneOf(ManyValues const& many, std::string const& key, std::string const& value) {
  if (many.attribute == nullptr) return false;
  Kiv::ReadValue read;
  try {
    read = many.attribute->readValue(generic(value));
  } catch (Kiv::RangeException const&) {
    return false;
  }
  if (read.key.strep() != key) return false;
  read.set(*many.object);
  return true;
}

}  // namespace

RecordForm recordForm(PtrInterface const& record) {
  RecordForm form;
  Kiv::Type const& type = record.fwkType();
  forEachKept(type, AttributeKind::Scalar, [&](AttributeDescription const& attribute) {
    GenericValue const value = attribute.get(record, {});
    if (value.isStrep()) form[std::string(attribute.name)][""] = value.strep().stdString();
  });
  auto const addValues = [&form](std::string const& name, PtrInterface const& object,
                                 AttributeDescription const& attribute) {
    auto& collection = form[name];
    for (auto at = walk(object, attribute); !at->atEnd(); at->iterInc()) {
      collection[at->iterKey().strep().stdString()] = at->iterObj().strep().stdString();
    }
  };
  forEachKept(type, AttributeKind::Values, [&](AttributeDescription const& attribute) {
    addValues(std::string(attribute.name), record, attribute);
  });
  forEachKept(type, AttributeKind::Members, [&](AttributeDescription const& attribute) {
    auto& collection = form[std::string(attribute.name)];
    for (auto at = walk(record, attribute); !at->atEnd(); at->iterInc()) {
      std::string const key = at->iterKey().strep().stdString();
      Ptr<PtrInterface const> const member = at->iterObj().object();
      collection[key] = memberText(*member);
      forEachKept(member->fwkType(), AttributeKind::Values, [&](AttributeDescription const& inner) {
        addValues(nestedName(attribute.name, key, inner.name), *member, inner);
      });
    }
  });
  std::erase_if(form, [](auto const& collection) { return collection.second.empty(); });
  return form;
}

void fillRecord(PtrInterface& record, RecordForm const& form,
                std::function<void(std::string const&, std::string const&,
                                   std::string const&)> const& unreadable) {
  std::set<std::pair<std::string, std::string>> leftOut;
  StoreChange change;
  for (auto const& [collection, entries] : form) {
    auto const member = memberOfCollection(collection);
    if (member && leftOut.contains(*member)) continue;
    change.collection = collection;
    ManyValues const many = manyValues(record, collection);
    for (auto const& [key, value] : entries) {
      if (setOneOf(many, key, value)) continue;
      change.key = key;
      change.value = value;
      try {
        applyChange(change, record);
      } catch (UnreadableException const& exception) {
        leftOut.emplace(collection, key);
        unreadable(collection, key, exception.what());
      }
    }
  }
}

void completeChange(StoreChange& change, Kiv::Type const& type) {
  change.drops.clear();
  change.within.reset();
  if (change.kind == Kind::Make) return;
  Read const read = readChange(change, type);
  if (read.inner != nullptr && change.kind == Kind::Set) {
    CollectionName const name(change.collection);
    Ptr<PtrInterface> const member = read.attribute->makeMember(read.key);
    change.within = StoreChange::Entry{std::string(name.attribute), std::string(name.memberKey),
                                       memberText(*member)};
  } else if (read.inner == nullptr && read.attribute->kind == AttributeKind::Members &&
             change.kind != Kind::Set) {
    forEachKept(read.fresh->fwkType(), AttributeKind::Values,
                [&](AttributeDescription const& inner) {
                  change.drops.push_back(nestedName(change.collection, change.key, inner.name));
                });
  }
}

void applyChange(StoreChange const& change, PtrInterface& record) {
  if (change.kind == Kind::Make) return;
  Read const read = readChange(change, record.fwkType());
  AttributeDescription const& attribute = *read.attribute;
  if (read.inner != nullptr) {
    applyNested(read, change, record);
  } else if (attribute.kind == AttributeKind::Scalar) {
    attribute.replication.copy(*read.fresh, record, nullptr);
  } else if (change.kind == Kind::Del) {
    attribute.del(record, generic(change.key));
  } else if (attribute.kind == AttributeKind::Values) {
    setValue(read, record, attribute);
  } else if (change.kind == Kind::Set) {
    setMember(read, record);
  } else {
    attribute.replication.memberIs(record, read.fresh);
  }
}

void applyAbsence(StoreChange const& change, PtrInterface& record) {
  AttributeDescription const* const attribute = record.fwkType().attribute(change.collection);
  if (attribute != nullptr && isKept(*attribute) && attribute->kind == AttributeKind::Scalar) {
    if (!change.key.empty()) return;  // an entry that means nothing
    attribute->replication.copy(*record.fwkType().construct({}), record, nullptr);
    return;
  }
  StoreChange del = change;
  del.kind = Kind::Del;
  applyChange(del, record);
}

bool isOfMember(StoreChange const& change, Kiv::Type const& type) {
  AttributeDescription const* const attribute =
      type.attribute(CollectionName(change.collection).attribute);
  return attribute != nullptr && attribute->kind == AttributeKind::Members && isKept(*attribute);
}

std::optional<std::pair<std::string, std::string>> memberOfCollection(
    std::string const& collection) {
  CollectionName const name(collection);
  if (name.inner.empty()) return std::nullopt;
  return std::pair(std::string(name.attribute), std::string(name.memberKey));
}

std::vector<StoreChange> differenceOf(std::string const& path, RecordForm const& from,
                                      RecordForm const& to) {
  static std::map<std::string, std::string> const kNone;
  auto const collectionOf = [](RecordForm const& form, std::string const& name) -> auto const& {
    auto const found = form.find(name);
    return found == form.end() ? kNone : found->second;
  };
  std::vector<StoreChange> changes;
  std::set<std::string> gone;  // members, as the front of the names of their collections
  auto const isGone = [&gone](std::string const& collection) {
    CollectionName const name(collection);
    return !name.inner.empty() && gone.contains(nestedName(name.attribute, name.memberKey, ""));
  };
  for (auto const& [collection, entries] : from) {
    if (isGone(collection)) continue;
    auto const& wanted = collectionOf(to, collection);
    for (auto const& [key, value] : entries) {
      auto const found = wanted.find(key);
      if (found != wanted.end() && (found->second == value || key.empty())) continue;
      changes.push_back({Kind::Del, path, collection, key, {}, {}, {}});
      gone.insert(nestedName(collection, key, ""));
    }
  }
  for (auto const& [collection, entries] : to) {
    bool const again = isGone(collection);
    auto const& there = again ? kNone : collectionOf(from, collection);
    for (auto const& [key, value] : entries) {
      auto const found = there.find(key);
      if (found != there.end() && found->second == value) continue;
      changes.push_back({Kind::Set, path, collection, key, value, {}, {}});
    }
  }
  return changes;
}

}  // namespace Host
