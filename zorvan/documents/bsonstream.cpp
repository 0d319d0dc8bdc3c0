// SPDX-License-Identifier: MIT
#include "zorvan/documents/bsonstream.h"

#include <utility>

namespace bson {

memory_input_stream::memory_buffer::memory_buffer(const unsigned char* data, std::uint64_t size)
{
    // The get area wants mutable characters; nothing here ever writes to them.
    char* const begin = reinterpret_cast<char*>(const_cast<unsigned char*>(data));
    setg(begin, begin, data == nullptr ? begin : begin + size);
}

memory_input_stream::memory_buffer::memory_buffer(memory_buffer&& other) noexcept : std::basic_streambuf<char>(other)
{
    other.setg(nullptr, nullptr, nullptr);
}

memory_input_stream::memory_buffer::pos_type
memory_input_stream::memory_buffer::seekoff(off_type offset, std::ios_base::seekdir from, std::ios_base::openmode which)
{
    const pos_type failed(off_type(-1));
    if ((which & std::ios_base::in) == 0 || eback() == nullptr) return failed;

    const off_type size = egptr() - eback();
    off_type base = 0;
    if (from == std::ios_base::cur)
        base = gptr() - eback();
    else if (from == std::ios_base::end)
        base = size;

    // Compared before adding, since the sum may not fit.
    if (offset < -base || offset > size - base) return failed;
    setg(eback(), eback() + (base + offset), egptr());
    return {base + offset};
}

memory_input_stream::memory_buffer::pos_type memory_input_stream::memory_buffer::seekpos(pos_type position,
                                                                                         std::ios_base::openmode which)
{
    return seekoff(off_type(position), std::ios_base::beg, which);
}

memory_input_stream::memory_input_stream(const unsigned char* data, std::uint64_t size)
    : std::basic_istream<char>(nullptr), m_buffer(data, size)
{
    // The base is made before the buffer, so it learns of it only here, which also clears the state of having none.
    rdbuf(&m_buffer);
}

memory_input_stream::memory_input_stream(memory_input_stream&& other) noexcept
    : std::basic_istream<char>(std::move(other)), m_buffer(std::move(other.m_buffer))
{
    set_rdbuf(&m_buffer);
}

} // namespace bson
