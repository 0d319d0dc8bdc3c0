// SPDX-License-Identifier: MIT
#pragma once

#include <type_traits>
#include <typeinfo>
#include <utility>

namespace Zorvan {

/// One value of any copyable type, or nothing: the payload of graph nodes, graph edges and chained pixels.
///
///     Any label = 2.5;
///     if (const double* value = label.get<double>()) use(*value);
///     label.get<float>();  // null: the type must be the stored one exactly
///
/// Copies are deep. Concurrent reads are safe.
class Any
{
public:
    Any() noexcept = default;

    template <typename T, typename = std::enable_if_t<!std::is_same_v<std::remove_cvref_t<T>, Any>>>
    Any(T&& value)
        : m_value(new std::decay_t<T>(std::forward<T>(value))),
          m_type(&typeid(std::decay_t<T>)),
          m_destroy(&destroyValue<std::decay_t<T>>),
          m_clone(&cloneValue<std::decay_t<T>>)
    {
        static_assert(std::is_copy_constructible_v<std::decay_t<T>>, "copies of an Any are deep");
    }

    Any(const Any& other)
        : m_value(other ? other.m_clone(other.m_value) : nullptr),
          m_type(other.m_type),
          m_destroy(other.m_destroy),
          m_clone(other.m_clone)
    {
    }

    Any(Any&& other) noexcept { swap(other); }

    // The new value is made before the old one goes: it may live inside it, and making it may fail.
    Any& operator=(const Any& other)
    {
        Any copy(other);
        return *this = std::move(copy);
    }

    Any& operator=(Any&& other) noexcept
    {
        Any taken(std::move(other));
        reset();
        swap(taken);
        return *this;
    }

    ~Any() { reset(); }

    void reset() noexcept
    {
        // Emptied first, so that a destructor that looks back at this object finds nothing.
        void* const value = std::exchange(m_value, nullptr);
        const auto destroy = std::exchange(m_destroy, nullptr);
        m_clone = nullptr;
        m_type = &typeid(void);
        if (value) destroy(value);
    }

    [[nodiscard]] explicit operator bool() const noexcept { return m_value != nullptr; }

    /// The type of the stored value, that of `void` when empty.
    [[nodiscard]] const std::type_info& type() const noexcept { return *m_type; }

    /// The stored value when it is exactly a T, else null.
    template <typename T>
    [[nodiscard]] T* get() noexcept
    {
        return m_value && *m_type == typeid(T) ? static_cast<T*>(m_value) : nullptr;
    }

    template <typename T>
    [[nodiscard]] const T* get() const noexcept
    {
        return m_value && *m_type == typeid(T) ? static_cast<const T*>(m_value) : nullptr;
    }

private:
    template <typename T>
    static void destroyValue(void* value) noexcept
    {
        delete static_cast<T*>(value);
    }

    template <typename T>
    static void* cloneValue(const void* value)
    {
        return new T(*static_cast<const T*>(value));
    }

    void swap(Any& other) noexcept
    {
        std::swap(m_value, other.m_value);
        std::swap(m_type, other.m_type);
        std::swap(m_destroy, other.m_destroy);
        std::swap(m_clone, other.m_clone);
    }

    void* m_value = nullptr;
    const std::type_info* m_type = &typeid(void);
    void (*m_destroy)(void*) = nullptr;
    void* (*m_clone)(const void*) = nullptr;
};

} // namespace Zorvan
