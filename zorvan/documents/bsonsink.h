// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/documents/bsonwire.h"

#include <algorithm>
#include <vector>

/// Where readers put the bytes of a document before they know how many there will be; not installed.
namespace bson::detail {

/// Grows as bytes arrive, and gives its memory away without a copy when little of it is unused.
class CByteSink
{
public:
    [[nodiscard]] std::uint64_t size() const { return m_size; }
    [[nodiscard]] unsigned char* data() { return m_data.get(); }
    void truncate(std::uint64_t size) { m_size = size; }

    void reserve(std::uint64_t more)
    {
        if (more <= m_capacity - m_size) return;
        const std::uint64_t capacity = std::max({m_size + more, 2 * m_capacity, uiFirstCapacity});
        auto data = Zorvan::MakeByteBuffer(capacity);
        storeBytes(data.get(), m_data.get(), m_size);
        m_data = std::move(data);
        m_capacity = capacity;
    }

    unsigned char* grow(std::uint64_t more)
    {
        reserve(more);
        m_size += more;
        return m_data.get() + (m_size - more);
    }

    void append(unsigned char byte) { *grow(1) = byte; }

    /// All bytes so far, in memory of their own.
    std::shared_ptr<unsigned char[]> take()
    {
        constexpr std::uint64_t uiMaxWaste = 8; // one byte in this many
        if ((m_capacity - m_size) <= m_size / uiMaxWaste) {
            m_capacity = 0;
            m_size = 0;
            return std::move(m_data);
        }
        auto copy = Zorvan::MakeByteBuffer(m_size);
        storeBytes(copy.get(), m_data.get(), m_size);
        m_size = 0;
        return copy;
    }

private:
    static constexpr std::uint64_t uiFirstCapacity = 64;

    std::shared_ptr<unsigned char[]> m_data;
    std::uint64_t m_size = 0;
    std::uint64_t m_capacity = 0;
};

/// Documents inside one another: each gets its length when it is closed, so nothing is copied from level to level.
class CDocumentSink : public CByteSink
{
public:
    void open()
    {
        m_starts.push_back(size());
        grow(uiLengthBytes);
    }

    void close()
    {
        const std::uint64_t start = m_starts.back();
        store(data() + start, length32(size() - start - uiLengthBytes));
        append(0);
        m_starts.pop_back();
    }

    /// How many are open.
    [[nodiscard]] std::size_t depth() const { return m_starts.size(); }

private:
    std::vector<std::uint64_t> m_starts;
};

} // namespace bson::detail
