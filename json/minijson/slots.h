#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <new>
#include <utility>

namespace minijson::detail {

// The storage of a container's members or elements: a vector whose block either lies in the
// arena of a parsed tree (placed there once by the parser, never freed here) or on the heap.
// The first growth of an arena block moves the values to the heap. T must move without throwing.
template <typename T> class Slots
{
public:
    Slots() noexcept = default;
    ~Slots()
    {
        clear();
        release();
    }
    Slots(const Slots&) = delete;
    Slots& operator=(const Slots&) = delete;

    std::size_t size() const noexcept { return m_size; }
    bool empty() const noexcept { return m_size == 0; }
    T* begin() noexcept { return m_data; }
    T* end() noexcept { return m_data + m_size; }
    const T* begin() const noexcept { return m_data; }
    const T* end() const noexcept { return m_data + m_size; }
    T& operator[](std::size_t index) noexcept { return m_data[index]; }
    const T& operator[](std::size_t index) const noexcept { return m_data[index]; }
    T& back() noexcept { return m_data[m_size - 1]; }

    void reserve(std::size_t capacity)
    {
        if (capacity > m_capacity)
            moveTo(capacity);
    }

    void push_back(T&& value)
    {
        if (m_size == m_capacity)
            moveTo(m_capacity < 4 ? 4 : 2 * m_capacity);
        new (m_data + m_size) T(std::move(value));
        ++m_size;
    }

    void pop_back() noexcept { m_data[--m_size].~T(); }

    void erase(std::size_t position) noexcept
    {
        for (std::size_t i = position + 1; i < m_size; ++i)
            m_data[i - 1] = std::move(m_data[i]);
        pop_back();
    }

    void clear() noexcept
    {
        while (m_size > 0)
            pop_back();
    }

    // Moves [first, last) into `block`, which has room for them and outlives this; only for an
    // empty container.
    void adopt(void* block, T* first, T* last) noexcept
    {
        m_data = static_cast<T*>(block);
        for (; first != last; ++first)
            new (m_data + m_size++) T(std::move(*first));
        m_capacity = m_size;
        m_onHeap = false;
    }

private:
    void moveTo(std::size_t capacity)
    {
        T* data = static_cast<T*>(std::malloc(capacity * sizeof(T)));
        if (!data)
            throw std::bad_alloc();
        for (std::size_t i = 0; i < m_size; ++i) {
            new (data + i) T(std::move(m_data[i]));
            m_data[i].~T();
        }
        release();
        m_data = data;
        m_capacity = capacity;
        m_onHeap = true;
    }

    void release() noexcept
    {
        if (m_onHeap)
            std::free(m_data);
    }

    T* m_data = nullptr;
    std::size_t m_size = 0;
    std::size_t m_capacity = 0;
    bool m_onHeap = false;
};

} // namespace minijson::detail
