#include "minijson/object.h"

#include "minijson/array.h"
#include "minijson/exceptions.h"
#include "minijson/number.h"
#include "minijson/scalars.h"

namespace minijson {

namespace {

// FNV-1a: member names are short, so a simple byte loop beats a general-purpose hash.
std::size_t hashName(std::string_view name) noexcept
{
    std::uint64_t hash = 0xcbf29ce484222325u;
    for (const char c : name)
        hash = (hash ^ static_cast<unsigned char>(c)) * 0x100000001b3u;
    return static_cast<std::size_t>(hash ^ (hash >> 32));
}

} // namespace

CObject::~CObject() = default;

std::size_t CObject::findPosition(std::string_view name) const noexcept
{
    if (m_index.empty()) {
        for (std::size_t i = 0; i < m_members.size(); ++i) {
            if (m_members[i].name == name)
                return i;
        }
        return kNotFound;
    }
    const std::size_t mask = m_index.size() - 1;
    for (std::size_t slot = hashName(name) & mask;; slot = (slot + 1) & mask) {
        const std::uint32_t entry = m_index[slot];
        if (entry == 0)
            return kNotFound;
        if (m_members[entry - 1].name == name)
            return entry - 1;
    }
}

void CObject::rebuildIndex()
{
    if (m_members.size() < kIndexedFrom) {
        m_index.clear();
        m_index.shrink_to_fit();
        return;
    }
    // A power of two, so that the mask reaches every slot and probing visits them all.
    std::size_t slots = 64;
    while (slots < 2 * m_members.size())
        slots *= 2;
    m_index.assign(slots, 0);
    const std::size_t mask = slots - 1;
    for (std::size_t position = 0; position < m_members.size(); ++position) {
        std::size_t slot = hashName(m_members[position].name) & mask;
        while (m_index[slot] != 0)
            slot = (slot + 1) & mask;
        m_index[slot] = static_cast<std::uint32_t>(position + 1);
    }
}

void CObject::indexPosition(std::size_t position)
{
    if (2 * m_members.size() > m_index.size()) {
        rebuildIndex(); // lists every member, the new one included
        return;
    }
    const std::size_t mask = m_index.size() - 1;
    std::size_t slot = hashName(m_members[position].name) & mask;
    while (m_index[slot] != 0)
        slot = (slot + 1) & mask;
    m_index[slot] = static_cast<std::uint32_t>(position + 1);
}

void CObject::settleLast(detail::EntityPtr&& value)
{
    const std::size_t last = m_members.size() - 1;
    const std::string& name = m_members[last].name;
    std::size_t earlier = kNotFound;
    if (!m_index.empty()) {
        earlier = findPosition(name); // the index does not list the last member yet
    } else {
        for (std::size_t i = 0; i < last && earlier == kNotFound; ++i) {
            if (m_members[i].name == name)
                earlier = i;
        }
    }
    if (earlier != kNotFound) {
        m_members[earlier].value = std::move(value);
        m_members.pop_back();
        return;
    }
    m_members[last].value = std::move(value);
    if (m_members.size() >= kIndexedFrom)
        indexPosition(last); // a failure here abandons the whole parse, so the object may stay unindexed
}

CEntity& CObject::set(std::string&& name, detail::EntityPtr value)
{
    CEntity& added = *value;
    const std::size_t position = findPosition(name);
    if (position != kNotFound) {
        m_members[position].value = std::move(value);
        return added;
    }
    if (m_members.empty())
        m_members.reserve(8); // saves the first few regrowths; bridge objects are mostly small
    m_members.push_back(Member(std::move(name), std::move(value)));
    if (m_members.size() >= kIndexedFrom) {
        try {
            indexPosition(m_members.size() - 1);
        } catch (...) {
            m_members.pop_back(); // keep members and index in step
            throw;
        }
    }
    return added;
}

bool CObject::Contains(std::string_view name) const
{
    return findPosition(name) != kNotFound;
}

CEntity* CObject::Find(std::string_view name) noexcept
{
    const std::size_t position = findPosition(name);
    return position == kNotFound ? nullptr : m_members[position].value.get();
}

const CEntity* CObject::Find(std::string_view name) const noexcept
{
    return const_cast<CObject*>(this)->Find(name);
}

CEntity& CObject::EntityAtIndex(int index)
{
    if (index < 0 || index >= Count())
        throw CException("index %d out of bounds for EntityAtIndex()", index);
    return *m_members[static_cast<std::size_t>(index)].value;
}

const CEntity& CObject::EntityAtIndex(int index) const
{
    return const_cast<CObject*>(this)->EntityAtIndex(index);
}

const std::string& CObject::MemberNameByIndex(int index) const
{
    if (index < 0 || index >= Count())
        throw CException("index %d out of bounds for MemberNameByIndex()", index);
    return m_members[static_cast<std::size_t>(index)].name;
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
    return set(std::move(name), detail::EntityPtr(value.release()));
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
    const std::size_t position = findPosition(name);
    if (position == kNotFound)
        return false;
    m_members.erase(position);
    if (!m_index.empty())
        rebuildIndex(); // the positions behind the removed member have moved
    return true;
}

void CObject::MergeFrom(const CObject& other, bool overwrite)
{
    if (&other == this)
        return; // every member is already present with the same value
    for (const Member& member : other.m_members) {
        if (overwrite || !Contains(member.name))
            Add(member.name, member.value->Copy());
    }
}

std::unique_ptr<CEntity> CObject::Copy() const
{
    auto copy = std::make_unique<CObject>();
    copy->m_members.reserve(m_members.size());
    for (const Member& member : m_members)
        copy->m_members.push_back(Member(member.name, detail::EntityPtr(member.value->Copy().release())));
    copy->rebuildIndex();
    return copy;
}

} // namespace minijson
