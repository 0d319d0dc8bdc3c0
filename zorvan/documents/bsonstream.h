// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/platform/export.h"

#include <cstdint>
#include <istream>
#include <streambuf>

namespace bson {

/// Reads a caller-owned range of bytes as a stream, without copying it. The range must outlive the stream, and every
/// stream it was moved to.
///
///     memory_input_stream in(bytes.data(), bytes.size());
///     const object document = object::unfreeze(in);
///
/// Seeking reaches every position from the first byte to the one behind the last; any other target, and every seek on
/// the output side, gives position -1 and leaves the stream where it was.
class ZORVAN_API memory_input_stream : public std::basic_istream<char>
{
public:
    class ZORVAN_API memory_buffer : public std::basic_streambuf<char>
    {
    public:
        memory_buffer(const unsigned char* data, std::uint64_t size);
        memory_buffer(memory_buffer&& other) noexcept;
        ~memory_buffer() override = default;

        memory_buffer(const memory_buffer&) = delete;
        memory_buffer& operator=(const memory_buffer&) = delete;
        memory_buffer& operator=(memory_buffer&&) = delete;

    protected:
        pos_type seekoff(off_type offset, std::ios_base::seekdir from, std::ios_base::openmode which) override;
        pos_type seekpos(pos_type position, std::ios_base::openmode which) override;
    };

    memory_input_stream(const unsigned char* data, std::uint64_t size);
    memory_input_stream(memory_input_stream&& other) noexcept;
    ~memory_input_stream() override = default;

    memory_input_stream(const memory_input_stream&) = delete;
    memory_input_stream& operator=(const memory_input_stream&) = delete;
    memory_input_stream& operator=(memory_input_stream&&) = delete;

private:
    memory_buffer m_buffer;
};

} // namespace bson
