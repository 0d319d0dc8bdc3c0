// SPDX-License-Identifier: MIT
#include "zorvan/documents/bson.h"
#include "zorvan/documents/bsonwire.h"
#include "zorvan/platform/bytebuffer.h"
#include "zorvan/platform/unicode.h"

#include <algorithm>
#include <ostream>

namespace bson {

std::string convert(const std::wstring& text) { return Zorvan::Narrow(text); }

std::wstring convert(const std::string& text) { return Zorvan::Widen(text); }

element::element(Type type, const std::string& name, std::uint64_t valueSize) : m_valueSize(valueSize)
{
    // A NUL inside the name would end it early for every reader.
    const std::uint64_t nameSize = std::min(name.find('\0'), name.size());
    m_size = 1 + nameSize + 1 + valueSize;
    auto buffer = Zorvan::MakeByteBuffer(m_size);
    buffer[0] = type;
    *detail::storeBytes(buffer.get() + 1, name.data(), nameSize) = 0;
    m_buffer = std::move(buffer);
}

element::element(element&& other) noexcept
    : m_buffer(std::move(other.m_buffer)),
      m_size(std::exchange(other.m_size, 0)),
      m_valueSize(std::exchange(other.m_valueSize, 0)),
      m_isAsRead(std::exchange(other.m_isAsRead, true))
{
}

element& element::operator=(element&& other) noexcept
{
    if (this == &other) return *this;
    m_buffer = std::move(other.m_buffer);
    m_size = std::exchange(other.m_size, 0);
    m_valueSize = std::exchange(other.m_valueSize, 0);
    m_isAsRead = std::exchange(other.m_isAsRead, true);
    return *this;
}

element::element(const std::string& name) : element(make_null(name)) {}

element::element(const std::string& name, const std::string& value) : element(make_string(name, value)) {}

element::element(const std::string& name, const char* value) : element(make_string(name, std::string(value))) {}

element::element(const std::string& name, const std::wstring& value) : element(make_string(name, value)) {}

element::element(const std::string& name, const wchar_t* value) : element(make_string(name, std::wstring(value))) {}

element::element(const std::string& name, const object& value) : element(make_object(name, value)) {}

element::element(const std::string& name, signed char value) : element(make_int8(name, value)) {}

element::element(const std::string& name, unsigned char value) : element(make_uint8(name, value)) {}

element::element(const std::string& name, short value) : element(make_int16(name, value)) {}

element::element(const std::string& name, unsigned short value) : element(make_uint16(name, value)) {}

element::element(const std::string& name, int value) : element(make_int32(name, value)) {}

element::element(const std::string& name, unsigned int value) : element(make_uint32(name, value)) {}

element::element(const std::string& name, long value) : element(make_int64(name, value)) {}

element::element(const std::string& name, unsigned long value) : element(make_uint64(name, value)) {}

element::element(const std::string& name, long long value) : element(make_int64(name, value)) {}

element::element(const std::string& name, unsigned long long value) : element(make_uint64(name, value)) {}

element::element(const std::string& name, float value) : element(make_float(name, value)) {}

element::element(const std::string& name, double value) : element(make_double(name, value)) {}

element::element(const std::string& name, bool value) : element(make_boolean(name, value)) {}

element::element(const std::string& name, const void* data, std::uint64_t size)
    : element(make_binary(name, data, size, eGeneric))
{
}

element::element(const std::string& name, std::chrono::milliseconds value) : element(make_datetime(name, value)) {}

const char* element::name() const noexcept { return m_buffer ? reinterpret_cast<const char*>(m_buffer.get()) + 1 : ""; }

const unsigned char* element::raw_value() const noexcept
{
    return m_buffer ? m_buffer.get() + (m_size - m_valueSize) : nullptr;
}

void element::demand(Type expected) const
{
    if (type() != expected) throw detail::CBadCast();
}

template <typename T>
T element::read(Type expected) const
{
    demand(expected);
    return detail::load<T>(raw_value());
}

double element::as_double() const { return read<double>(eDouble); }

float element::as_float() const { return read<float>(eFloat); }

std::int8_t element::as_int8() const { return read<std::int8_t>(eInt8); }

std::int16_t element::as_int16() const { return read<std::int16_t>(eInt16); }

std::int32_t element::as_int32() const { return read<std::int32_t>(eInt32); }

std::int64_t element::as_int64() const { return read<std::int64_t>(eInt64); }

std::uint8_t element::as_uint8() const { return read<std::uint8_t>(eUInt8); }

std::uint16_t element::as_uint16() const { return read<std::uint16_t>(eUInt16); }

std::uint32_t element::as_uint32() const { return read<std::uint32_t>(eUInt32); }

std::uint64_t element::as_uint64() const { return read<std::uint64_t>(eUInt64); }

// Bytes from outside may hold more than 0 and 1, which a bool must not.
bool element::as_boolean() const { return read<unsigned char>(eBoolean) != 0; }

std::chrono::milliseconds element::as_datetime() const
{
    return std::chrono::milliseconds(read<std::int64_t>(eDateTime));
}

std::string element::as_string() const
{
    const auto length = read<std::uint32_t>(eString);
    if (length <= 1) return {};
    return {reinterpret_cast<const char*>(raw_value()) + sizeof(length), length - 1};
}

std::tuple<const unsigned char*, std::uint64_t, element::BinaryType> element::as_binary() const
{
    const auto length = read<std::uint32_t>(eBinary);
    const unsigned char* const header = raw_value();
    return {header + detail::uiBinaryHeaderBytes, length, static_cast<BinaryType>(header[sizeof(length)])};
}

memory_input_stream element::as_binary_istream() const
{
    const auto [data, size, binaryType] = as_binary();
    return {data, size};
}

object element::as_object() const
{
    demand(eObject);
    if (m_isAsRead) return detail::childrenOf({m_buffer, raw_value()}, m_valueSize);
    memory_input_stream in(raw_value(), m_valueSize);
    return object::unfreeze(in);
}

std::pair<const char*, const char*> element::as_regex() const
{
    demand(eRegex);
    const char* const pattern = reinterpret_cast<const char*>(raw_value());
    return {pattern, pattern + std::strlen(pattern) + 1};
}

const unsigned char* element::as_uuid() const
{
    if (!detail::holdsUUID(*this)) throw detail::CBadCast();
    return std::get<0>(as_binary());
}

object element::children() const { return type() == eObject ? as_object() : object(); }

bool element::operator==(const element& other) const noexcept
{
    if (m_size != other.m_size) return false;
    return m_size == 0 || std::memcmp(raw(), other.raw(), m_size) == 0;
}

object element::operator+(const element& other) const { return {*this, other}; }

std::pair<std::unique_ptr<unsigned char[]>, std::uint64_t> element::freeze() const
{
    if (!*this) return {};
    auto bytes = std::make_unique_for_overwrite<unsigned char[]>(m_size);
    detail::storeBytes(bytes.get(), raw(), m_size);
    return {std::move(bytes), m_size};
}

std::ostream& element::freeze(std::ostream& out) const
{
    return out.write(reinterpret_cast<const char*>(raw()), static_cast<std::streamsize>(m_size));
}

namespace detail {

bool holdsUUID(const element& e) noexcept
{
    constexpr std::uint64_t uiUUIDBytes = 16;
    return e.type() == element::eBinary && e.size_of_value() >= uiBinaryHeaderBytes + uiUUIDBytes &&
           e.raw_value()[sizeof(std::uint32_t)] == element::eUUID;
}

} // namespace detail

} // namespace bson
