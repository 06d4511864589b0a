#pragma once

#include "minijson/entity.h"
#include "minijson/slots.h"

#include <memory>
#include <string>
#include <vector>

namespace minijson {

// A JSON array: an ordered list of owned values.
class CArray final : public CEntity
{
public:
    CArray() : CEntity(EKind::Array) {}
    ~CArray() override;

    int Count() const noexcept { return static_cast<int>(m_elements.size()); }
    // Throws "index %d out of bounds for EntityAtIndex()".
    CEntity& EntityAtIndex(int index);
    const CEntity& EntityAtIndex(int index) const;

    // Builders: append a value and return it.
    CEntity& Append(std::unique_ptr<CEntity> value);
    CObject& AddObject();
    CArray& AddArray();
    CNumber& AddNumber(); // holds "0" until set
    CString& AddString(std::string text);
    CBoolean& AddBoolean(bool value);
    CNull& AddNull();

    // Throws "index out of range".
    void Remove(int index);

    // Typed getters by index: they throw like EntityAtIndex() and the typed views.
    const std::string& GetString(int index) const;
    CNumber& GetNumber(int index);
    const CNumber& GetNumber(int index) const;
    CObject& GetObject(int index);
    const CObject& GetObject(int index) const;
    CArray& GetArray(int index);
    const CArray& GetArray(int index) const;
    // The default when the index is out of range or the element is not a number.
    double GetDouble(int index, double defaultValue) const;

    void Reserve(int count)
    {
        if (count > 0)
            m_elements.reserve(static_cast<std::size_t>(count));
    }

    std::unique_ptr<CEntity> Copy() const override;

private:
    friend struct detail::TreeAccess;

    template <typename T, typename... Args> T& emplace(Args&&... args);

    // The arena of a parsed tree when this is its root; released after the elements.
    detail::ArenaOwner m_arena;
    detail::Slots<detail::EntityPtr> m_elements;
};

} // namespace minijson
