#pragma once

#include "minijson/entity.h"

#include <functional>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace minijson {

// A JSON object: members by name, kept in a name-to-value map for lookup and, beside it, in
// insertion order, which EntityAtIndex(), MemberNameByIndex() and the writer follow.
//
// Adding or setting a member whose name is already present replaces its value in place: the name
// stays listed once, at the position where it was first added (the parser does the same for a
// repeated name in the input). References to the replaced value become invalid.
class CObject final : public CEntity
{
public:
    CObject() : CEntity(EKind::Object) {}

    bool Contains(std::string_view name) const;
    // The member, or nullptr when there is none.
    CEntity* Find(std::string_view name) noexcept;
    const CEntity* Find(std::string_view name) const noexcept;

    int Count() const noexcept { return static_cast<int>(m_order.size()); }
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
    using Members = std::map<std::string, std::unique_ptr<CEntity>, std::less<>>;

    template <typename T, typename... Args> T& emplace(std::string name, Args&&... args);

    Members m_members;
    // Map nodes never move, so the order list can point straight at them.
    std::vector<Members::value_type*> m_order;
};

} // namespace minijson
