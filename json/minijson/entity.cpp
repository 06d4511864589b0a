#include "minijson/entity.h"

#include "minijson/array.h"
#include "minijson/exceptions.h"
#include "minijson/number.h"
#include "minijson/object.h"
#include "minijson/scalars.h"
#include "minijson/writer.h"

namespace minijson {
namespace {

// One checked downcast for all six views; `view` and `kindName` only build the message.
template <typename T> T& viewAs(CEntity& entity, CEntity::EKind kind, const char* view, const char* kindName)
{
    if (entity.Kind() != kind)
        throw CException("%s() failed for non %s entity", view, kindName);
    return static_cast<T&>(entity);
}

} // namespace

#define MINIJSON_TYPED_VIEW(Type, View)                                                                      \
    Type& CEntity::View()                                                                                    \
    {                                                                                                        \
        return viewAs<Type>(*this, EKind::View, #View, #Type);                                               \
    }                                                                                                        \
    const Type& CEntity::View() const                                                                        \
    {                                                                                                        \
        return viewAs<Type>(const_cast<CEntity&>(*this), EKind::View, #View, #Type);                         \
    }

MINIJSON_TYPED_VIEW(CObject, Object)
MINIJSON_TYPED_VIEW(CArray, Array)
MINIJSON_TYPED_VIEW(CString, String)
MINIJSON_TYPED_VIEW(CNumber, Number)
MINIJSON_TYPED_VIEW(CBoolean, Boolean)
MINIJSON_TYPED_VIEW(CNull, Null)

#undef MINIJSON_TYPED_VIEW

const std::string& CEntity::StringValue() const
{
    if (!IsString())
        throw CException("Called StringValue for non string entity");
    return static_cast<const CString&>(*this).Value();
}

CEntity& CEntity::operator[](std::string_view key)
{
    if (!IsObject())
        throw CException("operator[](key) is only allowed for objects");
    CEntity* member = static_cast<CObject&>(*this).Find(key);
    if (!member)
        throw CException("key '%.*s' not found in operator[]", static_cast<int>(key.size()), key.data());
    return *member;
}

const CEntity& CEntity::operator[](std::string_view key) const
{
    return const_cast<CEntity&>(*this)[key];
}

CEntity& CEntity::operator[](int index)
{
    if (IsArray())
        return static_cast<CArray&>(*this).EntityAtIndex(index);
    if (IsObject())
        return static_cast<CObject&>(*this).EntityAtIndex(index);
    throw CException("operator[](int) is only allowed for arrays and objects");
}

const CEntity& CEntity::operator[](int index) const
{
    return const_cast<CEntity&>(*this)[index];
}

const std::string& CEntity::ObjectMemberNameByIndex(int index) const
{
    if (!IsObject())
        throw CException("ObjectMemberNameByIndex() is only allowed for objects");
    return static_cast<const CObject&>(*this).MemberNameByIndex(index);
}

int CEntity::Count() const noexcept
{
    if (IsObject())
        return static_cast<const CObject&>(*this).Count();
    if (IsArray())
        return static_cast<const CArray&>(*this).Count();
    return 0;
}

std::string CEntity::ToString(bool indented, std::string_view indent, int level) const
{
    return CWriter(indented, std::string(indent)).Write(*this, level);
}

} // namespace minijson
