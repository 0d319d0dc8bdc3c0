// SPDX-License-Identifier: MIT
#include "zorvan/scans/atomicfile.h"

#include "zorvan/scans/newfile.h"
#include "zorvan/scans/stagingfolder.h"

#include <cerrno>
#include <cstddef>
#include <streambuf>
#include <string>
#include <system_error>

namespace Zorvan {

namespace {

/// The hooks have stopped the writing.
struct CStopped
{
};

/// What a stream writes, on its way into a file in large blocks.
class CBlocks : public std::streambuf
{
public:
    CBlocks(CNewFile& file, const Hooks& hooks) : m_file(file), m_hooks(hooks) { m_block.reserve(uiBlock); }

protected:
    std::streamsize xsputn(const char* bytes, std::streamsize size) override
    {
        for (std::string_view rest(bytes, static_cast<std::size_t>(size)); !rest.empty();) {
            const std::string_view some = rest.substr(0, uiBlock - m_block.size());
            m_block += some;
            rest.remove_prefix(some.size());
            if (m_block.size() == uiBlock) sync();
        }
        return size;
    }

    int_type overflow(int_type character) override
    {
        const char byte = traits_type::to_char_type(character);
        if (!traits_type::eq_int_type(character, traits_type::eof())) xsputn(&byte, 1);
        return traits_type::not_eof(character);
    }

    int sync() override
    {
        if (m_block.empty()) return 0;
        if (m_hooks.IsAborted()) throw CStopped();
        m_file.Write(m_block);
        m_hooks.Advance(m_block.size());
        m_block.clear();
        return 0;
    }

private:
    static constexpr std::size_t uiBlock = 1U << 22U;

    CNewFile& m_file;
    const Hooks& m_hooks;
    std::string m_block;
};

} // namespace

void RequireWritable(const std::filesystem::path& file)
{
    RequireReplaceable(file);
    const CStagingFolder staging(file.parent_path());
    const CNewFile probe(staging / file.filename());
}

void WriteFileAtomically(const std::filesystem::path& file, std::string_view bytes)
{
    WriteFileAtomically(file, bytes, Hooks::None());
}

bool WriteFileAtomically(const std::filesystem::path& file, std::string_view bytes, const Hooks& hooks)
{
    const auto write = [&](std::ostream& out) { out.write(bytes.data(), static_cast<std::streamsize>(bytes.size())); };
    return WriteFileAtomically(file, bytes.size(), write, hooks);
}

void WriteFileAtomically(const std::filesystem::path& file, const std::function<void(std::ostream&)>& write)
{
    WriteFileAtomically(file, 0, write, Hooks::None());
}

bool WriteFileAtomically(const std::filesystem::path& file, std::uint64_t size,
                         const std::function<void(std::ostream&)>& write, const Hooks& hooks)
{
    RequireReplaceable(file);
    CStagingFolder staging(file.parent_path());
    CNewFile written(staging / file.filename());
    hooks.Start("writing", size);
    CBlocks blocks(written, hooks);
    try {
        std::ostream out(&blocks);
        out.exceptions(std::ios::badbit); // what the blocks throw passes through the stream
        write(out);
        out.flush();
    } catch (const CStopped&) {
        hooks.Finish();
        return false;
    }
    hooks.Finish();
    written.Close();
    staging.Publish();
    return true;
}

void MakeFolder(const std::filesystem::path& folder)
{
    std::error_code error;
    std::filesystem::create_directories(folder, error);
    if (!std::filesystem::is_directory(folder)) RefuseWriting(folder, error ? error.value() : ENOTDIR);
}

} // namespace Zorvan
