// SPDX-License-Identifier: MIT
#include "zorvan/core/textfile.h"

#include <locale>
#include <stdexcept>

namespace prereg {

TextFile::TextFile(const std::string& file)
{
    if (file.empty()) throw std::invalid_argument("empty file name");
    m_out.imbue(std::locale::classic());
    m_out.exceptions(std::ios::failbit | std::ios::badbit);
    m_out.open(file);
}

void TextFile::WriteSurfel(const kdtree::Vector<3>& point, const kdtree::Vector<3>& normal, unsigned color)
{
    m_out << point.x << ' ' << point.y << ' ' << point.z << ' ' << normal.x << ' ' << normal.y << ' ' << normal.z;
    if (color != noColor) m_out << ' ' << ((color >> 16) & 255) << ' ' << ((color >> 8) & 255) << ' ' << (color & 255);
    m_out << '\n';
}

} // namespace prereg
