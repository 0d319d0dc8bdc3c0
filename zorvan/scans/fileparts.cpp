// SPDX-License-Identifier: MIT
#include "zorvan/scans/fileparts.h"

#include "zorvan/scans/filebytes.h"
#include "zorvan/scans/inputerror.h"
#include "zorvan/scans/movestream.h"

#include <algorithm>

namespace Zorvan {

CFileParts::CFileParts(const std::filesystem::path& file, const Hooks& hooks)
    : m_file(file), m_hooks(hooks), m_stream(file, std::ios::binary), m_size(DemandFileSize(file))
{
    if (!m_stream) throw CInputError(file, "cannot be read", "check its permissions");
    m_hooks.Start(file.filename().string(), m_size);
}

std::string_view CFileParts::At(std::uint64_t place, std::size_t size)
{
    const std::uint64_t end = std::min<std::uint64_t>(m_size, place + size);
    if (place >= end) return {};
    if (place < m_place || end > m_place + m_held.size()) readBlock(place);
    return m_held.substr(place - m_place, end - place);
}

void CFileParts::readBlock(std::uint64_t place)
{
    if (m_hooks.IsAborted()) throw Stopped();
    m_block.resize(std::min<std::uint64_t>(uiBlock, m_size - place));
    m_stream.seekg(static_cast<std::streamoff>(place));
    m_stream.read(m_block.data(), static_cast<std::streamsize>(m_block.size()));
    if (m_stream.gcount() != static_cast<std::streamsize>(m_block.size()))
        throw CInputError(m_file, "cannot be read to its end", "check its permissions and the disk");
    m_place = place;
    m_held = m_block;
    m_hooks.Advance(m_block.size());
}

} // namespace Zorvan
