#pragma once

#include <memory>
#include <string>
#include <string_view>

namespace minijson {

class CObject;
class CArray;
class CString;
class CNumber;
class CBoolean;
class CNull;
class CEntity;

namespace detail {

class Arena;
struct TreeAccess;

// Deletes a value held by a container. The parser places the values of a tree in an arena that
// the tree's root owns: such a value is only destroyed here, its memory goes with the arena.
struct EntityDeleter
{
    void operator()(CEntity* entity) const noexcept;
};
using EntityPtr = std::unique_ptr<CEntity, EntityDeleter>;

// The arena of a parsed tree, kept by its root. Declared as the root's first member, so that it
// is released only after every value in it has been destroyed.
class ArenaOwner
{
public:
    ArenaOwner() noexcept = default;
    ~ArenaOwner();
    ArenaOwner(const ArenaOwner&) = delete;
    ArenaOwner& operator=(const ArenaOwner&) = delete;

    void Adopt(Arena* arena) noexcept { m_arena = arena; }

private:
    Arena* m_arena = nullptr;
};

} // namespace detail

// The abstract base of every JSON value. A value is owned by the container that holds it (or,
// for the root of a tree, by the caller of the parser); deleting a container deletes its members.
//
// The typed views (Object(), Array(), ...) and operator[] throw CException when the value is of
// another kind, so that a reply of an unexpected shape ends in one catch block instead of a crash.
class CEntity
{
public:
    enum class EKind
    {
        Object,
        Array,
        String,
        Number,
        Boolean,
        Null
    };

    virtual ~CEntity() = default;
    CEntity(const CEntity&) = delete;
    CEntity& operator=(const CEntity&) = delete;

    EKind Kind() const noexcept { return m_kind; }
    bool IsObject() const noexcept { return m_kind == EKind::Object; }
    bool IsArray() const noexcept { return m_kind == EKind::Array; }
    bool IsString() const noexcept { return m_kind == EKind::String; }
    bool IsNumber() const noexcept { return m_kind == EKind::Number; }
    bool IsBoolean() const noexcept { return m_kind == EKind::Boolean; }
    bool IsNull() const noexcept { return m_kind == EKind::Null; }

    // Typed views; each throws "<View>() failed for non C<Kind> entity" for another kind.
    CObject& Object();
    const CObject& Object() const;
    CArray& Array();
    const CArray& Array() const;
    CString& String();
    const CString& String() const;
    CNumber& Number();
    const CNumber& Number() const;
    CBoolean& Boolean();
    const CBoolean& Boolean() const;
    CNull& Null();
    const CNull& Null() const;

    // The text of a string value; throws for any other kind.
    const std::string& StringValue() const;

    // Member by name; objects only.
    CEntity& operator[](std::string_view key);
    const CEntity& operator[](std::string_view key) const;
    // Element of an array, or member of an object in member order.
    CEntity& operator[](int index);
    const CEntity& operator[](int index) const;
    const std::string& ObjectMemberNameByIndex(int index) const;
    // Members of an object or elements of an array; 0 for every other kind.
    int Count() const noexcept;

    // A deep copy that the caller owns.
    virtual std::unique_ptr<CEntity> Copy() const = 0;

    // Compact form by default; indented puts every member and element on its own line, prefixed
    // by `indent` repeated to its nesting level (`level` is the level this value starts at).
    std::string ToString(bool indented = false, std::string_view indent = "  ", int level = 0) const;

protected:
    explicit CEntity(EKind kind) noexcept : m_kind(kind) {}

private:
    friend struct detail::EntityDeleter;
    friend struct detail::TreeAccess;

    const EKind m_kind;
    // Set for values that the parser placed in the arena of their tree.
    bool m_inArena = false;
};

inline void detail::EntityDeleter::operator()(CEntity* entity) const noexcept
{
    if (entity && entity->m_inArena)
        entity->~CEntity();
    else
        delete entity;
}

} // namespace minijson
