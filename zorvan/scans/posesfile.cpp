// SPDX-License-Identifier: MIT
#include "zorvan/scans/posesfile.h"

#include "zorvan/scans/atomicfile.h"
#include "zorvan/scans/filebytes.h"
#include "zorvan/scans/framepose.h"
#include "zorvan/scans/inputerror.h"
#include "zorvan/scans/jsonvalues.h"
#include "zorvan/scans/textnumber.h"
#include "zorvan/scans/vectors.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <set>

namespace Zorvan {

namespace {

using Json = nlohmann::ordered_json;
using Matrix = std::array<std::array<double, 4>, 4>;

constexpr double dRotationTolerance = 1e-3;
constexpr double dRoundingTolerance = 1e-5; // a rotation written with fewer digits is made orthonormal again
constexpr double dExactTolerance = 1e-12;   // the same where all digits are wanted
constexpr int iDigits = 9;                  // of a float
constexpr int iAllDigits = 17;
constexpr int iTranslationDigits = 15; // all that go to another unit and back

/// Largest deviation of M M' from the identity; infinite for a mirror or when an element is not finite.
double rotationError(const Matrix& m)
{
    double worst = 0.0;
    for (std::size_t i = 0; i < 3; ++i) {
        for (std::size_t j = 0; j < 3; ++j) {
            const double dot = m[i][0] * m[j][0] + m[i][1] * m[j][1] + m[i][2] * m[j][2];
            worst = std::max(worst, std::abs(dot - (i == j ? 1.0 : 0.0)));
        }
    }
    const double determinant = m[0][0] * (m[1][1] * m[2][2] - m[1][2] * m[2][1]) -
                               m[0][1] * (m[1][0] * m[2][2] - m[1][2] * m[2][0]) +
                               m[0][2] * (m[1][0] * m[2][1] - m[1][1] * m[2][0]);
    return determinant > 0.0 && std::isfinite(worst) ? worst : std::numeric_limits<double>::infinity();
}

prereg::CTrafo toTrafo(const Matrix& m, double mmPerUnit)
{
    const auto translation = [&](std::size_t i) { return ToFloat(m[i][3] * mmPerUnit); };
    const Vector3 t(translation(0), translation(1), translation(2));
    if (rotationError(m) > dRoundingTolerance) {
        const prereg::Quaternion q(m[0][0], m[0][1], m[0][2], m[1][0], m[1][1], m[1][2], m[2][0], m[2][1], m[2][2]);
        return {q, t};
    }
    const auto row = [&](std::size_t i) { return Vector3(ToFloat(m[i][0]), ToFloat(m[i][1]), ToFloat(m[i][2])); };
    return {row(0), row(1), row(2), t};
}

/// @param m  a rotation within the tolerance
PoseRows exactRows(const Matrix& m, double mmPerUnit)
{
    std::array<Position, 3> rows{};
    for (std::size_t i = 0; i < 3; ++i) rows[i] = {m[i][0], m[i][1], m[i][2]};
    if (rotationError(m) > dExactTolerance) {
        if (const auto pose = FromRows(rows, {})) rows = RotationRows(*pose);
    }
    PoseRows exact{};
    for (std::size_t i = 0; i < 3; ++i) exact[i] = {rows[i][0], rows[i][1], rows[i][2], m[i][3] * mmPerUnit};
    return exact;
}

class CPosesParser
{
public:
    explicit CPosesParser(const std::filesystem::path& file) : m_file(file) {}

    PosesFile Parse(std::string_view text, double defaultMmPerUnit)
    {
        const Json json = parseText(text);
        if (!json.is_object() || !json.contains("clusters") || !json["clusters"].is_array())
            fail("has no list \"clusters\"");
        m_poses.dMmPerUnit = parseUnit(json, defaultMmPerUnit);
        if (json.contains("shift")) m_poses.shift = parseShift(json["shift"]);
        for (const Json& cluster : json["clusters"]) parseCluster(cluster);
        if (json.contains("candidates")) parseCandidates(json["candidates"]);
        return std::move(m_poses);
    }

private:
    [[noreturn]] void fail(const std::string& why) const
    {
        throw CInputError(m_file, why, "docs/formats.md shows the form of a poses file");
    }

    [[nodiscard]] Json parseText(std::string_view text) const
    {
        try {
            return Json::parse(text);
        } catch (const Json::exception& error) {
            fail(std::string("no JSON: ") + error.what());
        }
    }

