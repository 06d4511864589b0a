#include "minijson/array.h"

#include "minijson/exceptions.h"
#include "minijson/number.h"
#include "minijson/object.h"
#include "minijson/scalars.h"

namespace minijson {

CArray::~CArray() = default;

CEntity& CArray::EntityAtIndex(int index)
{
    if (index < 0 || index >= Count())
        throw CException("index %d out of bounds for EntityAtIndex()", index);
    return *m_elements[static_cast<std::size_t>(index)];
}

const CEntity& CArray::EntityAtIndex(int index) const
{
    return const_cast<CArray*>(this)->EntityAtIndex(index);
}

CEntity& CArray::Append(std::unique_ptr<CEntity> value)
{
    if (!value)
        throw CException("cannot append a null entity to an array");
    detail::EntityPtr owned(value.release());
    m_elements.push_back(std::move(owned));
    return *m_elements.back();
}

template <typename T, typename... Args> T& CArray::emplace(Args&&... args)
{
    return static_cast<T&>(Append(std::make_unique<T>(std::forward<Args>(args)...)));
}

CObject& CArray::AddObject()
{
    return emplace<CObject>();
}

CArray& CArray::AddArray()
{
    return emplace<CArray>();
}

CNumber& CArray::AddNumber()
{
    return emplace<CNumber>();
}

CString& CArray::AddString(std::string text)
{
    return emplace<CString>(std::move(text));
}

CBoolean& CArray::AddBoolean(bool value)
{
    return emplace<CBoolean>(value);
}

CNull& CArray::AddNull()
{
    return emplace<CNull>();
}

void CArray::Remove(int index)
{
    if (index < 0 || index >= Count())
        throw CException("index out of range");
    m_elements.erase(static_cast<std::size_t>(index));
}

const std::string& CArray::GetString(int index) const
{
    return EntityAtIndex(index).StringValue();
}

CNumber& CArray::GetNumber(int index)
{
    return EntityAtIndex(index).Number();
}

const CNumber& CArray::GetNumber(int index) const
{
    return EntityAtIndex(index).Number();
}

CObject& CArray::GetObject(int index)
{
    return EntityAtIndex(index).Object();
}

const CObject& CArray::GetObject(int index) const
{
    return EntityAtIndex(index).Object();
}

CArray& CArray::GetArray(int index)
{
    return EntityAtIndex(index).Array();
}

const CArray& CArray::GetArray(int index) const
{
    return EntityAtIndex(index).Array();
}

double CArray::GetDouble(int index, double defaultValue) const
{
    if (index < 0 || index >= Count() || !m_elements[static_cast<std::size_t>(index)]->IsNumber())
        return defaultValue;
    return m_elements[static_cast<std::size_t>(index)]->Number().ValueDouble();
}

std::unique_ptr<CEntity> CArray::Copy() const
{
    auto copy = std::make_unique<CArray>();
    copy->m_elements.reserve(m_elements.size());
    for (const auto& element : m_elements)
        copy->m_elements.push_back(detail::EntityPtr(element->Copy().release()));
    return copy;
}

} // namespace minijson
