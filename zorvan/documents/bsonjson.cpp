// SPDX-License-Identifier: MIT
#include "zorvan/documents/bson.h"
#include "zorvan/documents/bsonnumbers.h"
#include "zorvan/documents/bsonwire.h"
#include "zorvan/util/base64.h"

#include <array>
#include <cstdio>
#include <new>

namespace bson {

namespace {

enum class EBinaryForm
{
    Base64,
    Abbreviated
};

/// Writes a document into one text; `m_binaryForm` is all in which to_json and dump differ.
class CJsonWriter
{
public:
    CJsonWriter(unsigned int indent, EBinaryForm binaryForm) : m_indent(indent), m_binaryForm(binaryForm) {}

    /// @param level  of the outermost text
    std::string write(const element& e, std::size_t level)
    {
        m_outermost = level + 1;
        appendElement(e, level);
        return finish();
    }
    std::string write(const object& o, std::size_t level)
    {
        m_outermost = level;
        open(detail::CLevel(o));
        return finish();
    }

private:
    std::string finish()
    {
        while (!m_levels.empty()) appendNextOrClose();
        return std::move(m_text);
    }

    void open(detail::CLevel level)
    {
        m_text += '{';
        breakLine();
        m_levels.push_back(std::move(level));
    }

    void appendNextOrClose()
    {
        detail::CLevel& innermost = m_levels.back();
        const std::size_t level = m_outermost + m_levels.size() - 1;
        if (innermost.next == innermost.end) return close(level);
        if (innermost.next != innermost.begin) m_text += m_indent != 0 ? ",\n" : ", ";
        appendElement(*innermost.next++, level);
    }

    void close(std::size_t level)
    {
        if (m_levels.back().begin != m_levels.back().end) breakLine();
        m_levels.pop_back();
        if (level == 0) return;
        m_text.append((level - 1) * m_indent, ' ');
        m_text += '}';
    }

    void appendElement(const element& e, std::size_t level)
    {
        if (!e) return;
        m_text.append(m_indent * level, ' ');
        m_text.append("\"").append(e.name()).append("\" : ");
        appendValue(e);
    }

    void breakLine()
    {
        if (m_indent != 0) m_text += '\n';
    }

    /// Of a document only the start: the elements follow.
    void appendValue(const element& e)
    {
        switch (e.type()) {
        case element::eDouble:
            m_text += detail::toShortText(e.as_double());
            break;
        case element::eFloat:
            m_text += detail::toShortText(e.as_float());
            break;
        case element::eString:
            m_text.append("\"").append(e.as_string()).append("\"");
            break;
        case element::eObject:
            open(detail::CLevel(e.as_object()));
            break;
        case element::eBinary:
            appendBinary(e);
            break;
        case element::eBoolean:
            m_text += e.as_boolean() ? "true" : "false";
            break;
        case element::eDateTime:
            m_text += std::to_string(e.as_datetime().count());
            break;
        case element::eNull:
            m_text += "null";
            break;
        case element::eRegex:
            appendRegex(e);
            break;
        case element::eInt32:
            m_text += std::to_string(e.as_int32());
            break;
        case element::eUInt64:
            m_text += std::to_string(e.as_uint64());
            break;
        case element::eInt64:
            m_text += std::to_string(e.as_int64());
            break;
        case element::eUInt32:
            m_text += std::to_string(e.as_uint32());
            break;
        case element::eInt16:
            m_text += std::to_string(e.as_int16());
            break;
        case element::eUInt16:
            m_text += std::to_string(e.as_uint16());
            break;
        // 8-bit integers come out as the character they are; readers of these texts expect it.
        case element::eUInt8:
        case element::eInt8:
            m_text += static_cast<char>(*e.raw_value());
            break;
        case element::eEmpty:
            break;
        }
    }

    void appendRegex(const element& e)
    {
        const auto [pattern, options] = e.as_regex();
        m_text.append("/").append(pattern).append("/").append(options);
    }

    void appendBinary(const element& e)
    {
        if (m_binaryForm == EBinaryForm::Base64)
            appendBase64(e);
        else if (detail::holdsUUID(e))
            appendUUID(e.as_uuid());
        else
            appendBytes(e);
    }

    void appendBase64(const element& e)
    {
        constexpr std::uint64_t uiLineWidth = 64;
        const auto [data, size, type] = e.as_binary();
        const auto text = Zorvan::Base64::EncodeAndWrap(data, size, uiLineWidth);
        m_text.append("`").append(text.get()).append("`");
    }

    void appendUUID(const unsigned char* uuid)
    {
        std::array<char, 64> text{};
        std::snprintf(text.data(), text.size(), "<uuid:%08X-%04X-%04X-%04X-%02X%02X%02X%02X%02X%02X>",
                      unsigned{detail::load<std::uint32_t>(uuid)}, unsigned{detail::load<std::uint16_t>(uuid + 4)},
                      unsigned{detail::load<std::uint16_t>(uuid + 6)}, unsigned{detail::load<std::uint16_t>(uuid + 8)},
                      uuid[10], uuid[11], uuid[12], uuid[13], uuid[14], uuid[15]);
        m_text += text.data();
    }

    void appendBytes(const element& e)
    {
        constexpr std::uint64_t uiMostShown = 16;
        const auto [data, size, type] = e.as_binary();
        if (size > uiMostShown) {
            m_text.append("<bin:").append(std::to_string(size)).append(" bytes>");
            return;
        }
        m_text += "<bin:\"";
        for (std::uint64_t i = 0; i < size; ++i) {
            constexpr std::string_view digits = "0123456789abcdef";
            m_text.append("\\x").append(1, digits[data[i] >> 4]).append(1, digits[data[i] & 15]);
        }
        m_text += "\">";
    }

    std::size_t m_indent;
    EBinaryForm m_binaryForm;
    std::size_t m_outermost = 0; ///< level of the first document
    std::vector<detail::CLevel> m_levels;
    std::string m_text;
};

} // namespace

std::string element::to_json(unsigned int indent, unsigned int level) const
{
    return CJsonWriter(indent, EBinaryForm::Base64).write(*this, level);
}

std::string object::to_json(unsigned int indent, unsigned int level) const
{
    return CJsonWriter(indent, EBinaryForm::Base64).write(*this, level);
}

std::string element::dump(unsigned int indent, unsigned int level) const
{
    return CJsonWriter(indent, EBinaryForm::Abbreviated).write(*this, level);
}

std::string object::dump(unsigned int indent, unsigned int level) const
{
    return CJsonWriter(indent, EBinaryForm::Abbreviated).write(*this, level);
}

} // namespace bson
