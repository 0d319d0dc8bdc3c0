// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/core/hooks.h"
#include "zorvan/scans/export.h"

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <string>
#include <string_view>

namespace Zorvan {

/// Parts of a file by their place: of bytes that are in memory, or read as they are wanted, a block at a time. Who goes
/// forward reads every byte once.
class ZORVAN_SCANS_API CFileParts
{
public:
    static constexpr std::size_t uiBlock = std::size_t{1} << 22U;

    /// @param bytes  must outlive this
    explicit CFileParts(std::string_view bytes) : m_size(bytes.size()), m_held(bytes) {}
    /// @param hooks  hear of bytes
    /// @throws CInputError when the file is missing, empty or unreadable
    CFileParts(const std::filesystem::path& file, const Hooks& hooks);

    [[nodiscard]] std::uint64_t Size() const { return m_size; }
    /// Valid until the next call; shorter where the file ends before.
    /// @param size  at most a block
    /// @throws CInputError when it cannot be read, Stopped where the hooks stop it
    [[nodiscard]] std::string_view At(std::uint64_t place, std::size_t size);

private:
    void readBlock(std::uint64_t place);

    std::filesystem::path m_file; ///< empty: all is held
    Hooks m_hooks = Hooks::None();
    std::ifstream m_stream;
    std::uint64_t m_size = 0;
    std::string m_block;
    std::uint64_t m_place = 0; ///< of what is held
    std::string_view m_held;   ///< the block, or all
};

} // namespace Zorvan
