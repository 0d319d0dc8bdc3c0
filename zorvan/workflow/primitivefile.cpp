// SPDX-License-Identifier: MIT
#include "zorvan/workflow/primitivefile.h"

#include "zorvan/scans/atomicfile.h"
#include "zorvan/scans/jsonvalues.h"
#include "zorvan/scans/posesfile.h"
#include "zorvan/scans/scanwriter.h"
#include "zorvan/scans/stagingfolder.h"
#include "zorvan/scans/textnumber.h"
#include "zorvan/workflow/colourscale.h"

#include <sstream>
#include <vector>

namespace prereg {

namespace {

using Json = nlohmann::ordered_json;

constexpr double dColourRange = 3.0; // RMSE from the middle of the scale to its ends

double inUnit(double value, const PrimitiveProperty& property, double mmPerUnit)
{
    return property.isLength ? value / mmPerUnit : value;
}

std::string listOf(const Eigen::VectorXd& values, const PrimitiveProperty& property, double mmPerUnit, int digits)
{
    std::string text;
    for (const double value : values)
        text += (text.empty() ? "" : ", ") + Zorvan::ToText(inUnit(value, property, mmPerUnit), digits);
    return text;
}

Json toJson(const Eigen::VectorXd& values, const PrimitiveProperty& property, double mmPerUnit)
{
    if (values.size() == 1) return Zorvan::JsonNumber(inUnit(values(0), property, mmPerUnit));
    Json list = Json::array();
    for (const double value : values) list.push_back(Zorvan::JsonNumber(inUnit(value, property, mmPerUnit)));
    return list;
}

void writeJson(const std::filesystem::path& file, const Zorvan::SurfelScan& scan, const PrimitiveFit& fit,
               double mmPerUnit)
{
    Json json{{"primitive", PrimitiveName(fit.ePrimitive)},
              {"file", scan.file.string()},
              {"unit", Zorvan::UnitName(mmPerUnit)},
              {"points", scan.points.size()},
              {"rmse", Zorvan::JsonNumber(fit.dRmse / mmPerUnit)}};
    for (const PrimitiveProperty& property : fit.properties) {
        json[property.name] = {{"value", toJson(property.value, property, mmPerUnit)}};
        if (property.deviation.size() > 0)
            json[property.name]["deviation"] = toJson(property.deviation, property, mmPerUnit);
    }
    Zorvan::WriteFileAtomically(file, json.dump(1, ' ', false, Json::error_handler_t::replace) + "\n");
}

void writeResiduals(const std::filesystem::path& file, const Zorvan::SurfelScan& scan, const PrimitiveFit& fit,
                    double mmPerUnit)
{
    std::vector<Zorvan::Rgb> colours;
    for (const double residual : fit.residuals)
        colours.push_back(ColourAt(0.5 + residual / (2.0 * dColourRange * fit.dRmse)));
    Zorvan::WritePly(file, {scan.points, scan.normals, {}}, 1.0 / mmPerUnit, colours);
}

} // namespace

std::string ToText(const PrimitiveFit& fit, double dMmPerUnit)
{
    const std::string unit = Zorvan::UnitName(dMmPerUnit);
    std::ostringstream text;
    text << PrimitiveName(fit.ePrimitive) << " through " << fit.residuals.size() << " points, RMSE "
         << Zorvan::ToText(fit.dRmse / dMmPerUnit) << ' ' << unit << '\n';
    for (const PrimitiveProperty& property : fit.properties) {
        text << "  " << property.name << std::string(22 - property.name.size(), ' ')
             << listOf(property.value, property, dMmPerUnit, 7);
        if (property.deviation.size() > 0) text << " +- " << listOf(property.deviation, property, dMmPerUnit, 2);
        text << (property.isLength ? " " + unit : property.value.size() == 1 ? " degrees" : "") << '\n';
    }
    return text.str();
}

void WriteFit(const std::filesystem::path& file, const Zorvan::SurfelScan& scan, const PrimitiveFit& fit,
              double dMmPerUnit)
{
    Zorvan::CStagingFolder staging(file.parent_path());
    writeResiduals(staging / ResidualsBeside(file).filename(), scan, fit, dMmPerUnit);
    writeJson(staging / file.filename(), scan, fit, dMmPerUnit);
    staging.Publish();
}

std::filesystem::path ResidualsBeside(const std::filesystem::path& file)
{
    return file.parent_path() / (file.stem().string() + "_residuals.ply");
}

} // namespace prereg
