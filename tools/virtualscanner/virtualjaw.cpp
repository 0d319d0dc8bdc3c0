// SPDX-License-Identifier: MIT
#include "virtualjaw.h"

#include "distancefields.h"
#include "randomness.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <numeric>

namespace tools {

namespace {

constexpr double dHalfWidth = 25.0; // of the arch, a parabola
constexpr double dLength = 42.0;
constexpr float fReach = 42.0F; // from the origin to the last molar and the foot of the gum
constexpr double dSize = 60.0;
constexpr std::size_t uiGumParts = 28;
constexpr float fGumRadius = 5.0F;
constexpr float fGumDepth = -3.5F;
constexpr float fGumBlend = 1.2F;
constexpr float fCuspBlend = 1.0F;
constexpr float fFissureBlend = 0.4F;
constexpr float fBumpHeight = 0.05F; // of each wave

/// Middle measures of a kind of tooth in millimetres, from the front to the back.
struct Kind
{
    double width;
    double depth;
    double height;
    int cusps;
};
constexpr std::array<Kind, 7> kinds{{{8.5, 5.0, 8.5, 3},
                                     {6.8, 4.8, 7.8, 3},
                                     {7.7, 6.5, 9.0, 1},
                                     {7.0, 8.5, 7.5, 2},
                                     {6.9, 8.8, 7.2, 2},
                                     {10.4, 10.5, 6.5, 5},
                                     {9.8, 10.2, 6.2, 4}}};
constexpr std::size_t uiFirstPremolar = 3;
constexpr std::size_t uiFirstMolar = 5;

Zorvan::Vector3 vector(double x, double y, double z)
{
    return {static_cast<float>(x), static_cast<float>(y), static_cast<float>(z)};
}

double around(std::mt19937& rng, double middle, double share) { return middle * Uniform(rng, 1 - share, 1 + share); }

/// Draws z first and x last: arguments of a call come in an order that each compiler chooses, and the jaw of a seed is
/// the same from all of them.
template <class X, class Y, class Z>
Zorvan::Vector3 drawn(X&& drawX, Y&& drawY, Z&& drawZ)
{
    const double z = drawZ();
    const double y = drawY();
    return vector(drawX(), y, z);
}

/// Arc length along the parabola, as a table over x.
class CArchLength
{
public:
    CArchLength()
    {
        for (std::size_t i = 1; i < m_length.size(); ++i)
            m_length[i] = m_length[i - 1] + std::hypot(xAt(i) - xAt(i - 1), ArchY(xAt(i)) - ArchY(xAt(i - 1)));
    }

    [[nodiscard]] static double ArchY(double x) { return dLength * (0.5 - x * x / (dHalfWidth * dHalfWidth)); }

    [[nodiscard]] double XAt(double share) const
    {
        const double wanted = std::clamp(share, 0.0, 1.0) * m_length.back();
        const auto found = std::lower_bound(m_length.begin() + 1, m_length.end() - 1, wanted);
        const auto i = static_cast<std::size_t>(found - m_length.begin());
        const double t = (wanted - m_length[i - 1]) / (m_length[i] - m_length[i - 1]);
        return xAt(i - 1) + t * (xAt(i) - xAt(i - 1));
    }

private:
    [[nodiscard]] double xAt(std::size_t i) const
    {
        return dHalfWidth * (2.0 * static_cast<double>(i) / static_cast<double>(m_length.size() - 1) - 1.0);
    }

