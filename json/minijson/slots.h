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
    Slots() noexcept : m_capacity(0), m_onHeap(0) {}
    ~Slots()
    {
        clear();
        release();
    }
    Slots(const Slots&) = delete;
    Slots& operator=(const Slots&) = delete;

    std::size_t size() const noexcept { return m_size; }
    std::size_t capacity() const noexcept { return m_capacity; }
    bool onHeap() const noexcept { return m_onHeap != 0; }
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

    // Only with room left (see capacity()).
    template <typename... Args> T& emplace_back_in_place(Args&&... args)
    {
        T* value = new (m_data + m_size) T(std::forward<Args>(args)...);
        ++m_size;
        return *value;
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
    void adopt(void* block, T* first, T* last)
    {
        if (static_cast<std::size_t>(last - first) > kMaxCapacity)
            throw std::bad_alloc();
        m_data = static_cast<T*>(block);
        for (; first != last; ++first)
            new (m_data + m_size++) T(std::move(*first));
        m_capacity = static_cast<std::uint32_t>(m_size);
        m_onHeap = 0;
    }

    // Moves the values into `block`, which has room for `capacity` of them and outlives this.
    void relocate(void* block, std::size_t capacity) noexcept
    {
        T* data = static_cast<T*>(block);
        for (std::size_t i = 0; i < m_size; ++i) {
            new (data + i) T(std::move(m_data[i]));
            m_data[i].~T();
        }
        release();
        m_data = data;
        m_capacity = static_cast<std::uint32_t>(capacity);
        m_onHeap = 0;
    }

private:
    void moveTo(std::size_t capacity)
    {
        if (capacity > kMaxCapacity)
            throw std::bad_alloc();
        void* data = std::malloc(capacity * sizeof(T));
        if (!data)
            throw std::bad_alloc();
        relocate(data, capacity);
        m_onHeap = 1;
    }

    void release() noexcept
    {
        if (m_onHeap)
            std::free(m_data);
    }

    static constexpr std::size_t kMaxCapacity = 0x7fffffff;

    T* m_data = nullptr;
    std::uint32_t m_size = 0;
    std::uint32_t m_capacity : 31;
    std::uint32_t m_onHeap : 1;
};

} // namespace minijson::detail
