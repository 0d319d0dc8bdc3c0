// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <type_traits>
#include <typeinfo>
#include <utility>
#include <vector>

namespace graphene {

/// N numbers, all zero at first.
template <typename T, int N>
class Vector
{
public:
    Vector() = default;
    template <typename... Values>
    requires(sizeof...(Values) == N) Vector(Values... values) : m_values{static_cast<T>(values)...} {}

    T& operator[](int i) { return m_values[i]; }
    const T& operator[](int i) const { return m_values[i]; }

    friend bool operator==(const Vector&, const Vector&) = default;

private:
    T m_values[N]{};
};

/// Entry i becomes the one that was at `old[i]`.
template <typename T>
void PutInOrder(std::vector<T>& values, std::span<const std::uint32_t> old)
{
    std::vector<T> ordered;
    ordered.reserve(old.size());
    for (const std::uint32_t i : old) ordered.push_back(std::move(values[i]));
    values = std::move(ordered);
}

/// The named arrays of one kind of element, all of one length.
class CMeshProperties
{
public:
    template <typename T>
    struct TArray;

    CMeshProperties() = default;
    CMeshProperties(CMeshProperties&&) = default;
    CMeshProperties& operator=(CMeshProperties&&) = default;
    ~CMeshProperties() = default;

    CMeshProperties(const CMeshProperties& other) : m_size(other.m_size)
    {
        for (const auto& array : other.m_arrays) m_arrays.push_back(array->Copy());
    }
    CMeshProperties& operator=(const CMeshProperties& other) { return *this = CMeshProperties(other); }

    /// The array of this name and type, made with `value` where it was missing; null when it has another type.
    template <typename T>
    std::vector<T>* Add(const std::string& name, const T& value)
    {
        if (hasName(name)) return Find<T>(name);
        m_arrays.push_back(std::make_unique<TArray<T>>(name, value, m_size));
        return Find<T>(name);
    }

    /// Null when there is none of this name and type.
    template <typename T>
    [[nodiscard]] std::vector<T>* Find(const std::string& name) const
    {
        for (const auto& array : m_arrays)
            if (array->name == name && array->type == typeid(T)) return &static_cast<TArray<T>&>(*array).values;
        return nullptr;
    }

    void Resize(std::size_t size)
    {
        m_size = size;
        for (const auto& array : m_arrays) array->Resize(size);
    }

    void Renumber(std::span<const std::uint32_t> old)
    {
        m_size = old.size();
        for (const auto& array : m_arrays) array->Renumber(old);
    }

private:
    struct ABase
    {
        ABase(std::string arrayName, const std::type_info& elementType) : name(std::move(arrayName)), type(elementType)
        {
        }
        ABase(const ABase&) = default;
        ABase& operator=(const ABase&) = delete;
        virtual ~ABase() = default;

        [[nodiscard]] virtual std::unique_ptr<ABase> Copy() const = 0;
        virtual void Resize(std::size_t size) = 0;
        virtual void Renumber(std::span<const std::uint32_t> old) = 0;

        std::string name;
        const std::type_info& type;
    };

    [[nodiscard]] bool hasName(const std::string& name) const
    {
        for (const auto& array : m_arrays)
            if (array->name == name) return true;
        return false;
    }

    std::vector<std::unique_ptr<ABase>> m_arrays;
    std::size_t m_size = 0;
};

template <typename T>
struct CMeshProperties::TArray final : ABase
{
    static_assert(!std::is_same_v<T, bool>, "bits cannot be referred to: take unsigned char");

    TArray(const std::string& arrayName, const T& value, std::size_t size)
        : ABase(arrayName, typeid(T)), defaultValue(value), values(size, value)
    {
    }

    [[nodiscard]] std::unique_ptr<ABase> Copy() const override { return std::make_unique<TArray>(*this); }
    void Resize(std::size_t size) override { values.resize(size, defaultValue); }
    void Renumber(std::span<const std::uint32_t> old) override { PutInOrder(values, old); }

    T defaultValue;
    std::vector<T> values;
};

} // namespace graphene
