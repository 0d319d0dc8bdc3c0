// SPDX-License-Identifier: MIT
// Documents that are read from a stream.

#include "zorvan/documents/bson.h"
#include "zorvan/documents/bsonsink.h"
#include "zorvan/documents/bsonwalk.h"

#include <algorithm>
#include <istream>
#include <streambuf>

namespace bson {

namespace {

using detail::CElementBuilder;
using detail::iEnd;

/// Reads from the stream's buffer directly and keeps the stream's state as its own operations would; a sentry for every
/// byte of a name would cost most of the time. One growing buffer takes what is passed, nested documents in place.
class CStreamSource
{
public:
    explicit CStreamSource(std::istream& in) : m_in(in) {}

    [[nodiscard]] bool good() const { return m_in.good(); }

    [[nodiscard]] int peek()
    {
        if (!good()) return iEnd;
        const int next = m_in.rdbuf()->sgetc();
        if (next == iEnd) m_in.setstate(std::ios_base::eofbit);
        return next;
    }

    std::optional<unsigned char> passByte()
    {
        const int next = good() ? m_in.rdbuf()->sbumpc() : iEnd;
        if (next == iEnd) return fail(), std::nullopt;
        m_sink.append(static_cast<unsigned char>(next));
        return static_cast<unsigned char>(next);
    }

    bool passText()
    {
        while (const auto byte = passByte())
            if (*byte == 0) return true;
        return false;
    }

    /// Takes memory for what is known to come; beyond that it only doubles what has come already.
    bool passBytes(std::uint64_t size)
    {
        constexpr std::uint64_t uiFirstBlock = 4096;
        std::uint64_t block = std::max(available(), uiFirstBlock);
        while (size != 0) {
            const std::uint64_t part = std::min(size, block);
            if (!read(m_sink.grow(part), part)) return false;
            size -= part;
            block *= 2;
        }
        return true;
    }

    std::optional<std::uint32_t> passLength()
    {
        unsigned char* const bytes = m_sink.grow(detail::uiLengthBytes);
        if (!read(bytes, detail::uiLengthBytes)) return std::nullopt;
        return detail::load<std::uint32_t>(bytes);
    }

    /// Written whether it was there or not; the end of the input is no failure here.
    void passPadding()
    {
        for (std::uint64_t i = 0; i < detail::uiRegexPaddingBytes; ++i) {
            m_sink.append(detail::uiRegexPadding);
            if (good() && m_in.rdbuf()->sgetc() == detail::uiRegexPadding) m_in.rdbuf()->sbumpc();
        }
    }

    // Only the hint of how much may come is taken from the length, since the closing byte ends a document.
    void open()
    {
        unsigned char bytes[detail::uiLengthBytes];
        m_sink.open();
        if (!read(bytes, sizeof(bytes))) return;
        m_sink.reserve(std::min<std::uint64_t>(detail::load<std::uint32_t>(bytes), available()) + 1);
    }

    void close()
    {
        skipByte();
        m_sink.close();
    }

    [[nodiscard]] std::size_t depth() const { return m_sink.depth(); }

    void start() { m_sink.truncate(0); }
    [[nodiscard]] std::uint64_t offset() const { return m_sink.size(); }
    void drop(std::uint64_t offset) { m_sink.truncate(offset); }

    void skipByte()
    {
        if (good() && m_in.rdbuf()->sbumpc() == iEnd) fail();
    }

    void give(element& to, std::uint64_t value)
    {
        const std::uint64_t size = m_sink.size();
        if (size < detail::uiSmallestShared)
            CElementBuilder::copy(to, m_sink.data(), size, size - value);
        else
            CElementBuilder::share(to, m_sink.take(), size, size - value);
    }

private:
    /// How many bytes are known to come, without waiting for any.
    [[nodiscard]] std::uint64_t available()
    {
        if (!good()) return 0;
        return static_cast<std::uint64_t>(std::max<std::streamsize>(m_in.rdbuf()->in_avail(), 0));
    }

    bool read(unsigned char* to, std::uint64_t size)
    {
        const auto wanted = static_cast<std::streamsize>(size);
        if (good() && m_in.rdbuf()->sgetn(reinterpret_cast<char*>(to), wanted) == wanted) return true;
        fail();
        return false;
    }

    void fail() { m_in.setstate(std::ios_base::eofbit | std::ios_base::failbit); }

    std::istream& m_in;
    detail::CDocumentSink m_sink;
};

} // namespace

element element::unfreeze(std::istream& in)
{
    element result;
    CStreamSource source(in);
    detail::TWalk(source).readElement(result);
    return result;
}

element element::unfreeze(const unsigned char* data, std::uint64_t size)
{
    memory_input_stream in(data, size);
    return unfreeze(in);
}

object object::unfreeze(std::istream& in)
{
    CStreamSource source(in);
    return detail::TWalk(source).readObject();
}

object object::unfreeze(const unsigned char* data)
{
    return unfreeze(data, detail::load<std::uint32_t>(data) + detail::uiFrameBytes);
}

object object::unfreeze(const unsigned char* data, std::uint64_t size)
{
    const std::shared_ptr<const unsigned char[]> nobody;
    return unfreeze({nobody, data}, size);
}

} // namespace bson