    [[nodiscard]] double parseUnit(const Json& json, double defaultMmPerUnit) const
    {
        if (json.contains("mm_per_unit")) {
            const Json& value = json["mm_per_unit"];
            if (!value.is_number() || !(value.get<double>() > 0.0)) fail("\"mm_per_unit\" is not a positive number");
            return value.get<double>();
        }
        if (!json.contains("unit")) return defaultMmPerUnit;
        for (const double known : {1.0, 10.0, 1000.0}) {
            if (json["unit"] == UnitName(known)) return known;
        }
        fail("\"unit\" is none of mm, cm and m, and \"mm_per_unit\" is missing");
    }

    [[nodiscard]] Position parseShift(const Json& json) const
    {
        const auto isNumber = [](const Json& value) { return value.is_number(); };
        if (!json.is_array() || json.size() != 3 || !std::all_of(json.begin(), json.end(), isNumber))
            fail("\"shift\" is not three numbers");
        Position shift = json.get<Position>();
        for (double& c : shift) {
            c *= m_poses.dMmPerUnit;
            if (!std::isfinite(c)) fail("\"shift\" is not finite");
        }
        return shift;
    }

    void parseCluster(const Json& json)
    {
        if (!json.is_object() || !json.contains("scans") || !json["scans"].is_array())
            fail("a cluster has no list \"scans\"");
        PoseCluster cluster;
        cluster.id = textOf(json, "id");
        cluster.isPrimary = json.contains("primary") && json["primary"] == true;
        for (const Json& scan : json["scans"]) cluster.scans.push_back(parseScan(scan));
        m_poses.clusters.push_back(std::move(cluster));
    }

    void parseCandidates(const Json& json)
    {
        if (!json.is_array()) fail("\"candidates\" is no list");
        for (const Json& candidate : json) {
            m_names.clear(); // one scan has many candidates
            m_poses.candidates.push_back(parseScan(candidate));
        }
    }

    [[nodiscard]] static std::string textOf(const Json& json, const char* key)
    {
        return json.contains(key) && json[key].is_string() ? json[key].get<std::string>() : std::string();
    }

    ScanPose parseScan(const Json& json)
    {
        ScanPose scan;
        if (json.is_object()) scan.file = textOf(json, "file");
        if (scan.file.empty()) fail("a scan has no \"file\"");
        if (!m_names.insert(std::filesystem::path(scan.file).filename().string()).second)
            fail("two scans have the name \"" + scan.file + "\"");
        scan.id = textOf(json, "id");
        if (json.contains("pose") && !json["pose"].is_null()) parsePose(json["pose"], scan);
        return scan;
    }

    void parsePose(const Json& json, ScanPose& scan) const
    {
        const Matrix matrix = parseMatrix(json, scan.file);
        if (!(rotationError(matrix) <= dRotationTolerance))
            fail("the upper left 3x3 of the pose of \"" + scan.file + "\" is no rotation (within 0.001)");
        scan.pose = toTrafo(matrix, m_poses.dMmPerUnit);
        if (!scan.pose) fail("the pose of \"" + scan.file + "\" is not finite");
        scan.exact = exactRows(matrix, m_poses.dMmPerUnit);
    }

    [[nodiscard]] Matrix parseMatrix(const Json& json, const std::string& name) const
    {
        const auto isRow = [](const Json& row) {
            return row.is_array() && row.size() == 4 &&
                   std::all_of(row.begin(), row.end(), [](const Json& value) { return value.is_number(); });
        };
        if (!json.is_array() || json.size() != 4 || !std::all_of(json.begin(), json.end(), isRow))
            fail("the pose of \"" + name + "\" is not 4 rows of 4 numbers");
        const Matrix matrix = json.get<Matrix>();
        if (matrix[3] != std::array<double, 4>{0, 0, 0, 1})
            fail("the last row of the pose of \"" + name + "\" is not 0 0 0 1");
        return matrix;
    }

