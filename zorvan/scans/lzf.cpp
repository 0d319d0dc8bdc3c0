// SPDX-License-Identifier: MIT
#include "zorvan/scans/lzf.h"

#include <utility>

namespace Zorvan {

namespace {

/// Reads the block; false anywhere means that it is damaged.
class CExpander
{
public:
    CExpander(std::string_view block, std::size_t size) : m_block(block), m_size(size) { m_out.reserve(size); }

    bool Run()
    {
        while (m_at < m_block.size()) {
            const unsigned control = next();
            if (!(control < 32 ? literals(control + 1) : reference(control))) return false;
        }
        return m_out.size() == m_size;
    }

    [[nodiscard]] std::string&& Take() { return std::move(m_out); }

private:
    unsigned next() { return static_cast<unsigned char>(m_block[m_at++]); }
    [[nodiscard]] bool has(std::size_t count) const { return m_block.size() - m_at >= count; }
    [[nodiscard]] bool fits(std::size_t count) const { return m_size - m_out.size() >= count; }

    bool literals(std::size_t count)
    {
        if (!has(count) || !fits(count)) return false;
        m_out.append(m_block.substr(m_at, count));
        m_at += count;
        return true;
    }

    bool reference(unsigned control)
    {
        std::size_t length = control >> 5U;
        if (length == 7) {
            if (!has(1)) return false;
            length += next();
        }
        length += 2;
        if (!has(1)) return false;
        const std::size_t back = ((control & 31U) << 8U) + next() + 1;
        if (back > m_out.size() || !fits(length)) return false;
        // Byte by byte: a reference may run into what it makes.
        for (std::size_t from = m_out.size() - back; length > 0; --length) m_out.push_back(m_out[from++]);
        return true;
    }

    std::string_view m_block;
    std::size_t m_size;
    std::size_t m_at = 0;
    std::string m_out;
};

} // namespace

std::optional<std::string> ExpandLzf(std::string_view block, std::size_t size)
{
    if (size / uiLzfMostPerByte > block.size()) return std::nullopt;
    CExpander expander(block, size);
    if (!expander.Run()) return std::nullopt;
    return expander.Take();
}

} // namespace Zorvan
