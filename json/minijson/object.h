#pragma once

#include "minijson/entity.h"
#include "minijson/slots.h"

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace minijson {

// A JSON object: members in insertion order, which EntityAtIndex(), MemberNameByIndex() and the
// writer follow. A small object is searched by name from front to back; from kIndexedFrom members
// on, a hash index of the names finds a member in constant time.
//
// Adding or setting a member whose name is already present replaces its value in place: the name
// stays listed once, at the position where it was first added (the parser does the same for a
// repeated name in the input). References to the replaced value become invalid.
class CObject final : public CEntity
{
public:
    CObject() : CEntity(EKind::Object) {}
    ~CObject() override;

    bool Contains(std::string_view name) const;
    // The member, or nullptr when there is none.
    CEntity* Find(std::string_view name) noexcept;
    const CEntity* Find(std::string_view name) const noexcept;

    int Count() const noexcept { return static_cast<int>(m_members.size()); }
    // Throws "index %d out of bounds for EntityAtIndex()" / "... for MemberNameByIndex()".
    CEntity& EntityAtIndex(int index);
    const CEntity& EntityAtIndex(int index) const;
    const std::string& MemberNameByIndex(int index) const;

    // Getters that give the default when the member is missing or of another kind.
    int GetInt(std::string_view name, int defaultValue = 0) const;
    float GetFloat(std::string_view name, float defaultValue = 0) const;
    double GetDouble(std::string_view name, double defaultValue = 0) const;
    bool GetBoolean(std::string_view name, bool defaultValue = false) const;
    std::string GetString(std::string_view name, std::string_view defaultValue = {}) const;
    // nullptr when the member is missing or of another kind.
    CObject* GetObject(std::string_view name) noexcept;
    const CObject* GetObject(std::string_view name) const noexcept;
    CArray* GetArray(std::string_view name) noexcept;
    const CArray* GetArray(std::string_view name) const noexcept;

    // Builders: create the member (replacing one of the same name) and return it.
    CEntity& Add(std::string name, std::unique_ptr<CEntity> value);
    CObject& AddObject(std::string name);
    CArray& AddArray(std::string name);
    CNumber& AddNumber(std::string name); // holds "0" until set
    CString& AddString(std::string name, std::string text);
    CBoolean& AddBoolean(std::string name, bool value);
    CNull& AddNull(std::string name);

    // Setters: create the member or overwrite it with a value of the given kind.
    void SetInt(std::string name, int value);
    void SetFloat(std::string name, float value);
    void SetDouble(std::string name, double value);
    void SetString(std::string name, std::string text);
    void SetBoolean(std::string name, bool value);

    // Returns whether a member was removed.
    bool Remove(std::string_view name);
    // Copies every member of `other` (in its order) into this object. A member present in both is
    // replaced only when `overwrite` is set. Shallow by design: nested objects are not merged.
    void MergeFrom(const CObject& other, bool overwrite);

    std::unique_ptr<CEntity> Copy() const override;

private:
    friend struct detail::TreeAccess;

    // Below this many members a linear search beats hashing the name.
    static constexpr std::size_t kIndexedFrom = 24;
    static constexpr std::size_t kNotFound = ~std::size_t(0);

    struct Member
    {
        Member(std::string text, detail::EntityPtr entity) noexcept
            : name(std::move(text)), value(std::move(entity))
        {
        }
        Member(const char* text, std::size_t length) : name(text, length) {}

        std::string name;
        detail::EntityPtr value;
    };

    template <typename T, typename... Args> T& emplace(std::string name, Args&&... args);
    std::size_t findPosition(std::string_view name) const noexcept;
    // Sets the member `name`, which must not be a null pointer, and returns its value.
    CEntity& set(std::string&& name, detail::EntityPtr value);
    // Lists the member at `position` in the index, growing the index when it gets too full.
    void indexPosition(std::size_t position);
    void rebuildIndex();
    // For the parser: the last member has just got its name. Gives it `value` or, when the name
    // occurs before, gives that member the value and drops the last one.
    void settleLast(detail::EntityPtr&& value);

    // The arena of a parsed tree when this is its root; released after the members.
    detail::ArenaOwner m_arena;
    detail::Slots<Member> m_members;
    // Open addressing over the names, linear probing: position + 1 per slot, 0 for a free slot.
    // Empty while the object is small; otherwise a power of two at least twice the member count.
    std::vector<std::uint32_t> m_index;
};

} // namespace minijson