    const std::filesystem::path& m_file;
    std::set<std::string> m_names;
    PosesFile m_poses;
};

Json resultJson(const RegistrationSummary& result, double mmPerUnit)
{
    return {{"kind", result.iKind},
            {"text", result.text},
            {"rmse", JsonNumber(result.dRmse / mmPerUnit)},
            {"overlap", JsonNumber(result.dOverlap)},
            {"slip", JsonNumber(result.dSlip / mmPerUnit)}};
}

Json verdictJson(const VerdictSummary& verdict)
{
    Json json = {{"name", verdict.name},
                 {"text", verdict.text},
                 {"proposer", verdict.proposer},
                 {"contradiction", JsonNumber(verdict.dContradiction)}};
    for (const auto& [name, count] : verdict.counts) json[name] = count;
    return json;
}

Json uncertaintyJson(const PoseUncertainty& uncertainty, double mmPerUnit, int digits)
{
    Json rows = Json::array();
    for (std::size_t i = 0; i < 6; ++i) {
        Json row = Json::array();
        for (std::size_t j = 0; j < 6; ++j) {
            const double units = (i < 3 ? 1.0 : mmPerUnit) * (j < 3 ? 1.0 : mmPerUnit);
            row.push_back(JsonNumber(uncertainty.covariance[i][j] / units));
        }
        rows.push_back(std::move(row));
    }
    Json centre = Json::array();
    for (const double c : uncertainty.centre) centre.push_back(JsonNumber(c / mmPerUnit, digits));
    return {{"text", uncertainty.text},
            {"order", {"turn x", "turn y", "turn z", "shift x", "shift y", "shift z"}},
            {"covariance", std::move(rows)},
            {"centre", std::move(centre)}};
}

Json scansJson(const std::vector<ScanPose>& scans, double mmPerUnit, bool isFar)
{
    Json all = Json::array();
    for (const ScanPose& scan : scans) {
        Json json = {{"file", scan.file}, {"id", scan.id}, {"pose", JsonPose(scan, mmPerUnit, isFar)}};
        if (scan.result) json["result"] = resultJson(*scan.result, mmPerUnit);
        if (scan.verdict) json["verdict"] = verdictJson(*scan.verdict);
        if (scan.uncertainty)
            json["uncertainty"] = uncertaintyJson(*scan.uncertainty, mmPerUnit, isFar ? iTranslationDigits : iDigits);
        all.push_back(std::move(json));
    }
    return all;
}

Json clusterJson(const PoseCluster& cluster, double mmPerUnit, bool isFar)
{
    return {{"id", cluster.id}, {"primary", cluster.isPrimary}, {"scans", scansJson(cluster.scans, mmPerUnit, isFar)}};
}

} // namespace

PosesFile::Found PosesFile::Find(const std::filesystem::path& file) const
{
    for (std::size_t i = 0; i < clusters.size(); ++i) {
        for (const ScanPose& scan : clusters[i].scans) {
            if (std::filesystem::path(scan.file).filename() == file.filename()) return {&scan, i};
        }
    }
    return {};
}

std::size_t CommonCluster(const PosesFile& poses)
{
    const auto primary = std::ranges::find_if(poses.clusters, &PoseCluster::isPrimary);
    return primary == poses.clusters.end() ? 0 : static_cast<std::size_t>(primary - poses.clusters.begin());
}

std::string UnitName(double dMmPerUnit)
{
    if (dMmPerUnit == 1.0) return "mm";
    if (dMmPerUnit == 10.0) return "cm";
    return dMmPerUnit == 1000.0 ? "m" : "unit";
}

PosesFile ReadPoses(const std::filesystem::path& file, double dDefaultMmPerUnit)
{
    return ReadPosesText(ReadFileBytes(file), file, dDefaultMmPerUnit);
}

PosesFile ReadPosesText(std::string_view text, const std::filesystem::path& file, double dDefaultMmPerUnit)
{
    return CPosesParser(file).Parse(text, dDefaultMmPerUnit);
}

std::string WritePosesText(const PosesFile& poses)
{
    Json json = {{"unit", UnitName(poses.dMmPerUnit)}};
    if (poses.dMmPerUnit != 1.0) json["mm_per_unit"] = poses.dMmPerUnit;
    const bool isFar = poses.shift != Position{};
    if (isFar) {
        json["shift"] = Json::array();
        for (const double c : poses.shift)
            json["shift"].push_back(JsonNumber(c / poses.dMmPerUnit, iTranslationDigits));
    }
    json["clusters"] = Json::array();
    for (const PoseCluster& cluster : poses.clusters)
        json["clusters"].push_back(clusterJson(cluster, poses.dMmPerUnit, isFar));
    if (!poses.candidates.empty()) json["candidates"] = scansJson(poses.candidates, poses.dMmPerUnit, isFar);
    return json.dump(1, ' ', false, Json::error_handler_t::replace) + "\n";
}

void WritePoses(const std::filesystem::path& file, const PosesFile& poses)
{
    WriteFileAtomically(file, WritePosesText(poses));
}

std::string PoseText(const ScanPose& scan, const PosesFile& poses)
{
    const bool isFar = poses.shift != Position{};
    std::string text;
    for (const Json& row : JsonPose(scan, poses.dMmPerUnit, isFar)) {
        for (const Json& value : row) {
            text += ToText(value.get<double>(), isFar ? iAllDigits : iDigits);
            text += ' ';
        }
        text.back() = '\n';
    }
    return text;
}

} // namespace Zorvan
