#pragma once

#include "minijson/arena.h"
#include "minijson/array.h"
#include "minijson/number.h"
#include "minijson/object.h"
#include "minijson/scalars.h"

#include <new>
#include <string_view>
#include <utility>
#include <vector>

namespace minijson::detail {

// The parser's way into the containers and values it fills; not for callers.
struct TreeAccess
{
    using Member = CObject::Member;
    static constexpr std::size_t kIndexedFrom = CObject::kIndexedFrom;

    // Constructs a value in `arena`; it must end up in a container of the tree that owns `arena`.
    template <typename T, typename... Args> static T* Make(Arena& arena, Args&&... args)
    {
        T* value = new (arena.Allocate(sizeof(T))) T(std::forward<Args>(args)...);
        value->m_inArena = true;
        return value;
    }

    static CNumber* MakeNumber(Arena& arena, std::string_view checkedText)
    {
        return Make<CNumber>(arena, checkedText, CNumber::TrustedText());
    }

    static ArenaOwner& ArenaOf(CObject& object) noexcept { return object.m_arena; }
    static ArenaOwner& ArenaOf(CArray& array) noexcept { return array.m_arena; }

    static std::string& TextOf(CString& string) noexcept { return string.m_value; }

    // Moves the members from `base` on out of the parser's stack into the empty `object`; their
    // names are distinct. A small object keeps them in the arena, a large one, which may well
    // keep growing, on the heap beside its index.
    static void TakeMembers(CObject& object, std::vector<Member>& stack, std::size_t base, Arena& arena)
    {
        const auto first = stack.begin() + static_cast<std::ptrdiff_t>(base);
        const std::size_t count = stack.size() - base;
        if (count >= kIndexedFrom) {
            object.m_members.reserve(2 * count);
            for (auto it = first; it != stack.end(); ++it)
                object.m_members.push_back(std::move(*it));
            object.rebuildIndex();
        } else {
            object.m_members.adopt(arena.Allocate(count * sizeof(Member)), &*first, &*first + count);
        }
        stack.erase(first, stack.end());
    }

    static void Set(CObject& object, std::string&& name, EntityPtr value)
    {
        object.set(std::move(name), std::move(value));
    }

    static void TakeElements(CArray& array, std::vector<EntityPtr>& stack, std::size_t base, Arena& arena)
    {
        const auto first = stack.begin() + static_cast<std::ptrdiff_t>(base);
        const std::size_t count = stack.size() - base;
        array.m_elements.adopt(arena.Allocate(count * sizeof(EntityPtr)), &*first, &*first + count);
        stack.erase(first, stack.end());
    }
};

} // namespace minijson::detail
