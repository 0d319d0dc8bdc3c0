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

/// Writes a document into one text; `m_binaryForm` is all that tells to_json and dump apart.
class CJsonWriter
{
public:
    CJsonWriter(unsigned int indent, EBinaryForm binaryForm) : m_indent(indent), m_binaryForm(binaryForm) {}

    void append(const element& e, std::size_t level)
    {
        if (!e) return;
        m_text.append(m_indent * level, ' ');
        m_text.append("\"").append(e.name()).append("\" : ");
        appendValue(e, level);
    }

    void append(const object& o, std::size_t level)
    {
        m_text += '{';
        breakLine();
        for (const element& e : o) {
            if (&e != o.begin()) m_text += m_indent != 0 ? ",\n" : ", ";
            append(e, level);
        }
        if (o) breakLine();
        if (level == 0) return;
        m_text.append((level - 1) * m_indent, ' ');
        m_text += '}';
    }

    [[nodiscard]] std::string take() { return std::move(m_text); }

private:
    void breakLine()
    {
        if (m_indent != 0) m_text += '\n';
    }

    void appendValue(const element& e, std::size_t level)
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
            append(e.as_object(), level + 1);
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
    std::string m_text;
};

template <typename T>
std::string write(const T& what, unsigned int indent, unsigned int level, EBinaryForm binaryForm)
{
    CJsonWriter writer(indent, binaryForm);
    writer.append(what, level);
    return writer.take();
}

} // namespace

std::string element::to_json(unsigned int indent, unsigned int level) const
{
    return write(*this, indent, level, EBinaryForm::Base64);
}

std::string object::to_json(unsigned int indent, unsigned int level) const
{
    return write(*this, indent, level, EBinaryForm::Base64);
}

std::string element::dump(unsigned int indent, unsigned int level) const
{
    return write(*this, indent, level, EBinaryForm::Abbreviated);
}

std::string object::dump(unsigned int indent, unsigned int level) const
{
    return write(*this, indent, level, EBinaryForm::Abbreviated);
}

} // namespace bson
