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

    static CString* MakeString(Arena& arena, const char* text, std::size_t length)
    {
        return Make<CString>(arena, text, length, CString::RawText());
    }

    static Slots<Member>& MembersOf(CObject& object) noexcept { return object.m_members; }

    // Makes room for one more member. A small object keeps its members in the arena; a large
    // one, which may well keep growing, on the heap beside its index.
    static void GrowMembers(CObject& object, Arena& arena)
    {
        Slots<Member>& members = object.m_members;
        const std::size_t capacity = members.capacity() < 4 ? 4 : 2 * members.capacity();
        if (members.onHeap() || members.size() >= kIndexedFrom)
            members.reserve(capacity);
        else
            members.relocate(arena.Allocate(capacity * sizeof(Member)), capacity);
    }

    // Gives the member just named at the end of `object` its value (see CObject::settleLast()).
    // `names` is a bit mask of the names the object has got so far: a small object is searched
    // for a repeated name only when the new name's bit is already set.
    static void SettleLast(CObject& object, EntityPtr&& value, std::uint64_t& names)
    {
        Slots<Member>& members = object.m_members;
        if (object.m_index.empty() && members.size() < kIndexedFrom) {
            const std::string& name = members.back().name;
            const std::size_t size = name.size();
            const unsigned bytes = size == 0 ? 0
                                             : static_cast<unsigned char>(name[0]) * 7u +
                                                   static_cast<unsigned char>(name[size - 1]) * 3u +
                                                   static_cast<unsigned char>(name[size / 2]);
            const std::uint64_t bit = std::uint64_t(1) << ((size * 11 + bytes) & 63);
            if ((names & bit) == 0) {
                names |= bit;
                members.back().value = std::move(value);
                return;
            }
        }
        object.settleLast(std::move(value));
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
