// SPDX-License-Identifier: MIT
// Meshes in OBJ beside assimp in one run: a lattice with texture coordinates, read and written through files.

#include "tests/support/temporaryfolder.h"

#include "zorvan/exchange/cobjparser.h"
#include "zorvan/exchange/cobjwriter.h"

#include <assimp/Exporter.hpp>
#include <assimp/Importer.hpp>
#include <assimp/postprocess.h>
#include <assimp/scene.h>

#include <benchmark/benchmark.h>

#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>

namespace {

using Zorvan::COBJParser;

constexpr int iSide = 708; // lattice points along a side: 499,849 squares, 999,698 triangles
constexpr std::int64_t iFaces = std::int64_t{2} * (iSide - 1) * (iSide - 1);

/// The lattice as a scanner's software writes it: six decimals, one texture coordinate a vertex.
class CLatticeFile
{
public:
    CLatticeFile()
    {
        std::FILE* const out = std::fopen(Name().c_str(), "w");
        if (out == nullptr) throw std::runtime_error("no file for the lattice");
        for (int i = 0; i < iSide * iSide; ++i) {
            const int row = i / iSide;
            const double x = 0.1 * (i % iSide);
            const double y = 0.1 * row;
            std::fprintf(out, "v %.6f %.6f %.6f\n", x, y, 5.0 * std::sin(0.1 * x) * std::cos(0.13 * y));
        }
        for (int i = 0; i < iSide * iSide; ++i) {
            const int row = i / iSide;
            std::fprintf(out, "vt %.6f %.6f\n", (i % iSide) / double(iSide), row / double(iSide));
        }
        for (int i = 0; i < iSide * (iSide - 1); ++i) {
            if (i % iSide == iSide - 1) continue;
            const int a = i + 1, b = i + 2, c = i + iSide + 2, d = i + iSide + 1;
            std::fprintf(out, "f %d/%d %d/%d %d/%d\nf %d/%d %d/%d %d/%d\n", a, a, b, b, c, c, a, a, c, c, d, d);
        }
        std::fclose(out);
    }

    [[nodiscard]] std::string Name() const { return (m_folder / "lattice.obj").string(); }

private:
    TemporaryFolder m_folder;
};

const CLatticeFile& lattice()
{
    static const CLatticeFile file;
    return file;
}

void count(benchmark::State& state, const std::string& file)
{
    state.SetItemsProcessed(state.iterations() * iFaces);
    state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(std::filesystem::file_size(file)));
}

void demand(benchmark::State& state, bool holds)
{
    if (!holds) state.SkipWithError("another number of faces");
}

void BM_Parse(benchmark::State& state)
{
    const std::string name = lattice().Name();
    for (auto _ : state) {
        COBJParser parser(name);
        parser.Parse();
        demand(state, parser.GetFaces().size() == iFaces);
    }
    count(state, name);
}

void BM_ParseToMesh(benchmark::State& state)
{
    const std::string name = lattice().Name();
    for (auto _ : state) {
        COBJParser parser(name);
        parser.Parse();
        demand(state, parser.GetGrapheneMesh(false).GetNumFaces() == iFaces);
    }
    count(state, name);
}

void BM_ReadByAssimp(benchmark::State& state)
{
    const std::string name = lattice().Name();
    for (auto _ : state) {
        Assimp::Importer importer;
        const aiScene* const scene = importer.ReadFile(name, 0);
        demand(state, scene != nullptr && scene->mMeshes[0]->mNumFaces == iFaces);
    }
    count(state, name);
}

/// All faces textured, with a coordinate for each corner, as the mesh holds them.
void BM_Write(benchmark::State& state)
{
    const TemporaryFolder folder;
    COBJParser parser(lattice().Name());
    parser.Parse();
    const graphene::Surface_mesh& mesh = parser.GetGrapheneMesh(false);
    const auto coords = mesh.GetHalfedgeProperty<graphene::Vector<float, 2>>("h:texturecoords");
    const Zorvan::TImage<unsigned int> atlas(1, 1);
    Zorvan::COBJWriter writer(
        folder.Path().string(), "written", mesh, [](auto) { return true; }, [&](auto h) { return coords[h]; }, atlas);
    for (auto _ : state) demand(state, writer.Write());
    count(state, writer.GetOBJFilename());
}

/// As it was read: one coordinate a vertex, and normals, which we write too.
void BM_WriteByAssimp(benchmark::State& state)
{
    const TemporaryFolder folder;
    Assimp::Importer importer;
    const aiScene* const scene = importer.ReadFile(lattice().Name(), aiProcess_GenSmoothNormals);
    const std::string name = (folder / "written.obj").string();
    Assimp::Exporter exporter;
    for (auto _ : state) demand(state, exporter.Export(scene, "obj", name) == aiReturn_SUCCESS);
    count(state, name);
}

} // namespace

BENCHMARK(BM_Parse)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_ParseToMesh)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_ReadByAssimp)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Write)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_WriteByAssimp)->Unit(benchmark::kMillisecond);
