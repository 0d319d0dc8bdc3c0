#include "zorvan/documents/bson.h"
#include "zorvan/documents/bsonsink.h"
#include "zorvan/documents/bsonwire.h"

#include <algorithm>
#include <istream>
#include <optional>
#include <streambuf>

namespace bson {

namespace {

using detail::CElementBuilder;

constexpr int iEnd = std::char_traits<char>::eof();

[[noreturn]] void throwParseError() { throw std::invalid_argument("parse error"); }

/// Reads from the stream's buffer directly and keeps the stream's state as its own operations would; a sentry for every
/// byte of a name would cost most of the time.
class CByteSource
{
public:
    explicit CByteSource(std::istream& in) : m_in(in) {}

    [[nodiscard]] bool good() const { return m_in.good(); }

    [[nodiscard]] int peek()
    {
        if (!good()) return iEnd;
        const int next = m_in.rdbuf()->sgetc();
        if (next == iEnd) m_in.setstate(std::ios_base::eofbit);
        return next;
    }

    [[nodiscard]] std::optional<unsigned char> readByte()
    {
        const int next = good() ? m_in.rdbuf()->sbumpc() : iEnd;
        if (next != iEnd) return static_cast<unsigned char>(next);
        fail();
        return std::nullopt;
    }

    /// Passes over one byte of this value if it comes next; the end of the input is no failure here.
    void skip(unsigned char byte)
    {
        if (good() && m_in.rdbuf()->sgetc() == byte) m_in.rdbuf()->sbumpc();
    }

    /// How many bytes are known to come, without waiting for any.
    [[nodiscard]] std::uint64_t available()
    {
        if (!good()) return 0;
        return static_cast<std::uint64_t>(std::max<std::streamsize>(m_in.rdbuf()->in_avail(), 0));
    }

    [[nodiscard]] bool read(unsigned char* to, std::uint64_t size)
    {
        const auto wanted = static_cast<std::streamsize>(size);
        if (good() && m_in.rdbuf()->sgetn(reinterpret_cast<char*>(to), wanted) == wanted) return true;
        fail();
        return false;
    }

private:
    void fail() { m_in.setstate(std::ios_base::eofbit | std::ios_base::failbit); }

    std::istream& m_in;
};

/// Reads elements into one growing buffer, nested documents in place. The nesting comes from outside, so what is open
/// stands in the sink and not on the stack.
class CReader
{
public:
    explicit CReader(std::istream& in) : m_source(in) {}

    element readElement()
    {
        m_sink.truncate(0);
        element::Type type{};
        if (!appendHeader(type)) return {};
        const std::uint64_t headerSize = m_sink.size();
        if (!appendValue(type)) return {};
        while (m_sink.depth() != 0) appendNestedOrClose();
        const std::uint64_t size = m_sink.size();
        if (size < detail::uiSmallestShared) return CElementBuilder::copyOf(m_sink.data(), size, size - headerSize);
        return CElementBuilder::share(m_sink.take(), size, size - headerSize);
    }

    object readObject()
    {
        object result;
        std::vector<element>& elements = CElementBuilder::elements(result);
        if (!skipLength()) return result;
        while (m_source.good() && m_source.peek() != 0) elements.push_back(readElement());
        skipClosingByte();
        return result;
    }

private:
    // Only the hint of how much may come is taken from the length, since the closing byte ends a document.
    std::optional<std::uint32_t> skipLength()
    {
        unsigned char bytes[detail::uiLengthBytes];
        if (!m_source.read(bytes, sizeof(bytes))) return std::nullopt;
        return detail::load<std::uint32_t>(bytes);
    }

    void skipClosingByte()
    {
        if (m_source.good()) static_cast<void>(m_source.readByte());
    }

    bool appendHeader(element::Type& type)
    {
        const auto code = m_source.readByte();
        if (!code) return false;
        type = static_cast<element::Type>(*code);
        m_sink.append(*code);
        return appendText();
    }

    /// A text with its NUL.
    bool appendText()
    {
        while (const auto byte = m_source.readByte()) {
            m_sink.append(*byte);
            if (*byte == 0) return true;
        }
        return false;
    }

    /// Takes memory for what is known to come; beyond that it only doubles what has come already.
    bool appendBytes(std::uint64_t size)
    {
        constexpr std::uint64_t uiFirstBlock = 4096;
        std::uint64_t block = std::max(m_source.available(), uiFirstBlock);
        while (size != 0) {
            const std::uint64_t part = std::min(size, block);
            if (!m_source.read(m_sink.grow(part), part)) return false;
            size -= part;
            block *= 2;
        }
        return true;
    }

    /// Of a document only its start: what is in it follows.
    bool appendValue(element::Type type)
    {
        if (const auto size = detail::fixedValueSize(type)) return appendBytes(*size);
        switch (type) {
        case element::eString:
            return appendCounted(0);
        case element::eBinary:
            return appendCounted(1);
        case element::eRegex:
            return appendRegex();
        case element::eObject:
            openObject();
            return true;
        default:
            throwParseError();
        }
    }

    /// A length, bytes that it does not count, and the bytes that it counts.
    bool appendCounted(std::uint64_t uncounted)
    {
        const std::uint64_t start = m_sink.size();
        if (!appendBytes(sizeof(std::uint32_t))) return false;
        const auto length = detail::load<std::uint32_t>(m_sink.data() + start);
        return appendBytes(uncounted + length);
    }

    bool appendRegex()
    {
        if (!appendText() || !appendText()) return false;
        for (std::uint64_t i = 0; i < detail::uiRegexPaddingBytes; ++i) {
            m_sink.append(detail::uiRegexPadding);
            m_source.skip(detail::uiRegexPadding);
        }
        return true;
    }

    void openObject()
    {
        if (m_sink.depth() == uiMaxNesting) throwParseError();
        m_sink.open();
        if (const auto length = skipLength())
            m_sink.reserve(std::min<std::uint64_t>(*length, m_source.available()) + 1);
    }

    void appendNestedOrClose()
    {
        if (m_source.good() && m_source.peek() != 0) return appendNested();
        skipClosingByte();
        m_sink.close();
    }

    /// An element that is cut short leaves nothing behind.
    void appendNested()
    {
        const std::uint64_t start = m_sink.size();
        element::Type type{};
        if (!appendHeader(type) || !appendValue(type)) m_sink.truncate(start);
    }

    CByteSource m_source;
    detail::CDocumentSink m_sink;
};

} // namespace

element element::unfreeze(std::istream& in) { return CReader(in).readElement(); }

element element::unfreeze(const unsigned char* data, std::uint64_t size)
{
    memory_input_stream in(data, size);
    return unfreeze(in);
}

object object::unfreeze(std::istream& in) { return CReader(in).readObject(); }

object object::unfreeze(const unsigned char* data)
{
    return unfreeze(data, detail::load<std::uint32_t>(data) + detail::uiFrameBytes);
}

object object::unfreeze(const unsigned char* data, std::uint64_t size)
{
    const std::shared_ptr<const unsigned char[]> nobody;
    return unfreeze({nobody, data}, size);
}

object object::unfreeze(const std::shared_ptr<const unsigned char[]>& bytes, std::uint64_t size)
{
    if (auto document = detail::shareObject(bytes, size)) return std::move(*document);
    memory_input_stream in(bytes.get(), size);
    return unfreeze(in);
}

} // namespace bson
