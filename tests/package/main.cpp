#include <zorvan/core/cpointset.h>

#include <cmath>
#include <cstdio>
#include <random>
#include <vector>

int main()
{
    std::mt19937 rng(1);
    std::uniform_real_distribution<float> draw(-10.0F, 10.0F);
    std::vector<kdtree::Vector<3>> points;
    std::vector<kdtree::Vector<3>> normals;
    for (int i = 0; i < 20000; ++i) {
        const float x = draw(rng);
        const float y = draw(rng);
        const kdtree::Vector<3> normal(-std::cos(x), std::sin(y), 1.0F);
        points.emplace_back(x, y, std::sin(x) + std::cos(y));
        normals.push_back(normal * (1.0F / normal.Length()));
    }
    const prereg::CPointSet scan(points.data(), normals.data(), points.size());
    const auto start = prereg::CTrafo().Translate({0.1F, -0.1F, 0.05F});
    const auto result = scan.ComputeICPRegistration({}, rng, scan, start, nullptr, false);
    std::puts(result.ToString(true).c_str());
    return result && result.GetTrafo().GetTranslation().Length() < 0.01F ? 0 : 1;
}
