// Features of points, as CFPFHDataSource computes them on the processor: ComputeSPFH counts the pairs of each point with
// its neighbours, ComputeFPFH sums its neighbours' counts. One work item per point.
//
// Neighbours come from the search grid as it lies in host memory. The work items of a launch follow the order of the
// grid where they can, so those that run side by side visit the same cells and read the same addresses. Both kernels
// keep their 33 numbers in registers: no array is indexed by a value that is known only at run time, which would put it
// into memory.

#pragma OPENCL FP_CONTRACT OFF

#define NUM_BINS 33
#define BINS_PER_PART 11
#define MIN_NEIGHBORS 12u
#define EMPTY_CELL 0xFFFFFFFFu
#define WORDS_PER_RECORD 34 // 33 bins as floats and the number of neighbours as an integer

// A sum in the order of the host, without the freedom of the built-in dot().
float dotOf(float3 a, float3 b) { return a.x * b.x + a.y * b.y + a.z * b.z; }

float3 crossOf(float3 a, float3 b)
{
    return (float3)(a.y * b.z - a.z * b.y, a.z * b.x - a.x * b.z, a.x * b.y - a.y * b.x);
}

int3 cellOf(float3 p, int4 dims, float4 invCellSize, float4 bboxMin)
{
    const float3 cell = floor((p - bboxMin.xyz) * invCellSize.xyz);
    return clamp(convert_int3(cell), (int3)(0), dims.xyz - 1);
}

// Positions in the grid of the points in the three cells around x of one row: first and end.
uint2 stretchOf(int x, int y, int z, int4 dims, __global const uint* cubes, __global const uint* cellStart)
{
    if (y < 0 || y >= dims.y || z < 0 || z >= dims.z) return (uint2)(0, 0);
    const uint row = ((uint)z * (uint)dims.y + (uint)y) * (uint)dims.x;
    uint first = EMPTY_CELL;
    uint last = EMPTY_CELL;
    for (int k = max(x - 1, 0); k <= min(x + 1, dims.x - 1); ++k) {
        const uint ordinal = cubes[row + (uint)k];
        if (ordinal == EMPTY_CELL) continue;
        if (first == EMPTY_CELL) first = ordinal;
        last = ordinal;
    }
    return first == EMPTY_CELL ? (uint2)(0, 0) : (uint2)(cellStart[first], cellStart[last + 1]);
}

// NaN and what no integer holds go to bin 0.
uint binOf(float shifted) { return fabs(shifted) < 2147483648.0f ? (uint)clamp(convert_int_rte(shifted), 0, 10) : 0u; }

// Bins of one pair in the three parts of the histogram.
uint3 binsOf(float3 p_s, float3 n_s, float3 p_t, float3 n_t)
{
    float3 d = p_t - p_s;
    const float r = rsqrt(dotOf(d, d));
    if (isfinite(r)) d = d * r;
    const float3 v = crossOf(d, n_s);
    const float3 w = crossOf(n_s, v);
    const float alpha = dotOf(v, n_t);
    const float phi = dotOf(n_s, d);
    const float theta = atan2(dotOf(w, n_t), dotOf(n_s, n_t));
    return (uint3)(binOf(5.0f * alpha + 5.0f), binOf(5.0f * phi + 5.0f), binOf(1.5915492f * theta + 5.0f));
}

// Eleven counts up to 31 in five bits each: a count is one shift and one addition.
#define PACKED_BITS 5
#define PACKED_MAX 31u

ulong3 countOf(uint3 bins)
{
    return (ulong3)(1ul << (PACKED_BITS * bins.x), 1ul << (PACKED_BITS * bins.y), 1ul << (PACKED_BITS * bins.z));
}

void unpack(ulong3 packed, uint* counts)
{
#pragma unroll
    for (uint bin = 0; bin < BINS_PER_PART; ++bin) {
        counts[bin] += (uint)(packed.x >> (PACKED_BITS * bin)) & PACKED_MAX;
        counts[BINS_PER_PART + bin] += (uint)(packed.y >> (PACKED_BITS * bin)) & PACKED_MAX;
        counts[2 * BINS_PER_PART + bin] += (uint)(packed.z >> (PACKED_BITS * bin)) & PACKED_MAX;
    }
}

