#pragma once

#include "minijson/entity.h"

#include <cstddef>
#include <new>
#include <utility>

namespace minijson::detail {

// Bump allocation for the values of one parsed tree: the parser takes their memory from here
// instead of one heap block each, and the whole arena is freed at once with the tree's root.
// Memory of a value removed from the tree is only reused when the tree goes.
class Arena
{
public:
    // The sizes of the first block, which is taken only when the first value needs it, and of
    // every later one.
    Arena(std::size_t firstChunk, std::size_t laterChunks) noexcept
        : m_nextChunk(firstChunk), m_laterChunks(laterChunks)
    {
    }
    ~Arena();
    Arena(const Arena&) = delete;
    Arena& operator=(const Arena&) = delete;

    bool Empty() const noexcept { return m_chunks == nullptr; }

    void* Allocate(std::size_t size)
    {
        size = (size + kAlignment - 1) & ~(kAlignment - 1);
        if (static_cast<std::size_t>(m_end - m_pos) < size)
            grow(size);
        void* block = m_pos;
        m_pos += size;
        return block;
    }

    // Takes the blocks of `other`, which is left empty.
    void TakeFrom(Arena& other) noexcept
    {
        std::swap(m_chunks, other.m_chunks);
        std::swap(m_pos, other.m_pos);
        std::swap(m_end, other.m_end);
        std::swap(m_nextChunk, other.m_nextChunk);
        std::swap(m_laterChunks, other.m_laterChunks);
    }

private:
    static constexpr std::size_t kAlignment = alignof(std::max_align_t);

    struct alignas(kAlignment) Chunk
    {
        Chunk* next;
    };

    void grow(std::size_t size);

    Chunk* m_chunks = nullptr;
    char* m_pos = nullptr;
    char* m_end = nullptr;
    std::size_t m_nextChunk;
    std::size_t m_laterChunks;
};

} // namespace minijson::detail
