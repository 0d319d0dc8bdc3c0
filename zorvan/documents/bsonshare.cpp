// SPDX-License-Identifier: MIT
// Documents that are read where they lie.

#include "zorvan/documents/bson.h"
#include "zorvan/documents/bsonwalk.h"

#include <cstring>
#include <stdexcept>
#include <vector>

namespace bson {

namespace {

using detail::CElementBuilder;

/// What is done about documents inside an element.
enum class ENested
{
    Checked,
    Trusted ///< passed over by their length, for values that a reader has written
};

/// Bytes in memory. An element that is there as a reader would write it is shared; any other (wrong lengths, cut short,
/// a regular expression without its padding) is read again, by who copies and mends it.
class CBytesSource
{
public:
    CBytesSource(const std::shared_ptr<const unsigned char[]>& bytes, std::uint64_t size, ENested nested)
        : m_bytes(bytes),
          m_at(bytes.get()),
          m_end(m_at + size),
          m_nested(nested),
          m_smallestShared(bytes.use_count() != 0 ? detail::uiSmallestShared : size + 1)
    {
    }

    [[nodiscard]] bool good() const { return !m_isCut; }
    [[nodiscard]] int peek() const { return m_at != m_end ? *m_at : detail::iEnd; }

    std::optional<unsigned char> passByte()
    {
        if (m_at == m_end) return cut(), std::nullopt;
        return *m_at++;
    }

    bool passText()
    {
        const void* const nul = m_at != m_end ? std::memchr(m_at, 0, left()) : nullptr;
        if (nul == nullptr) return cut();
        m_at = static_cast<const unsigned char*>(nul) + 1;
        return true;
    }

    bool passBytes(std::uint64_t size)
    {
        if (size > left()) return cut();
        m_at += size;
        return true;
    }

    std::optional<std::uint32_t> passLength()
    {
        const unsigned char* const length = m_at;
        if (!passBytes(detail::uiLengthBytes)) return std::nullopt;
        return detail::load<std::uint32_t>(length);
    }

    void passPadding()
    {
        for (std::uint64_t i = 0; i < detail::uiRegexPaddingBytes; ++i) {
            if (peek() == detail::uiRegexPadding)
                ++m_at;
            else
                m_isAsWritten = false;
        }
    }

    void open()
    {
        const unsigned char* const start = m_at;
        const auto length = passLength();
        if (m_nested == ENested::Trusted && length)
            passBytes(std::uint64_t{*length} + 1);
        else
            m_open.push_back(start);
    }

    void close()
    {
        const auto length = static_cast<std::uint64_t>(m_at - m_open.back()) - detail::uiLengthBytes;
        m_isAsWritten = m_isAsWritten && good() && detail::load<std::uint32_t>(m_open.back()) == length;
        m_open.pop_back();
        skipByte();
    }

    [[nodiscard]] std::size_t depth() const { return m_open.size(); }

    void start()
    {
        m_start = m_at;
        m_isAsWritten = true;
    }
    [[nodiscard]] std::uint64_t offset() const { return static_cast<std::uint64_t>(m_at - m_start); }
    void drop(std::uint64_t /*offset*/) { m_isAsWritten = false; }

    void skipByte()
    {
        if (good()) passBytes(1);
    }

    void give(element& to, std::uint64_t value)
    {
        const std::uint64_t size = offset();
        if (!m_isAsWritten)
            to = element::unfreeze(m_start, size);
        else if (size < m_smallestShared)
            CElementBuilder::copy(to, m_start, size, size - value);
        else
            CElementBuilder::share(to, {m_bytes, m_start}, size, size - value);
    }

    [[nodiscard]] std::uint64_t position() const { return static_cast<std::uint64_t>(m_at - m_bytes.get()); }

private:
    [[nodiscard]] std::uint64_t left() const { return static_cast<std::uint64_t>(m_end - m_at); }

    bool cut()
    {
        m_at = m_end;
        m_isCut = true;
        return false;
    }

    const std::shared_ptr<const unsigned char[]>& m_bytes;
    const unsigned char* m_at;
    const unsigned char* m_end;
    ENested m_nested;
    std::uint64_t m_smallestShared;
    const unsigned char* m_start = nullptr;   ///< of the element that is read
    std::vector<const unsigned char*> m_open; ///< documents inside it, the innermost last
    bool m_isAsWritten = true;                ///< a reader would write that element just so
    bool m_isCut = false;
};

} // namespace

object object::unfreeze(const std::shared_ptr<const unsigned char[]>& bytes, std::uint64_t size)
{
    CBytesSource source(bytes, size, ENested::Checked);
    return detail::TWalk(source).readObject();
}

object object::unfreeze(const std::shared_ptr<const unsigned char[]>& bytes, std::uint64_t size, unfreeze_end& end)
{
    object result;
    CBytesSource source(bytes, size, ENested::Checked);
    try {
        result = detail::TWalk(source).readObject();
        end.reason = source.good() ? unfreeze_end::eWhole : unfreeze_end::eCut;
    } catch (const detail::CUnreadable& unreadable) {
        end.reason = unreadable.reason();
    }
    end.position = source.position();
    return result;
}

namespace detail {

object childrenOf(const std::shared_ptr<const unsigned char[]>& bytes, std::uint64_t size)
{
    CBytesSource source(bytes, size, ENested::Trusted);
    return TWalk(source).readObject();
}

void demandRoomAround(const object& o)
{
    // A level is seven bytes at least: type, an empty name, length and closing byte.
    constexpr std::uint64_t uiSmallestLevel = 7;
    const std::shared_ptr<const unsigned char[]> nobody;
    for (const element& e : o) {
        if (e.type() != element::eObject || e.size() / uiSmallestLevel < uiMaxNesting) continue;
        const std::shared_ptr<const unsigned char[]> bytes(nobody, e.raw());
        CBytesSource source(bytes, e.size(), ENested::Checked);
        try {
            TWalk(source, uiMaxNesting - 1).passElement();
        } catch (const CUnreadable&) {
            throw std::length_error("documents nested too deeply");
        }
    }
}

} // namespace detail

} // namespace bson