__kernel void ComputeSPFH(uint numCubes, int4 dims, float4 cellSize, float4 invCellSize, float4 bboxMin, float4 bboxMax,
                          __global const uint* cubes, __global const uint* cellStart, __global const uint* permutation,
                          uint from, __global const float4* points, __global const float4* normals,
                          __global uint* spfh, float radiusSq)
{
    const uint id = (uint)get_global_id(0);
    const uint i = from == 0 ? permutation[id] : from + id; // when all are new, in the order of the grid
    const float3 p = points[i].xyz;
    const float3 n = normals[i].xyz;
    const int3 cell = cellOf(p, dims, invCellSize, bboxMin);

    uint counts[NUM_BINS];
#pragma unroll
    for (uint bin = 0; bin < NUM_BINS; ++bin) counts[bin] = 0;
    ulong3 packed = (ulong3)(0);
    uint numPacked = 0;
    uint numNeighbors = 0;
    for (int z = cell.z - 1; z <= cell.z + 1; ++z) {
        for (int y = cell.y - 1; y <= cell.y + 1; ++y) {
            const uint2 stretch = stretchOf(cell.x, y, z, dims, cubes, cellStart);
            for (uint k = stretch.x; k < stretch.y; ++k) {
                const uint j = permutation[k];
                const float3 q = points[j].xyz;
                const float3 d = q - p;
                if (!(dotOf(d, d) <= radiusSq)) continue;
                ++numNeighbors;
                if (j == i) continue;
                packed += countOf(binsOf(p, n, q, normals[j].xyz));
                if (++numPacked < PACKED_MAX) continue;
                unpack(packed, counts);
                packed = (ulong3)(0);
                numPacked = 0;
            }
        }
    }
    unpack(packed, counts);

    const bool isEnough = numNeighbors >= MIN_NEIGHBORS;
    __global uint* record = spfh + (size_t)i * WORDS_PER_RECORD;
#pragma unroll
    for (uint bin = 0; bin < NUM_BINS; ++bin) record[bin] = as_uint(isEnough ? (float)counts[bin] : 0.0f);
    record[NUM_BINS] = isEnough ? numNeighbors : 0u;
}

__kernel void ComputeFPFH(uint numCubes, int4 dims, float4 cellSize, float4 invCellSize, float4 bboxMin, float4 bboxMax,
                          __global const uint* cubes, __global const uint* cellStart, __global const uint* permutation,
                          __global const float4* sortedPoints, uint from, __global const float4* points,
                          __global const uint* spfh, __global float* fpfh, float radiusSq)
{
    const uint i = permutation[get_global_id(0)];
    if (i < from) return; // what was there before stays
    __global float* feature = fpfh + (size_t)i * NUM_BINS;
    const uint numNeighbors = spfh[(size_t)i * WORDS_PER_RECORD + NUM_BINS];
    if (numNeighbors == 0) {
#pragma unroll
        for (uint bin = 0; bin < NUM_BINS; ++bin) feature[bin] = as_float(0x7FC00000u);
        return;
    }
    const float3 p = points[i].xyz;
    const int3 cell = cellOf(p, dims, invCellSize, bboxMin);
    const float weight = 1.0f / (float)numNeighbors; // cancels in the end; it keeps the sums small

    float sums[NUM_BINS];
#pragma unroll
    for (uint bin = 0; bin < NUM_BINS; ++bin) sums[bin] = 0.0f;
    for (int z = cell.z - 1; z <= cell.z + 1; ++z) {
        for (int y = cell.y - 1; y <= cell.y + 1; ++y) {
            const uint2 stretch = stretchOf(cell.x, y, z, dims, cubes, cellStart);
            for (uint k = stretch.x; k < stretch.y; ++k) {
                const float3 d = sortedPoints[k].xyz - p;
                const float distSq = dotOf(d, d);
                if (!(distSq <= radiusSq && distSq > 0.0f)) continue;
                const float share = rsqrt(distSq) * weight;
                __global const uint* other = spfh + (size_t)permutation[k] * WORDS_PER_RECORD;
#pragma unroll
                for (uint bin = 0; bin < NUM_BINS; ++bin) sums[bin] += share * as_float(other[bin]);
            }
        }
    }
    float total = 0.0f;
#pragma unroll
    for (uint bin = 0; bin < BINS_PER_PART; ++bin) total += sums[bin];
    const float scale = 1.0f / total;
#pragma unroll
    for (uint bin = 0; bin < NUM_BINS; ++bin) feature[bin] = sums[bin] * scale;
}
