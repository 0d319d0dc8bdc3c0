// SPDX-License-Identifier: MIT
#include "zorvan/exchange/surfacemesh.h"

#include <gtest/gtest.h>

#include <map>
#include <random>
#include <set>
#include <utility>

namespace graphene {
namespace {

using Corners = std::vector<std::uint32_t>;

Surface_mesh withVertices(int n)
{
    Surface_mesh mesh;
    for (int i = 0; i < n; ++i) mesh.AddVertex({i, 2 * i, -i});
    return mesh;
}

Surface_mesh::Face add(Surface_mesh& mesh, const Corners& corners)
{
    std::vector<Surface_mesh::Vertex> vertices;
    for (const std::uint32_t c : corners) vertices.emplace_back(c);
    return mesh.AddFace(vertices);
}

Corners cornersOf(const Surface_mesh& mesh, Surface_mesh::Face face)
{
    Corners corners;
    mesh.ForEachHalfedge(face, [&](auto h) { corners.push_back(mesh.GetFromVertex(h).GetIndex()); });
    return corners;
}

std::vector<Corners> facesOf(const Surface_mesh& mesh)
{
    std::vector<Corners> faces;
    for (const auto f : mesh.GetFaces()) faces.push_back(cornersOf(mesh, f));
    return faces;
}

/// Looks at all corners of a surface, as neighbours of neighbours: at each vertex they must form one closed ring or
/// open fans, and no direction of an edge may be taken twice.
bool isManifold(const std::vector<Corners>& faces)
{
    std::map<std::pair<std::uint32_t, std::uint32_t>, std::uint32_t> after; // at {vertex, where from}: where to
    for (const Corners& corners : faces) {
        const std::size_t n = corners.size();
        if (n < 3 || std::set(corners.begin(), corners.end()).size() != n) return false;
        for (std::size_t i = 0; i < n; ++i)
            if (!after.insert({{corners[i], corners[(i + n - 1) % n]}, corners[(i + 1) % n]}).second) return false;
    }
    std::map<std::uint32_t, std::pair<std::size_t, bool>> seen; // corners at a vertex, and whether a ring was met
    for (const auto& [place, to] : after) ++seen[place.first].first;
    std::set<std::pair<std::uint32_t, std::uint32_t>> leaving;
    for (const auto& [place, to] : after)
        if (!leaving.insert({place.first, to}).second) return false;
    for (const auto& [place, to] : after) {
        std::size_t length = 1;
        std::uint32_t at = to;
        for (auto next = after.find({place.first, at}); next != after.end() && at != place.second; ++length) {
            at = next->second;
            next = after.find({place.first, at});
        }
        if (at == place.second && length != seen[place.first].first) return false;
    }
    return true;
}

/// What holds of every mesh, whatever was done to it.
void expectSound(const Surface_mesh& mesh)
{
    for (const auto h : mesh.GetHalfedges()) {
        const auto next = mesh.GetNext(h);
        ASSERT_EQ(mesh.GetFromVertex(next), mesh.GetToVertex(h));
        ASSERT_EQ(mesh.GetFace(next), mesh.GetFace(h));
    }
    std::size_t corners = 0;
    for (const auto f : mesh.GetFaces()) {
        mesh.ForEachHalfedge(f, [&](auto h) { corners += mesh.GetFace(h) == f; });
        corners -= cornersOf(mesh, f).size();
    }
    EXPECT_EQ(corners, 0U);
}

TEST(SurfaceMesh, TakesAFaceExactlyWhenThatLeavesAManifold)
{
    std::mt19937 rng(47110815);
    int taken = 0;
    int refused = 0;
    for (int run = 0; run < 300; ++run) {
        Surface_mesh mesh = withVertices(7); // so few that every case meets every other
        std::vector<Corners> faces;
        for (int i = 0; i < 30; ++i) {
            Corners face(3 + rng() % 2);
            for (auto& c : face) c = static_cast<std::uint32_t>(rng() % 7);
            auto with = faces;
            with.push_back(face);
            const bool fits = isManifold(with);
            ASSERT_EQ(add(mesh, face).IsValid(), fits) << "run " << run << ", face " << i;
            (fits ? taken : refused) += 1;
            if (fits) faces = with;
        }
        for (const Corners& none : {Corners{0, 1}, {0, 1, 7}}) EXPECT_FALSE(add(mesh, none).IsValid());
        EXPECT_EQ(facesOf(mesh), faces);
        expectSound(mesh);
    }
    EXPECT_GT(std::min(taken, refused), 1000);
}

/// A lattice of squares with every element known by a number of its own.
Surface_mesh numberedLattice(std::uint32_t n)
{
    Surface_mesh mesh = withVertices(static_cast<int>((n + 1) * (n + 1) + 1)); // the last one stays alone
    for (std::uint32_t i = 0; i < n * n; ++i) {
        const std::uint32_t a = i / n * (n + 1) + i % n;
        add(mesh, {a, a + 1, a + n + 2, a + n + 1});
    }
    const auto ofVertex = mesh.AddVertexProperty<std::string>("v:name");
    for (const auto v : mesh.GetVertices()) ofVertex[v] = std::to_string(v.GetIndex());
    const auto ofHalfedge = mesh.AddHalfedgeProperty<std::pair<std::string, std::string>>("h:ends");
    for (const auto h : mesh.GetHalfedges())
        ofHalfedge[h] = {ofVertex[mesh.GetFromVertex(h)], ofVertex[mesh.GetToVertex(h)]};
    const auto ofFace = mesh.AddFaceProperty<int>("f:number");
    for (const auto f : mesh.GetFaces()) ofFace[f] = static_cast<int>(f.GetIndex());
    return mesh;
}

TEST(SurfaceMesh, CollectsGarbageAndKeepsEveryPropertyWithItsElement)
{
    Surface_mesh mesh = numberedLattice(6);
    const Surface_mesh before = mesh;
    std::mt19937 rng(47110815);
    std::vector<int> kept;
    for (const auto f : before.GetFaces()) {
        if (rng() % 3 > 0)
            mesh.DeleteFace(f);
        else
            kept.push_back(static_cast<int>(f.GetIndex()));
    }
    EXPECT_TRUE(mesh.HasGarbage());
    EXPECT_THROW(add(mesh, {0, 1, 2}), std::logic_error);
    mesh.GarbageCollection();
    expectSound(mesh);

    const auto name = mesh.GetVertexProperty<std::string>("v:name");
    std::set<std::string> used{"49"}; // never had a face
    std::vector<int> numbers;
    for (const auto f : mesh.GetFaces()) {
        const int number = mesh.GetFaceProperty<int>("f:number")[f];
        numbers.push_back(number);
        Corners old;
        for (const std::uint32_t c : cornersOf(mesh, f)) old.push_back(std::stoi(name[Surface_mesh::Vertex(c)]));
        EXPECT_EQ(old, cornersOf(before, Surface_mesh::Face(number)));
        for (const std::uint32_t c : old) used.insert(std::to_string(c));
    }
    EXPECT_EQ(numbers, kept);
    EXPECT_EQ(mesh.GetNumVertices(), used.size());
    for (const auto v : mesh.GetVertices()) EXPECT_EQ(mesh.GetPosition(v)[0], std::stof(name[v]));
    const auto ends = mesh.GetHalfedgeProperty<std::pair<std::string, std::string>>("h:ends");
    for (const auto h : mesh.GetHalfedges())
        EXPECT_EQ(ends[h], std::pair(name[mesh.GetFromVertex(h)], name[mesh.GetToVertex(h)]));
    EXPECT_EQ(facesOf(before).size(), 36U) << "the copy has properties and elements of its own";
}

TEST(SurfaceMesh, GivesNoPropertyOfAnotherNameOrType)
{
    Surface_mesh mesh = withVertices(3);
    const auto weight = mesh.AddVertexProperty<float>("v:weight", 0.5F);
    EXPECT_EQ(weight[mesh.AddVertex({})], 0.5F) << "elements that come later get the default";
    EXPECT_EQ(&mesh.AddVertexProperty<float>("v:weight", 2.0F)[Surface_mesh::Vertex(1)],
              &weight[Surface_mesh::Vertex(1)]);
    EXPECT_FALSE(mesh.AddVertexProperty<int>("v:weight") || mesh.GetVertexProperty<int>("v:weight"));
    EXPECT_FALSE(mesh.GetFaceProperty<float>("v:weight") || mesh.GetVertexProperty<float>("v:other"));
}

TEST(SurfaceMesh, TakesAFanOfManyFacesInTimeThatGrowsWithThem)
{
    constexpr std::uint32_t n = 200000; // squared, this would run for minutes
    Surface_mesh mesh = withVertices(n + 1);
    for (std::uint32_t i = 1; i <= n; ++i) EXPECT_TRUE(add(mesh, {0, i, i % n + 1}).IsValid());
    for (const Corners& f : facesOf(mesh)) EXPECT_EQ(f.front(), 0U);
    EXPECT_FALSE(add(mesh, {0, 2, 4}).IsValid()) << "the ring is closed";
}

} // namespace
} // namespace graphene
