// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "framework/core/Exceptions.h"
#include "framework/core/Ptr.h"
#include "framework/core/PtrInterface.h"
#include "framework/generic/Type.h"
#include "host/store/Store.h"

/// Records of any type as text and back, by the description of the type's attributes:
///
/// - a scalar: collection = the attribute's name, key "", value = its string form;
/// - a collection of values: an entry for each, keys and values in their string forms;
/// - a collection of objects: an entry for each, its scalars in one value, written whole:
///   {'vlanId': '100', 'vrfId': '7'};
/// - a collection of values in such an object: a collection of its own, `vrfStatus[7].ipAndIntfId`.
///
/// Constants and what a type does not let be written by name are not kept; nor is what an object of
/// such an object holds. A key is what this writes, byte for byte, or it is not readable: so that
/// no two entries mean the same.
namespace Host {

/// Text that does not fit the record; says what is wrong with it.
class UnreadableException : public Kiv::RangeException {
 public:
  using RangeException::RangeException;
};

/// All that a record holds.
RecordForm recordForm(Kiv::PtrInterface const& record);

/// Puts a content into a new record. Calls `unreadable(collection, key, why)` for each entry that
/// does not fit, and leaves it out; what an object that is left out would hold goes with it.
void fillRecord(Kiv::PtrInterface& record, RecordForm const& form,
                std::function<void(std::string const&, std::string const&,
                                   std::string const&)> const& unreadable);

/// Checks that a change of a record of this type is readable, and adds what the store has to do
/// beside it (StoreChange::drops, ::within). Throws UnreadableException.
void completeChange(StoreChange& change, Kiv::Type const& type);

/// Does the change to a record, through the type's own mutators; Make is nothing. Throws
/// UnreadableException, and has then changed nothing; and what handlers of the change throw, the
/// first of several, when the change has been done.
///
/// What is equal already says nothing. A value set in an object that is not there makes that
/// object. An object is announced with all its fields set.
void applyChange(StoreChange const& change, Kiv::PtrInterface& record);
/// Removes what is under the change's collection and key: a scalar gets its default. For an entry
/// that has become unreadable. Throws as applyChange() does.
void applyAbsence(StoreChange const& change, Kiv::PtrInterface& record);

/// Whether the change is of an object of a collection, or of what such an object holds.
bool isOfMember(StoreChange const& change, Kiv::Type const& type);

/// The collection and the key of the object to which the collection of that name belongs; nothing
/// when it is the record's own.
std::optional<std::pair<std::string, std::string>> memberOfCollection(
    std::string const& collection);

/// The changes at `path` from one content to another: what goes, then what comes. An entry with
/// another value goes and comes again, but for scalars; so does all that an object holds.
std::vector<StoreChange> differenceOf(std::string const& path, RecordForm const& from,
                                      RecordForm const& to);

}  // namespace Host
