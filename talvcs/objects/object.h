#pragma once

#include <talvcs/export.h>
#include <talvcs/foundation/names.h>
#include <talvcs/objects/id.h>

#include <concepts>

namespace TalVcs {

/// Whatever can be stored under the digest of its own bytes.
///
/// Const operations fill caches, so an object must not be used by two threads at once, not even for
/// reading. Handles on it may be copied and dropped anywhere.
class TALVCS_API IObject {
 public:
  /// Objects are equal when their ids are, whatever their classes.
  virtual bool operator==(const IObject& other) const = 0;
  virtual bool operator!=(const IObject& other) const = 0;

  /// Returns the digest of the packed form, computed at the first call.
  virtual Id GetId() const = 0;

  /// Returns the type word, such as "blob".
  virtual TalStringT<char> GetHeader() const = 0;

  /// Returns the mode word, with which a tree's entry begins.
  virtual TalStringT<char> GetStoragePrefix() const = 0;

  /// Returns the bytes that are hashed and stored: type word, blank, decimal size of the data, a
  /// zero byte, the data. The reference is valid until the object changes or ends.
  virtual const Buffer& GetPackedData() const = 0;

  /// Returns the data alone, valid likewise.
  virtual const Buffer& GetData() const = 0;

  /// Returns the packed form for people to look at: one character a byte, a zero byte as "\0",
  /// bytes from 0x80 on as 0xFF80 and up.
  virtual TalStringT<WideChar> ToString() const = 0;

  virtual ~IObject();

 protected:
  IObject() = default;
  IObject(const IObject&) = default;
  IObject& operator=(const IObject&) = default;
};

/// Compare objects through their interface, whatever their static types.
template <std::derived_from<IObject> A, std::derived_from<IObject> B>
bool operator==(const A& a, const B& b) {
  return static_cast<const IObject&>(a).operator==(b);
}
template <std::derived_from<IObject> A, std::derived_from<IObject> B>
bool operator!=(const A& a, const B& b) {
  return static_cast<const IObject&>(a).operator!=(b);
}

/// The base of all objects: computes the id and the packed form at most once between two resets.
///
/// A copy takes both caches along. A class that derives from it tells type, mode and data, and
/// calls `ResetState` after each change of its content.
class TALVCS_API Object : public IObject {
 public:
  bool operator==(const IObject& other) const override;
  bool operator!=(const IObject& other) const override;
  Id GetId() const override;
  const Buffer& GetPackedData() const override;
  TalStringT<WideChar> ToString() const override;
  ~Object() override;

 protected:
  Object() noexcept;
  Object(const Object& other);
  Object& operator=(const Object& other);

  /// Drops the caches.
  virtual void ResetState();

  /// Caches and returns the id of an object of `type` with `data`, without making its packed form.
  /// The id that is cached already wins.
  const Id& IdOfData(TalStringViewT<char> type, const Buffer& data) const;

  /// Returns the packed form of `type` and `data`, which shares the bytes of `data`.
  static Buffer Pack(TalStringViewT<char> type, const Buffer& data);

  /// Fills both caches if one is filled, for a caller that is about to change the content and has
  /// to leave id and packed form as they are.
  void KeepCaches() const;

  bool HasId() const noexcept { return !m_id.View().IsEmpty(); }
  const Id& CachedId() const noexcept { return m_id; }
  void CacheId(const Id& id) const noexcept { m_id = id; }
  const Buffer& CachedPackedData() const noexcept { return m_packedData; }

 private:
  friend class PackedWriter;
  friend class StoreSource;  // knows the ids of what it reads

  // Empty while not computed: no id is empty, nor is any packed form.
  mutable Id m_id;
  mutable Buffer m_packedData;
};

}  // namespace TalVcs
