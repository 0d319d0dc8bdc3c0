// SPDX-License-Identifier: MIT
#include "zorvan/verdict/cscanview.h"

#include "zorvan/verdict/verdictlimits.h"

#include <cmath>
#include <numbers>
#include <stdexcept>

namespace prereg {

namespace {

using Vector3 = kdtree::Vector<3>;

std::optional<Vector3> normalised(const Vector3& v)
{
    const float length = v.Length();
    if (!(length > 0.0F) || !kdtree::IsFinite(length)) return std::nullopt;
    return v * (1.0F / length);
}

} // namespace

CScanView::CScanView(const IPointSet& scan, const SensorKnowledge& knowledge)
    : m_numPoints(scan.GetKdTree().Size()),
      m_isEven(knowledge.isEven),
      m_sampling(MeasureSampling(scan.GetPoints(), scan.GetKdTree()))
{
    setMiddle(scan.GetPoints());
    if (m_sampling.dSpacing <= 0.0) return;
    setRay(scan, knowledge);
    if (m_ray.eKind != ERay::None) {
        makeImages(scan);
        return;
    }
    m_tree = scan.GetKdTree();
    m_points = scan.GetPoints();
    m_normals = scan.GetNormals();
}

const CRangeImage& CScanView::GetImage() const
{
    if (m_images.empty()) throw std::logic_error("a scan without a viewing ray has no image");
    return m_images.front();
}

void CScanView::setMiddle(const Vectors& points)
{
    double sum[3] = {0.0, 0.0, 0.0};
    double sumSq = 0.0;
    for (const Vector3& p : points) {
        if (!p.IsFinite()) continue;
        for (unsigned k = 0; k < 3; ++k) {
            const auto value = static_cast<double>(p[k]);
            sum[k] += value;
            sumSq += value * value;
        }
    }
    if (m_numPoints == 0) return;
    const auto n = static_cast<double>(m_numPoints);
    for (unsigned k = 0; k < 3; ++k) {
        m_middle[k] = static_cast<float>(sum[k] / n);
        sumSq -= sum[k] * sum[k] / n;
    }
    m_radius = std::sqrt(std::max(0.0, sumSq) / n);
}

void CScanView::setRay(const IPointSet& scan, const SensorKnowledge& knowledge)
{
    if (knowledge.isSurface) return;
    std::optional<Vector3> given;
    if (knowledge.position)
        given = normalised(*knowledge.position - m_middle);
    else if (knowledge.direction)
        given = normalised(*knowledge.direction);
    if (given) {
        const double regularity = RayRegularity(scan.GetPoints(), scan.GetKdTree(), m_sampling.dSpacing, *given);
        m_ray = {ERay::Given, *given, regularity};
    } else {
        m_ray = FindViewingRay(scan.GetPoints(), scan.GetNormals(), scan.GetKdTree(), m_sampling.dSpacing);
    }
}

void CScanView::makeImages(const IPointSet& scan)
{
    const auto add = [&](const Vector3& direction) {
        m_images.emplace_back(scan.GetPoints(), scan.GetNormals(), direction, m_sampling.dSpacing, m_isEven);
    };
    add(m_ray.direction);
    if (m_ray.eKind != ERay::Guessed) return;
    const auto tilt = static_cast<float>(std::tan(verdict::dConeDegrees * std::numbers::pi / 180.0));
    const CTrafo axes = m_images.front().GetFrame().GetInverse(true);
    for (const Vector3& side : {Vector3(1, 0, 0), Vector3(-1, 0, 0), Vector3(0, 1, 0), Vector3(0, -1, 0)})
        add(*normalised(m_ray.direction + axes.Rotate(side) * tilt));
}

double DistanceOfPoses(const CScanView& scan, const CTrafo& a, const CTrafo& b)
{
    // Over points about their middle the turn and the shift of the middle add up in squares; the turn by what it moves
    // at the radius, seen along its axis from two of three directions in the mean.
    const auto shift = static_cast<double>((a * scan.GetMiddle() - b * scan.GetMiddle()).Length());
    const double angle = static_cast<double>(a.GetRotationDistance(b));
    const double turn = 2.0 * std::sin(0.5 * angle) * scan.GetRadius() * std::sqrt(2.0 / 3.0);
    return std::hypot(shift, turn);
}

} // namespace prereg