    std::array<double, 401> m_length{};
};

} // namespace

CVirtualJaw::CVirtualJaw(unsigned uiSeed)
{
    m_traits = {.middle = {0, 0, 0},
                .radius = fReach,
                .dSize = dSize,
                .steepest = fSteepest,
                .symmetries = {prereg::CTrafo::Identity()}};
    std::mt19937 rng(uiSeed);
    constexpr std::array<std::size_t, 14> row{6, 5, 4, 3, 2, 1, 0, 0, 1, 2, 3, 4, 5, 6};
    const double total = std::accumulate(row.begin(), row.end(), 0.0,
                                         [](double sum, std::size_t kind) { return sum + kinds[kind].width; });
    double before = 0.0;
    for (const std::size_t kind : row) {
        m_teeth.push_back(makeTooth(rng, kind, (before + 0.5 * kinds[kind].width) / total));
        before += kinds[kind].width;
    }
    for (std::size_t i = 0; i <= uiGumParts; ++i) {
        const Zorvan::Vector3 place = OnArch(static_cast<double>(i) / uiGumParts).place;
        m_gum.push_back(place + vector(0, 0, fGumDepth + Uniform(rng, -0.7, 0.7)));
    }
    for (Wave& wave : m_waves) {
        const auto component = [&] { return Uniform(rng, -1, 1); };
        const Zorvan::Vector3 direction = Zorvan::Normalized(drawn(component, component, component));
        wave.direction = direction * static_cast<float>(2.0 * 3.14159265358979 / Uniform(rng, 2.2, 6.5));
        wave.phase = static_cast<float>(Uniform(rng, 0.0, 6.28));
    }
}

CVirtualJaw::Station CVirtualJaw::OnArch(double share)
{
    static const CArchLength archLength;
    const double x = archLength.XAt(share);
    const double slope = -2.0 * dLength * x / (dHalfWidth * dHalfWidth);
    return {vector(x, CArchLength::ArchY(x), 0), Zorvan::Normalized(vector(1, slope, 0)),
            Zorvan::Normalized(vector(-slope, 1, 0))};
}

CVirtualJaw::Tooth CVirtualJaw::makeTooth(std::mt19937& rng, std::size_t kind, double share)
{
    const Kind& k = kinds[kind];
    const Station station = OnArch(share);
    Tooth tooth;
    const double rise = 0.35 * k.height + Uniform(rng, -0.4, 0.4);
    const auto outOfLine = static_cast<float>(Uniform(rng, -0.6, 0.6));
    tooth.place = station.place + station.outward * outOfLine + vector(0, 0, rise);
    const auto lean = [&] { return Uniform(rng, -0.14, 0.14); };
    const Zorvan::Vector3 up = Zorvan::Normalized(drawn(lean, lean, [] { return 1.0; }));
    const Zorvan::Vector3 turned = station.along + station.outward * static_cast<float>(Uniform(rng, -0.15, 0.15));
    const Zorvan::Vector3 outward = Zorvan::Normalized(kdtree::Cross(up, turned));
    tooth.axes = {kdtree::Cross(outward, up), outward, up};
    tooth.halfBody =
        drawn([&] { return around(rng, 0.47 * k.width, 0.06); }, [&] { return around(rng, 0.5 * k.depth, 0.1); },
              [&] { return around(rng, 0.5 * k.height, 0.08); });
    tooth.rounding = 0.8F * std::min(tooth.halfBody.x, tooth.halfBody.y);
    addCusps(rng, kind, tooth);
    addFissures(rng, kind, tooth);
    tooth.reach = tooth.halfBody.Length() + 2.5F;
    return tooth;
}

void CVirtualJaw::addCusps(std::mt19937& rng, std::size_t kind, Tooth& tooth)
{
    const int count = kinds[kind].cusps;
    const Zorvan::Vector3& half = tooth.halfBody;
    for (int i = 0; i < count; ++i) {
        // Front teeth carry theirs along the edge, the others around the middle of the chewing face.
        const double angle = 6.2831853 * (i + 0.25 * (count == 4 ? 2 : 1) * (count > 1 ? 1 : 0)) / count;
        const bool isFront = kind < uiFirstPremolar;
        const double x = isFront ? (i - 0.5 * (count - 1)) * 0.55 : 0.5 * std::cos(angle);
        const double y = isFront ? 0.0 : 0.5 * std::sin(angle);
        const double size = isFront ? 0.3 : 0.36;
        const Zorvan::Vector3 centre = drawn([&] { return half.x * (x + Uniform(rng, -0.08, 0.08)); },
                                             [&] { return half.y * (y + Uniform(rng, -0.08, 0.08)); },
                                             [&] { return half.z * Uniform(rng, 0.72, 0.95); });
        tooth.cusps.push_back(
            {centre, drawn([&] { return half.x * around(rng, size, 0.2); },
                           [&] { return half.y * around(rng, size, 0.2); }, [&] { return around(rng, 1.6, 0.25); })});
    }
}

void CVirtualJaw::addFissures(std::mt19937& rng, std::size_t kind, Tooth& tooth)
{
    if (kind < uiFirstPremolar) return;
    const Zorvan::Vector3& half = tooth.halfBody;
    const auto depth = [&] { return half.z + Uniform(rng, 0.0, 0.3); };
    const auto none = [] { return 0.0; };
    const auto width = [&] { return around(rng, 0.5, 0.2); };
    const Zorvan::Vector3 along = drawn(
        none, [&] { return half.y * Uniform(rng, -0.12, 0.12); }, depth);
    tooth.fissures.push_back(
        {along, drawn([&] { return 0.75 * half.x; }, width, [&] { return around(rng, 1.5, 0.2); })});
    if (kind < uiFirstMolar) return;
    const Zorvan::Vector3 across = drawn([&] { return half.x * Uniform(rng, -0.15, 0.15); }, none, depth);
    tooth.fissures.push_back(
        {across, drawn(
                     width, [&] { return 0.75 * half.y; }, [&] { return around(rng, 1.3, 0.2); })});
}

float CVirtualJaw::toothDistance(const Tooth& tooth, const Zorvan::Vector3& p)
{
    const Zorvan::Vector3 d = p - tooth.place;
    const Zorvan::Vector3 local(kdtree::Dot(d, tooth.axes[0]), kdtree::Dot(d, tooth.axes[1]),
                                kdtree::Dot(d, tooth.axes[2]));
    float distance = RoundedBoxDistance(local, tooth.halfBody, tooth.rounding);
    for (const Lobe& cusp : tooth.cusps)
        distance = SmoothMin(distance, EllipsoidDistance(local - cusp.center, cusp.halfAxes), fCuspBlend);
    for (const Lobe& fissure : tooth.fissures)
        distance = SmoothMax(distance, -EllipsoidDistance(local - fissure.center, fissure.halfAxes), fFissureBlend);
    return distance;
}

float CVirtualJaw::gumDistance(const Zorvan::Vector3& p) const
{
    float distance = std::numeric_limits<float>::max();
    for (std::size_t i = 1; i < m_gum.size(); ++i)
        distance = std::min(distance, SegmentDistance(p, m_gum[i - 1], m_gum[i]));
    return distance - fGumRadius;
}

float CVirtualJaw::bumps(const Zorvan::Vector3& p) const
{
    float sum = 0.0F;
    for (const Wave& wave : m_waves) sum += std::sin(kdtree::Dot(wave.direction, p) + wave.phase);
    return fBumpHeight * sum;
}

float CVirtualJaw::Distance(const Zorvan::Vector3& p) const
{
    constexpr float fHighest = fBumpHeight * static_cast<float>(std::tuple_size_v<decltype(m_waves)>);
    float distance = gumDistance(p);
    for (const Tooth& tooth : m_teeth) {
        // A tooth that cannot change the blend is not worth its ellipsoids.
        const float atLeast = (p - tooth.place).Length() - tooth.reach;
        if (atLeast > distance + fGumBlend) continue;
        distance = SmoothMin(distance, atLeast > 2.0F ? atLeast : toothDistance(tooth, p), fGumBlend);
    }
    return distance > 1.0F ? distance - fHighest : distance - bumps(p);
}

} // namespace tools
