// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <functional>
#include <memory>
#include <span>
#include <string_view>
#include <typeinfo>
#include <vector>

#include "framework/core/Ptr.h"
#include "framework/core/Types.h"
#include "framework/generic/GenericValue.h"

namespace Kiv {

/// The operations on an attribute by name.
enum class GenericOp : U8 {
  Get,     ///< scalar: its value; collection: the member under the key given, or nothing
  Set,     ///< scalar: the new value; collection: the value, or the key of a member to make
  Del,     ///< collection: the key of the member to remove
  DelAll,  ///< collection
  Call,    ///< operation: its arguments, in order
};

/// A walk over one collection, in its order. It stays valid across any change between steps. Holds
/// the object that owns the collection.
class GenericIterator {
 public:
  virtual ~GenericIterator() = default;
  virtual bool atEnd() const = 0;
  /// Key and member of the current position. Not to be called at the end.
  virtual GenericValue iterKey() const = 0;
  virtual GenericValue iterObj() const = 0;
  virtual void iterInc() = 0;
  /// Removes the current member through its type's deleter and moves to the next.
  virtual void iterDel() = 0;
};

enum class AttributeKind : U8 { Constant, Scalar, Values, Members, Operation };

/// Makes one attribute of an object follow the same attribute of another object of its type. Typed:
/// no string form is made. Keys are those of notifications. Operations that an attribute does not
/// have are null; all null: it cannot be written by name.
struct AttributeReplication {
  /// Scalar: the value; collection of values: the member under `key`, or its absence. Through the
  /// type's mutators. False when both were equal already.
  bool (*copy)(PtrInterface const& from, PtrInterface& to, void const* key) = nullptr;
  // Collection of objects.
  Ptr<PtrInterface> (*member)(PtrInterface const& owner, void const* key) = nullptr;
  /// Made from its key, its notification on, in no collection yet.
  Ptr<PtrInterface> (*makeMember)(void const* key) = nullptr;
  /// Stores it, in place of another one under its key.
  void (*memberIs)(PtrInterface& owner, Ptr<PtrInterface> const& member) = nullptr;
  void (*memberDel)(PtrInterface& owner, void const* key) = nullptr;
  /// Either collection: calls `visit` with each key, in the collection's order. Any change between
  /// calls leaves the walk sound; the owner must outlive it.
  void (*eachKey)(PtrInterface const& owner, void* context,
                  void (*visit)(void* context, void const* key)) = nullptr;
};

/// A value of a collection, read from its string form.
struct ReadValue {
  /// Its own key, in the one form that the collection itself gives.
  GenericValue key;
  /// Sets it in an object that has the collection. One that is equal there is not set again.
  std::function<void(PtrInterface&)> set;
};

/// One attribute of a type. Operations that the attribute does not know are null.
struct AttributeDescription {
  std::string_view name;
  AttributeId id = 0;
  AttributeKind kind = AttributeKind::Constant;
  std::type_info const* keyType = nullptr;
  std::type_info const* valueType = nullptr;

  GenericValue (*get)(PtrInterface const&, std::span<GenericValue const>) = nullptr;
  void (*set)(PtrInterface&, GenericValue const&) = nullptr;
  void (*del)(PtrInterface&, GenericValue const&) = nullptr;
  std::unique_ptr<GenericIterator> (*iterate)(Ptr<PtrInterface> const&,
                                              AttributeDescription const&) = nullptr;
  GenericValue (*call)(PtrInterface&, std::span<GenericValue const>) = nullptr;
  /// Collection: a key in the one form that the collection itself gives. Throws RangeException when
  /// it does not parse.
  GenericValue (*canonicalKey)(GenericValue const& key) = nullptr;
  /// Collection of values: whether its setter takes the key and the value as two arguments.
  bool keyAndValue = false;
  /// Collection of values whose setter takes nothing but the value: reads one. Throws
  /// RangeException when it does not parse.
  ReadValue (*readValue)(GenericValue const& value) = nullptr;
  /// Collection of objects: a member made from its key, its notification on, in no collection yet.
  /// Its fields can be set before replication.memberIs() stores it, so that it is announced
  /// complete. Throws RangeException when the key does not parse.
  Ptr<PtrInterface> (*makeMember)(GenericValue const& key) = nullptr;
  AttributeReplication replication;
};

/// The record of one type: its name, its base and the one description of its attributes from which
/// everything generic is derived. Lives for the life of the process.
class Type {
 public:
  using Constructor = Ptr<PtrInterface> (*)(std::span<GenericValue const>);

  Type(std::string_view name, Type const* base, std::vector<AttributeDescription> attributes,
       Constructor constructor = nullptr);
  Type(Type const&) = delete;
  Type& operator=(Type const&) = delete;

  std::string_view name() const { return name_; }
  Type const* base() const { return base_; }
  /// The attributes that the type declares itself.
  std::span<AttributeDescription const> attributes() const { return attributes_; }
  /// Own and inherited; null when there is none.
  AttributeDescription const* attribute(std::string_view name) const;
  AttributeDescription const* attribute(AttributeId id) const;

  /// Makes an object from constructor arguments, its notification on. Throws RangeException when
  /// the type cannot be made so, or when an argument's number or form is wrong.
  Ptr<PtrInterface> construct(std::span<GenericValue const> arguments) const;

  /// The type of that name among those announced by a TypeRegistration; null when there is none.
  static Type const* find(std::string_view name);

 private:
  std::string_view name_;
  Type const* base_;
  std::vector<AttributeDescription> attributes_;
  Constructor constructor_;
};

/// Announces types, so that they can be found and made by name. One static object a library; it
/// notes the functions only, the records are built on first use. Withdrawn when the library is
/// unloaded.
class TypeRegistration {
 public:
  using Record = Type const& (*)();
  TypeRegistration(std::initializer_list<Record> records);
  TypeRegistration(TypeRegistration const&) = delete;
  TypeRegistration& operator=(TypeRegistration const&) = delete;
  ~TypeRegistration();

 private:
  friend class Type;
  std::vector<Record> records_;
};

/// Prints an object by its type's description, as one line of JSON with the attributes in the
/// order of their declaration: string forms as strings, collections as objects by key, members
/// whole, objects that are only pointed at by their type's name.
void genericPrint(std::ostream& out, PtrInterface const& object);

}  // namespace Kiv
