// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/core/cpointset.h"
#include "zorvan/features/configurationfpfh.h"
#include "zorvan/features/cpointfeaturehistogram.h"
#include "zorvan/platform/export.h"

#include <cstddef>
#include <functional>
#include <string>
#include <utility>
#include <vector>

namespace prereg {

class CFPFHDataSource;

/// A point set with a second, usually sparser set of points that carry a feature each: an immutable snapshot of a
/// CFPFHDataSource, and what registration without a start pose works on.
///
///     const CFPFHPointSet set(source);
///     for (const auto& similar : set.LookupSimilarFeatures(histogram, 10, 2.0F))
///         use(set.GetFeaturePoint(similar.index));
///
/// Points that cannot be used leave an empty set: ask `SizeFeatures()`. Lengths in mm. Const operations are safe from
/// several threads.
class ZORVAN_API CFPFHPointSet : public CPointSet
{
public:
    using Vector3 = kdtree::Vector<3>;
    using PointTree = Zorvan::TKdTree<3, 48>;
    using FeatureTree = Zorvan::TKdTree<33, 4096>;

    CFPFHPointSet() = default;
    explicit CFPFHPointSet(const CFPFHDataSource& source);
    CFPFHPointSet(const std::vector<Vector3>& points, const std::vector<Vector3>& normals,
                  const std::vector<Vector3>& featurePoints, const std::vector<Vector3>& featureNormals,
                  const std::vector<CPointFeatureHistogram>& features);

    [[nodiscard]] std::size_t SizeFeatures() const { return m_features.size(); }
    [[nodiscard]] const CPointFeatureHistogram& GetFeature(std::size_t i) const { return m_features[i]; } ///< unchecked
    [[nodiscard]] Vector3 GetFeaturePoint(std::size_t i) const { return m_featurePoints[i]; }             ///< unchecked
    [[nodiscard]] Vector3 GetFeatureNormal(std::size_t i) const { return m_featureNormals[i]; }           ///< unchecked
    [[nodiscard]] const std::vector<CPointFeatureHistogram>& GetFeatures() const { return m_features; }
    [[nodiscard]] const std::vector<Vector3>& GetFeaturePoints() const { return m_featurePoints; }
    [[nodiscard]] const std::vector<Vector3>& GetFeatureNormals() const { return m_featureNormals; }
    [[nodiscard]] const PointTree& GetFeaturePointsKdTree() const { return m_featurePointTree; }
    /// 0 without feature masks. @throws std::out_of_range "invalid vector<T> subscript" past the end of the masks
    [[nodiscard]] unsigned int GetFeatureBitMask(std::size_t i) const;
    [[nodiscard]] std::vector<unsigned int> GetFeatureBitMasks() const { return m_featureMasks; }
    void InitializeBitMasks(unsigned int mask) override;
    void ClearBitMasks() override;

    /// Up to `maxCount` > 0 features within `maxDistance` of the query in the Euclidean distance of histograms, nearest
    /// first, each with its squared distance. The search is approximate: it can return fewer than there are.
    [[nodiscard]] std::vector<std::pair<unsigned int, float>>
    LookupSimilarFeatures(const CPointFeatureHistogram& query, unsigned int maxCount, float maxDistance) const;

    /// Too few points or features for a search without start pose.
    [[nodiscard]] bool IsTooLean(const ConfigurationFPFH& config) const;

    /// ICP on the feature points alone, with this set fixed; see prereg::ComputeICPRegistration. Same call, same
    /// result.
    [[nodiscard]] ICPResult ComputeRoughICPRegistration(const ConfigurationICP& config, const CFPFHPointSet& flt,
                                                        const CTrafo& start, const CTrafo* oracle, bool flag) const;

    /// Whether the features that come to lie on each other under `trafo` (flt to this set) also look alike. Flat spots
    /// do not count, as they all look alike. Logs each reason for a no. Always true when
    /// `dVerifyTrafoMaxFeatureDistance` or `dVerifyTrafoMinConfidence` is <= 0.
    [[nodiscard]] bool VerifyAlignmentFeatureBased(const ConfigurationFPFH& config, const CFPFHPointSet& flt,
                                                   const CTrafo& trafo) const;

    [[nodiscard]] CFPFHPointSet Transform(CTrafo trafo) const;
    /// What lies in all `count` half-spaces dot(p, A[k]) <= b[k]; A has `count` rows of 3 floats. Empty when no point
    /// or no feature is left; so for the two below.
    [[nodiscard]] CFPFHPointSet RestrictWithInequalities(const float* A, const float* b, unsigned int count) const;
    /// What has all bits of `mask`, or with `keepMatching` false what has not. A copy for mask 0 or without masks.
    [[nodiscard]] CFPFHPointSet RestrictWithMask(unsigned int mask, bool keepMatching) const;
    [[nodiscard]] CFPFHPointSet RestrictWithPredicate(std::function<bool(const Vector3&)> predicate) const;

    /// Writes a line a feature: x y z nx ny nz, and r g b of `color` (0xRRGGBB) unless that is 0xFFFFFFFF.
    /// @throws std::invalid_argument "empty file name"; std::ios_base::failure when writing fails
    void SaveFeaturePointsXYZN(const std::string& fileName, unsigned int color) const;

private:
    void rebuildFeatureKdTree();
    void rebuildFeaturePointTree();
    /// The part with these features and points; empty when it has none of either.
    [[nodiscard]] CFPFHPointSet restrictTo(const std::vector<int>& features, const std::vector<int>& points) const;

    std::vector<Vector3> m_featurePoints;
    std::vector<Vector3> m_featureNormals;
    PointTree m_featurePointTree;
    std::vector<CPointFeatureHistogram> m_features;
    FeatureTree m_featureTree;
    std::vector<unsigned int> m_featureMasks;
};

} // namespace prereg
