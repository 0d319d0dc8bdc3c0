// SPDX-License-Identifier: MIT
#include "zorvan/core/cpointset.h"

#include "zorvan/core/icpregistration.h"
#include "zorvan/core/textfile.h"
#include "zorvan/platform/clogger.h"

#include <algorithm>
#include <limits>
#include <stdexcept>

namespace prereg {

namespace {

using Vector3 = kdtree::Vector<3>;

const Logging::CLogger logger(L"QAV.PreRegistration");

bool satisfiesAll(const float* normals, const float* offsets, unsigned count, const Vector3& p)
{
    for (unsigned k = 0; k < count; ++k, normals += 3) {
        if (!(kdtree::Dot(p, Vector3(normals[0], normals[1], normals[2])) <= offsets[k])) return false;
    }
    return true;
}

} // namespace

IPointSet::~IPointSet() = default;

CPointSet::CPointSet(const Vector3* points, const Vector3* normals, std::size_t n)
    : CPointSet(Vectors(points, points + n), Vectors(normals, normals + n))
{
}

CPointSet::CPointSet(Vectors points, Vectors normals, std::vector<unsigned> bitMasks)
    : m_points(std::move(points)), m_normals(std::move(normals)), m_bitMasks(std::move(bitMasks))
{
    rebuildKdTree();
    rebuildEllipsoid();
}

void CPointSet::rebuildKdTree()
{
    m_kdTree = Zorvan::TKdTree<3, 48>(m_points.data(), m_points.size());
    if (m_points.empty() || !m_kdTree.Empty()) return;

    logger.Error(L"Inf/NaN in point data resulted in empty kD-tree; invalidating point set");
    m_points.clear();
    m_normals.clear();
    m_bitMasks.clear();
    m_ellipsoid = {};
}

void CPointSet::rebuildEllipsoid() { m_ellipsoid = Ellipsoid(m_points.data(), m_points.size()); }

std::pair<Vector3, Vector3> CPointSet::GetAABB() const
{
    const auto box = m_kdTree.GetAABB();
    return {box.low, box.high};
}

std::size_t CPointSet::GetMemUsage() const
{
    return m_kdTree.GetMemUsage() + 16 * (m_points.size() + m_normals.size() + 11);
}

void CPointSet::InitializeBitMasks(unsigned value) { m_bitMasks.assign(Size(), value); }

void CPointSet::ClearBitMasks() { m_bitMasks.clear(); }

unsigned CPointSet::GetBitMask(std::size_t i) const
{
    if (m_bitMasks.empty()) return 0;
    if (i >= m_bitMasks.size()) throw std::out_of_range("invalid vector<T> subscript");
    return m_bitMasks[i];
}

void CPointSet::SaveXYZN(const std::string& file, unsigned color) const
{
    TextFile out(file);
    for (std::size_t i = 0; i < m_points.size(); ++i) out.WriteSurfel(m_points[i], m_normals[i], color);
    out.Close();
}

ICPResult CPointSet::ComputeICPRegistration(const ConfigurationICP& config, std::mt19937& rng, const CPointSet& flt,
                                            const CTrafo& initial, const CTrafo* oracle, bool flag) const
{
    return prereg::ComputeICPRegistration(config, rng, m_points.data(), m_normals.data(), m_kdTree, flt.m_points.data(),
                                          flt.m_normals.data(), flt.m_kdTree, flt.m_ellipsoid, initial, oracle, flag);
}

float CPointSet::SignedDistance(const Vector3& p, float maxDistance) const
{
    Zorvan::NearestQuery query{p, -1, maxDistance * maxDistance};
    m_kdTree.FindNearest(query);
    if (query.index < 0) return std::numeric_limits<float>::quiet_NaN();
    const auto i = static_cast<std::size_t>(query.index);
    return kdtree::Dot(p - m_points[i], m_normals[i]);
}

CPointSet CPointSet::filterPointSet(const float* normals, const float* offsets, unsigned count) const
{
    auto [points, pointNormals] = filterSurfelsWithInequalities(normals, offsets, count, m_points, m_normals);
    return {std::move(points), std::move(pointNormals)};
}

std::pair<Vectors, Vectors> CPointSet::filterSurfelsWithInequalities(const float* normals, const float* offsets,
                                                                     unsigned count, const Vectors& points,
                                                                     const Vectors& pointNormals)
{
    std::pair<Vectors, Vectors> kept;
    for (std::size_t i = 0; i < points.size(); ++i) {
        if (!satisfiesAll(normals, offsets, count, points[i])) continue;
        kept.first.push_back(points[i]);
        kept.second.push_back(pointNormals[i]);
    }
    return kept;
}

std::vector<int> CPointSet::identifyMatchingIndices(const float* normals, const float* offsets, unsigned count,
                                                    const Vectors& points)
{
    std::vector<int> kept;
    for (std::size_t i = 0; i < points.size(); ++i) {
        if (satisfiesAll(normals, offsets, count, points[i])) kept.push_back(static_cast<int>(i));
    }
    return kept;
}

std::tuple<Vectors, Vectors, std::vector<unsigned>> CPointSet::filterSurfelsWithMask(unsigned mask, bool invert) const
{
    std::tuple<Vectors, Vectors, std::vector<unsigned>> kept;
    if (mask == 0) return kept;
    auto& [points, normals, masks] = kept;
    for (std::size_t i = 0; i < std::min(m_bitMasks.size(), m_points.size()); ++i) {
        if (((m_bitMasks[i] & mask) == mask) == invert) continue;
        points.push_back(m_points[i]);
        normals.push_back(m_normals[i]);
        masks.push_back(m_bitMasks[i]);
    }
    return kept;
}

std::pair<Vectors, Vectors>
CPointSet::filterSurfelsWithPredicate(const std::function<bool(const Vector3&)>& predicate) const
{
    std::pair<Vectors, Vectors> kept;
    for (std::size_t i = 0; i < m_points.size(); ++i) {
        if (!predicate(m_points[i])) continue;
        kept.first.push_back(m_points[i]);
        kept.second.push_back(m_normals[i]);
    }
    return kept;
}

std::pair<Vectors, Vectors> CPointSet::scaleSurfels(const Vector3& s, const Vectors& points, const Vectors& normals)
{
    if (points.empty() || normals.empty()) return {};
    std::pair<Vectors, Vectors> scaled{points, normals};
    for (auto& p : scaled.first) p = p * s;
    for (auto& n : scaled.second) n = n * s;
    return scaled;
}

std::pair<Vectors, Vectors> CPointSet::transformSurfels(const CTrafo& t, const Vectors& points, const Vectors& normals)
{
    if (points.empty() || normals.empty()) return {};
    std::pair<Vectors, Vectors> moved{points, normals};
    for (auto& p : moved.first) p = t * p;
    for (auto& n : moved.second) n = t.Rotate(n);
    return moved;
}

} // namespace prereg
