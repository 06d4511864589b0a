#include "minijson/arena.h"

#include <algorithm>
#include <cstdlib>

namespace minijson::detail {
Arena::~Arena()
{
    while (m_chunks) {
        Chunk* next = m_chunks->next;
        std::free(m_chunks);
        m_chunks = next;
    }
}

void Arena::grow(std::size_t size)
{
    const std::size_t payload = std::max(size, m_nextChunk);
    void* memory = std::malloc(sizeof(Chunk) + payload);
    if (!memory)
        throw std::bad_alloc();
    Chunk* chunk = static_cast<Chunk*>(memory);
    chunk->next = m_chunks;
    m_chunks = chunk;
    m_pos = reinterpret_cast<char*>(chunk + 1);
    m_end = m_pos + payload;
    m_nextChunk = m_laterChunks;
}

ArenaOwner::~ArenaOwner()
{
    delete m_arena;
}

} // namespace minijson::detail
