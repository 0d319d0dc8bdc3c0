// SPDX-License-Identifier: MIT
#include "zorvan/persistence/bsonserialization.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

namespace bson {

namespace {

using prereg::CFPFHPointSet;
using prereg::CFPFHPreRegistration;
using prereg::CPointFeatureHistogram;
using prereg::CTrafo;
using prereg::Ellipsoid;
using prereg::ICPResult;
using prereg::Quaternion;
using prereg::Vectors;
using Vector3 = kdtree::Vector<3>;

using AxisKeys = std::array<const char*, 3>;
constexpr AxisKeys axes = {"x", "y", "z"};
constexpr AxisKeys sigmas = {"sigma_x", "sigma_y", "sigma_z"};

object writeVector(const Vector3& v, const AxisKeys& keys)
{
    return {element(keys[0], v.x), element(keys[1], v.y), element(keys[2], v.z)};
}

/// @param v  what absent keys give
Vector3 readVector(const object& document, const AxisKeys& keys, Vector3 v)
{
    for (const element& e : document) {
        for (unsigned i = 0; i < keys.size(); ++i) {
            if (e.name() == std::string_view(keys[i])) v[i] = e.as_float();
        }
    }
    return v;
}

std::array<Vector3, 3> readTips(const object& document)
{
    std::array<Vector3, 3> tips;
    for (const element& e : document) {
        const std::string_view key = e.name();
        // "pt3" is never taken, whatever its type: results that are read back have always had two tips, and readers of
        // saved states count on it.
        if (key == "pt1") tips[0] = readVector(e.as_object(), axes, {});
        if (key == "pt2") tips[1] = readVector(e.as_object(), axes, {});
    }
    return tips;
}

/// Calls `visit(key, field)` for each field; the one list of the keys, in the order of writing.
/// @param stopRatio  the field of "fStop_OverlapRatio", which is another one for readers than for writers
template <class Visitor>
void visitFields(auto& result, auto& stopRatio, const Visitor& visit)
{
    visit("fStart_OverlapRatio", result.fStart_OverlapRatio);
    visit("iStart_NumberOfInliers", result.iStart_NumberOfInliers);
    visit("fStart_RMSE", result.fStart_RMSE);
    visit("fStop_OverlapRatio", stopRatio);
    visit("fStop_OverlapArea", result.fStop_OverlapArea);
    visit("iStop_NumberOfInliers", result.iStop_NumberOfInliers);
    visit("fStop_RMSE", result.fStop_RMSE);
    visit("iStop_Iterations", result.iStop_Iterations);
    visit("fStop_SmallBigRatio", result.fStop_SmallBigRatio);
    visit("fStop_MOICP_ZScore", result.fStop_MOICP_ZScore);
    visit("vStop_StdDev", result.vStop_StdDev);
    visit("trafo", result.trafo);
    visit("ellipsoid", result.ellipsoid);
    visit("eICPResult", result.eICPResult);
}

element toElement(const char* key, int value) { return {key, value}; }
element toElement(const char* key, float value) { return {key, value}; }
element toElement(const char* key, const Vector3& stdDev) { return {key, writeVector(stdDev, sigmas)}; }
element toElement(const char* key, const CTrafo& value) { return {key, to_object(value)}; }
element toElement(const char* key, const Ellipsoid& value) { return {key, to_object(value)}; }

void read(const element& e, int& value) { value = e.as_int32(); }
void read(const element& e, float& value) { value = e.as_float(); }
void read(const element& e, Vector3& stdDev) { stdDev = readVector(e.as_object(), sigmas, ICPResult().vStop_StdDev); }
void read(const element& e, CTrafo& value) { value = from_object<CTrafo>(e.as_object()); }
void read(const element& e, Ellipsoid& value) { value = from_object<Ellipsoid>(e.as_object()); }

/// A point or normal as it is stored: without the fourth lane that vectors have in memory.
using PackedVector = std::array<float, 3>;
static_assert(sizeof(PackedVector) == 12);
static_assert(sizeof(CPointFeatureHistogram) == 132 && std::is_trivially_copyable_v<CPointFeatureHistogram>);

element pack(const char* key, const Vectors& vectors)
{
    const auto packed = std::make_unique_for_overwrite<PackedVector[]>(vectors.size());
    std::transform(vectors.begin(), vectors.end(), packed.get(), [](const Vector3& v) {
        return PackedVector{v.x, v.y, v.z};
    });
    return element::make_binary(key, packed.get(), vectors.size() * sizeof(PackedVector), element::eGeneric);
}

element pack(const char* key, const std::vector<CPointFeatureHistogram>& features)
{
    return element::make_binary(key, features.data(), features.size() * sizeof(CPointFeatureHistogram),
                                element::eGeneric);
}

// A payload need not be aligned, and its last record may be cut short: what is left of it does not count.
Vectors unpackVectors(const element& e)
{
    const auto [bytes, size, type] = e.as_binary();
    Vectors vectors(size / sizeof(PackedVector));
    const unsigned char* from = bytes;
    for (Vector3& v : vectors) {
        PackedVector packed;
        std::memcpy(packed.data(), from, sizeof(packed));
        v = {packed[0], packed[1], packed[2]};
        from += sizeof(packed);
    }
    return vectors;
}

std::vector<CPointFeatureHistogram> unpackFeatures(const element& e)
{
    const auto [bytes, size, type] = e.as_binary();
    std::vector<CPointFeatureHistogram> features(size / sizeof(CPointFeatureHistogram));
    std::copy_n(bytes, features.size() * sizeof(CPointFeatureHistogram),
                reinterpret_cast<unsigned char*>(features.data()));
    return features;
}

} // namespace

object to_object(const CTrafo& trafo)
{
    // A matrix that is no rotation can have a quaternion that is one, so what is invalid in part is written so as a
    // whole.
    const CTrafo written = trafo ? trafo : CTrafo::Invalid();
    const Quaternion q = written.GetQuaternion();
    const object rotation = {element("w", static_cast<float>(q.w)), element("x", static_cast<float>(q.x)),
                             element("y", static_cast<float>(q.y)), element("z", static_cast<float>(q.z))};
    return {element("Rotation", rotation), element("Translation", writeVector(written.GetTranslation(), axes))};
}

template <>
CTrafo from_object(const object& document)
{
    const object rotation = document.child("Rotation").as_object();
    const object translation = document.child("Translation").as_object();
    const auto q = [&](const char* key) { return static_cast<double>(rotation.child(key).as_float()); };
    const auto t = [&](const char* key) { return translation.child(key).as_float(); };
    return {Quaternion(q("w"), q("x"), q("y"), q("z")), Vector3(t("x"), t("y"), t("z"))};
}

object to_object(const Ellipsoid& ellipsoid)
{
    const object tips = {element("pt1", writeVector(ellipsoid.tips[0], axes)),
                         element("pt2", writeVector(ellipsoid.tips[1], axes)),
                         element("pt3", writeVector(ellipsoid.tips[2], axes))};
    return {element("COG", writeVector(ellipsoid.center, axes)), element("ExtremePts", tips)};
}

template <>
Ellipsoid from_object(const object& document)
{
    Ellipsoid ellipsoid;
    for (const element& e : document) {
        const std::string_view key = e.name();
        if (key == "COG") ellipsoid.center = readVector(e.as_object(), axes, {});
        if (key == "ExtremePts") ellipsoid.tips = readTips(e.as_object());
    }
    return ellipsoid;
}

object to_object(const ICPResult& result)
{
    object document;
    visitFields(result, result.fStop_OverlapRatio,
                [&](const char* key, const auto& field) { document += toElement(key, field); });
    return document;
}

template <>
ICPResult from_object(const object& document)
{
    ICPResult result;
    for (const element& e : document) {
        // The ratio of the stop lands in the start's field: it overwrites the one that stands before it in the
        // document, and results that were read rank by the default ratio. The order of loaded results relies on it.
        visitFields(result, result.fStart_OverlapRatio, [&](std::string_view key, auto& field) {
            if (key == e.name()) read(e, field);
        });
    }
    return result;
}

object to_object(const CFPFHPointSet& set)
{
    object document;
    document += pack("Points", set.GetPoints());
    document += pack("Normals", set.GetNormals());
    document += pack("FeaturePoints", set.GetFeaturePoints());
    document += pack("FeatureNormals", set.GetFeatureNormals());
    document += pack("Features", set.GetFeatures());
    return document;
}

namespace {

/// Where the arrays of a point set lie; null for those that are missing.
struct PackedArrays
{
    const element* points = nullptr;
    const element* normals = nullptr;
    const element* featurePoints = nullptr;
    const element* featureNormals = nullptr;
    const element* features = nullptr;

