#include "minijson/object.h"

#include "minijson/array.h"
#include "minijson/exceptions.h"
#include "minijson/number.h"
#include "minijson/scalars.h"

#include <algorithm>

namespace minijson {

bool CObject::Contains(std::string_view name) const
{
    return m_members.find(name) != m_members.end();
}

CEntity* CObject::Find(std::string_view name) noexcept
{
    const auto it = m_members.find(name);
    return it == m_members.end() ? nullptr : it->second.get();
}

const CEntity* CObject::Find(std::string_view name) const noexcept
{
    return const_cast<CObject*>(this)->Find(name);
}

CEntity& CObject::EntityAtIndex(int index)
{
    if (index < 0 || index >= Count())
        throw CException("index %d out of bounds for EntityAtIndex()", index);
    return *m_order[static_cast<std::size_t>(index)]->second;
}

const CEntity& CObject::EntityAtIndex(int index) const
{
    return const_cast<CObject*>(this)->EntityAtIndex(index);
}

const std::string& CObject::MemberNameByIndex(int index) const
{
    if (index < 0 || index >= Count())
        throw CException("index %d out of bounds for MemberNameByIndex()", index);
    return m_order[static_cast<std::size_t>(index)]->first;
}

int CObject::GetInt(std::string_view name, int defaultValue) const
{
    const CEntity* member = Find(name);
    return member && member->IsNumber() ? member->Number().ValueInt() : defaultValue;
}

float CObject::GetFloat(std::string_view name, float defaultValue) const
{
    const CEntity* member = Find(name);
    return member && member->IsNumber() ? member->Number().ValueFloat() : defaultValue;
}

double CObject::GetDouble(std::string_view name, double defaultValue) const
{
    const CEntity* member = Find(name);
    return member && member->IsNumber() ? member->Number().ValueDouble() : defaultValue;
}

bool CObject::GetBoolean(std::string_view name, bool defaultValue) const
{
    const CEntity* member = Find(name);
    return member && member->IsBoolean() ? member->Boolean().Value() : defaultValue;
}

std::string CObject::GetString(std::string_view name, std::string_view defaultValue) const
{
    const CEntity* member = Find(name);
    return member && member->IsString() ? member->StringValue() : std::string(defaultValue);
}

CObject* CObject::GetObject(std::string_view name) noexcept
{
    CEntity* member = Find(name);
    return member && member->IsObject() ? &member->Object() : nullptr;
}

const CObject* CObject::GetObject(std::string_view name) const noexcept
{
    return const_cast<CObject*>(this)->GetObject(name);
}

CArray* CObject::GetArray(std::string_view name) noexcept
{
    CEntity* member = Find(name);
    return member && member->IsArray() ? &member->Array() : nullptr;
}

const CArray* CObject::GetArray(std::string_view name) const noexcept
{
    return const_cast<CObject*>(this)->GetArray(name);
}

CEntity& CObject::Add(std::string name, std::unique_ptr<CEntity> value)
{
    if (!value)
        throw CException("cannot add a null entity as member '%s'", name.c_str());
    CEntity& added = *value;
    const auto it = m_members.lower_bound(name);
    if (it != m_members.end() && it->first == name) {
        it->second = std::move(value);
    } else {
        if (m_order.empty())
            m_order.reserve(8); // saves the first few regrowths; bridge objects are mostly small
        const auto inserted = m_members.emplace_hint(it, std::move(name), std::move(value));
        try {
            m_order.push_back(&*inserted);
        } catch (...) {
            m_members.erase(inserted); // keep map and order list in step
            throw;
        }
    }
    return added;
}

template <typename T, typename... Args> T& CObject::emplace(std::string name, Args&&... args)
{
    return static_cast<T&>(Add(std::move(name), std::make_unique<T>(std::forward<Args>(args)...)));
}

CObject& CObject::AddObject(std::string name)
{
    return emplace<CObject>(std::move(name));
}

CArray& CObject::AddArray(std::string name)
{
    return emplace<CArray>(std::move(name));
}

CNumber& CObject::AddNumber(std::string name)
{
    return emplace<CNumber>(std::move(name));
}

CString& CObject::AddString(std::string name, std::string text)
{
    return emplace<CString>(std::move(name), std::move(text));
}

CBoolean& CObject::AddBoolean(std::string name, bool value)
{
    return emplace<CBoolean>(std::move(name), value);
}

CNull& CObject::AddNull(std::string name)
{
    return emplace<CNull>(std::move(name));
}

void CObject::SetInt(std::string name, int value)
{
    AddNumber(std::move(name)).SetInt(value);
}

void CObject::SetFloat(std::string name, float value)
{
    AddNumber(std::move(name)).SetFloat(value);
}

void CObject::SetDouble(std::string name, double value)
{
    AddNumber(std::move(name)).SetDouble(value);
}

void CObject::SetString(std::string name, std::string text)
{
    AddString(std::move(name), std::move(text));
}

void CObject::SetBoolean(std::string name, bool value)
{
    AddBoolean(std::move(name), value);
}

bool CObject::Remove(std::string_view name)
{
    const auto it = m_members.find(name);
    if (it == m_members.end())
        return false;
    m_order.erase(std::find(m_order.begin(), m_order.end(), &*it));
    m_members.erase(it);
    return true;
}

void CObject::MergeFrom(const CObject& other, bool overwrite)
{
    if (&other == this)
        return; // every member is already present with the same value
    for (const Members::value_type* member : other.m_order) {
        if (overwrite || !Contains(member->first))
            Add(member->first, member->second->Copy());
    }
}

std::unique_ptr<CEntity> CObject::Copy() const
{
    auto copy = std::make_unique<CObject>();
    copy->m_order.reserve(m_order.size());
    for (const Members::value_type* member : m_order)
        copy->Add(member->first, member->second->Copy());
    return copy;
}

} // namespace minijson
