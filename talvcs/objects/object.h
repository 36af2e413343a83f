#pragma once

#include <talvcs/export.h>
#include <talvcs/foundation/names.h>
#include <talvcs/objects/id.h>

#include <concepts>

namespace TalVcs {

/// An object that can be stored under the digest of its own bytes.
///
/// Const functions cache their results, so an object must not be used by two threads at once, not
/// even for reading. Handles on it may be copied and dropped on any thread.
class TALVCS_API IObject {
 public:
  /// Objects are equal if their ids are, even if their classes differ.
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

  /// Returns the data alone. The reference is valid as long as that of `GetPackedData`.
  virtual const Buffer& GetData() const = 0;

  /// Returns the packed form as a text for debugging: one character for each byte, "\0" for a zero
  /// byte, and 0xFF80 and up for bytes from 0x80 on.
  virtual TalStringT<WideChar> ToString() const = 0;

  virtual ~IObject();

 protected:
  IObject() = default;
  IObject(const IObject&) = default;
  IObject& operator=(const IObject&) = default;
};

/// Compare objects through their interface, so that different static types can be compared.
template <std::derived_from<IObject> A, std::derived_from<IObject> B>
bool operator==(const A& a, const B& b) {
  return static_cast<const IObject&>(a).operator==(b);
}
template <std::derived_from<IObject> A, std::derived_from<IObject> B>
bool operator!=(const A& a, const B& b) {
  return static_cast<const IObject&>(a).operator!=(b);
}

/// The base class of all objects. It computes the id and the packed form at most once between two
/// calls of `ResetState`.
///
/// A copy has the same cached values. A derived class defines the type, the mode and the data, and
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

  /// Drops the cached id and packed form.
  virtual void ResetState();

  /// Caches and returns the id of an object of `type` with `data`, without making its packed form.
  /// The id that is cached already wins.
  const Id& IdOfData(TalStringViewT<char> type, const Buffer& data) const;

  /// Returns the packed form of `type` and `data`, which shares the bytes of `data`.
  static Buffer Pack(TalStringViewT<char> type, const Buffer& data);

  /// Computes the id and the packed form if one of them is cached. Call it before a change of the
  /// content after which both must stay as they are.
  void CompleteCaches() const;

  /// Read and fill the caches, for classes that derive from this one. An empty id or packed form is
  /// not cached.
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
