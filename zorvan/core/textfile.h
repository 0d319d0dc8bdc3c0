// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/core/vector.h"

#include <fstream>
#include <string>

namespace prereg {

/// Writes surfels as text, a line each. The library's other files go through it too, so that all have one form: classic
/// locale, default float formatting, one blank between items.
class TextFile
{
public:
    static constexpr unsigned noColor = 0xFFFFFFFF;

    /// @throws std::invalid_argument "empty file name"; std::ios_base::failure here and below when writing fails
    explicit TextFile(const std::string& file);

    /// x y z nx ny nz, and r g b unless the colour (0xRRGGBB) is `noColor`.
    void WriteSurfel(const kdtree::Vector<3>& point, const kdtree::Vector<3>& normal, unsigned color);
    void Close() { m_out.close(); }

private:
    std::ofstream m_out;
};

} // namespace prereg