    const element** Find(std::string_view key)
    {
        if (key == "Points") return &points;
        if (key == "Normals") return &normals;
        if (key == "FeaturePoints") return &featurePoints;
        if (key == "FeatureNormals") return &featureNormals;
        return key == "Features" ? &features : nullptr;
    }
};

/// The last of each key counts, but all of them have to be arrays.
PackedArrays findArrays(const object& document)
{
    PackedArrays arrays;
    for (const element& e : document) {
        const element** const array = arrays.Find(e.name());
        if (array == nullptr) continue;
        static_cast<void>(e.as_binary());
        *array = &e;
    }
    return arrays;
}

} // namespace

template <>
CFPFHPointSet from_object(const object& document)
{
    const PackedArrays arrays = findArrays(document);
    const auto vectors = [](const element* e) { return e != nullptr ? unpackVectors(*e) : Vectors(); };
    return {vectors(arrays.points), vectors(arrays.normals), vectors(arrays.featurePoints),
            vectors(arrays.featureNormals),
            arrays.features != nullptr ? unpackFeatures(*arrays.features) : std::vector<CPointFeatureHistogram>()};
}

void DemandPointSet(const object& document) { static_cast<void>(findArrays(document)); }

object to_object(const CFPFHPreRegistration& search)
{
    object transforms;
    for (const ICPResult& result : search.GetAllResults())
        transforms += element(std::to_string(transforms.num_elements()), to_object(result));

    const CFPFHPointSet none;
    object document;
    document += element("FixPointSet", to_object(search.GetFixPointSetPtr() ? search.GetFixPointSet() : none));
    document += element("FltPointSet", to_object(search.GetFltPointSetPtr() ? search.GetFltPointSet() : none));
    document += element("Configuration", to_object(search.GetMatchingConfig()));
    document += element("Transforms", transforms);
    return document;
}

template <>
CFPFHPreRegistration from_object(const object& document)
{
    const auto part = [&](const char* key) { return document.child(key).as_object(); };
    const auto readSet = [](const object& set) {
        return std::make_shared<const CFPFHPointSet>(from_object<CFPFHPointSet>(set));
    };
    const object fix = part("FixPointSet");
    const object flt = part("FltPointSet");
    const object config = part("Configuration");
    CFPFHPreRegistration search(readSet(fix), readSet(flt), from_object<prereg::ConfigurationFPFH>(config));
    for (const element& e : part("Transforms")) search.InjectICPResult(from_object<ICPResult>(e.as_object()));
    return search;
}

} // namespace bson
