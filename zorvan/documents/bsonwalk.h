// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/documents/bsonwire.h"

#include <stdexcept>
#include <string>
#include <vector>

/// The grammar of the wire form, once for all who read it; not installed.
namespace bson::detail {

/// What `peek` gives when no byte comes.
inline constexpr int iEnd = std::char_traits<char>::eof();

/// Thrown at bytes that no reader takes. Bytes that end too early are no such case.
class CUnreadable : public std::invalid_argument
{
public:
    explicit CUnreadable(unfreeze_end::Reason reason) : std::invalid_argument("parse error"), m_reason(reason) {}

    [[nodiscard]] unfreeze_end::Reason reason() const noexcept { return m_reason; }

private:
    unfreeze_end::Reason m_reason;
};

/// Goes over frozen elements and all that is inside them. The nesting comes from outside, so what is open stands in the
/// source and not on the stack. A source passes over bytes in its own way, copying them or not:
///
///     good()                     nothing that was asked for has been missing
///     peek()                     the next byte, or iEnd
///     passByte(), passLength()   one byte, a length; none when they are missing
///     passText(), passBytes(n)   a text with its NUL, n bytes; false when they are missing
///     passPadding()              what fills the spare bytes of a regular expression, where it is there
///     open(), close(), depth()   length and closing byte of a nested document, and how many are open
///     start(), offset()          begins an element; bytes of it that are passed
///     drop(offset)               leaves out what came behind that, since it is cut short
///     skipByte()                 the closing byte of the outermost document
///     give(element, value)       the element that was passed; its value begins at this offset
template <class Source>
class TWalk
{
public:
    explicit TWalk(Source& source, std::size_t maxNesting = uiMaxNesting) : m_source(source), m_maxNesting(maxNesting)
    {
    }

    object readObject()
    {
        object result;
        if (!m_source.passLength()) return result;
        std::vector<element>& elements = CElementBuilder::elements(result);
        while (m_source.good() && m_source.peek() != 0) readElement(elements.emplace_back());
        m_source.skipByte();
        return result;
    }

    /// @param to  empty, and left so when the bytes end before the element does
    void readElement(element& to)
    {
        if (const auto value = passElement()) m_source.give(to, *value);
    }

    /// @return  where the value begins; none when the bytes end before it does
    std::optional<std::uint64_t> passElement()
    {
        m_source.start();
        element::Type type{};
        if (!passHeader(type)) return std::nullopt;
        const std::uint64_t value = m_source.offset();
        if (!passValue(type)) return std::nullopt;
        while (m_source.depth() != 0) passNestedOrClose();
        return value;
    }

private:
    bool passHeader(element::Type& type)
    {
        const auto code = m_source.passByte();
        if (!code) return false;
        type = static_cast<element::Type>(*code);
        return m_source.passText();
    }

    /// Of a document only its start: what is in it follows.
    bool passValue(element::Type type)
    {
        if (const auto size = fixedValueSize(type)) return m_source.passBytes(*size);
        return passOfOwnSize(type);
    }

    bool passOfOwnSize(element::Type type)
    {
        switch (type) {
        case element::eString:
            return passCounted(0);
        case element::eBinary:
            return passCounted(1);
        case element::eRegex:
            return passRegex();
        case element::eObject:
            if (m_source.depth() == m_maxNesting) throw CUnreadable(unfreeze_end::eTooDeep);
            m_source.open();
            return true;
        default:
            throw CUnreadable(unfreeze_end::eUnknownType);
        }
    }

    /// A length, bytes that it does not count, and the bytes that it counts.
    bool passCounted(std::uint64_t uncounted)
    {
        const auto length = m_source.passLength();
        return length && m_source.passBytes(uncounted + *length);
    }

    bool passRegex()
    {
        if (!m_source.passText() || !m_source.passText()) return false;
        m_source.passPadding();
        return true;
    }

    void passNestedOrClose()
    {
        if (m_source.good() && m_source.peek() != 0) return passNested();
        m_source.close();
    }

    /// An element that is cut short leaves nothing behind.
    void passNested()
    {
        const std::uint64_t start = m_source.offset();
        element::Type type{};
        if (!passHeader(type) || !passValue(type)) m_source.drop(start);
    }

    Source& m_source;
    std::size_t m_maxNesting;
};

} // namespace bson::detail
