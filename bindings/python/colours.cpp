// SPDX-License-Identifier: MIT
#include "arrays.h"
#include "interpreter.h"
#include "modules.h"

#include "zorvan/colour/pixelrows.h"

#include <cmath>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

namespace bindings {

namespace {

namespace cs = Zorvan::cs;

cs::EPixelLight lightOf(const std::string& light)
{
    if (light == "srgb") return cs::EPixelLight::SRGB;
    if (light == "linear") return cs::EPixelLight::Linear;
    throw py::value_error("light: \"" + light + "\" is none of srgb and linear");
}

/// An array whose last axis is three channels of T, contiguous; a copy where it does not lie so.
template <typename T>
py::array_t<T> channelsOf(const py::object& value, const char* name, const char* type)
{
    if (!py::isinstance<py::array_t<T>>(value))
        throw py::type_error(std::string(name) + ": needs a numpy array of " + type);
    auto array = py::array_t<T, py::array::c_style>::ensure(value);
    if (array.ndim() < 1 || array.shape(array.ndim() - 1) != 3)
        throw py::value_error(std::string(name) + ": needs an array of shape (..., 3)");
    return array;
}

std::vector<py::ssize_t> shapeOf(const py::array& array) { return {array.shape(), array.shape() + array.ndim()}; }

py::array toLab(const py::object& pixels, const std::string& light)
{
    const auto rgb = channelsOf<std::uint8_t>(pixels, "pixels", "uint8");
    const cs::EPixelLight eLight = lightOf(light);
    const auto count = static_cast<std::size_t>(rgb.size()) / 3;
    auto values = WithoutLock([&] {
        std::vector<cs::RGB::Packed> in(count);
        for (std::size_t i = 0; i < count; ++i)
            in[i] = {rgb.data()[3 * i], rgb.data()[3 * i + 1], rgb.data()[3 * i + 2]};
        std::vector<cs::Lab> lab(count);
        cs::ToLab(in, eLight, lab);
        std::vector<double> out;
        for (const cs::Lab& c : lab) out.insert(out.end(), {c[0], c[1], c[2]});
        return out;
    });
    return Owned(std::move(values), shapeOf(rgb));
}

py::array toRgb(const py::object& colours, const std::string& light)
{
    const auto lab = channelsOf<double>(colours, "colours", "float64");
    const cs::EPixelLight eLight = lightOf(light);
    const auto count = static_cast<std::size_t>(lab.size()) / 3;
    auto values = WithoutLock([&] {
        std::vector<cs::Lab> in;
        for (std::size_t i = 0; i < count; ++i) in.emplace_back(lab.data() + 3 * i);
        std::vector<cs::RGB::Packed> pixels(count);
        cs::ToRGB(in, eLight, pixels);
        std::vector<std::uint8_t> out;
        for (const cs::RGB::Packed& p : pixels) out.insert(out.end(), {p.r, p.g, p.b});
        return out;
    });
    return Owned(std::move(values), shapeOf(lab));
}

py::array colourDistance(const py::object& a, const py::object& b)
{
    const auto first = channelsOf<double>(a, "a", "float64");
    const auto second = channelsOf<double>(b, "b", "float64");
    if (shapeOf(first) != shapeOf(second)) throw py::value_error("a and b: need the same shape");
    const auto count = static_cast<std::size_t>(first.size()) / 3;
    std::vector<double> distances;
    for (std::size_t i = 0; i < count; ++i)
        distances.push_back(
            std::sqrt(cs::Lab(first.data() + 3 * i).DistanceSq_CIEDE2000(cs::Lab(second.data() + 3 * i))));
    std::vector<py::ssize_t> shape = shapeOf(first);
    shape.pop_back();
    return Owned(std::move(distances), shape);
}

} // namespace

void AddColours(py::module_& module)
{
    module.def("rgb_to_lab", &toLab, py::arg("pixels"), py::arg("light") = "srgb",
               "(..., 3) uint8 to CIE L*a*b* under D65, (..., 3) float64. light: srgb, or linear.");
    module.def("lab_to_rgb", &toRgb, py::arg("colours"), py::arg("light") = "srgb",
               "The way back, rounded: (..., 3) uint8.");
    module.def("colour_distance", &colourDistance, py::arg("a"), py::arg("b"),
               "CIEDE2000 between colours of L*a*b*: (..., 3) float64 to (...).");
}

} // namespace bindings
