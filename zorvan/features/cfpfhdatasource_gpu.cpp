// SPDX-License-Identifier: MIT
// Features by two kernels on a compute device.

#include "zorvan/features/cfpfhdatasource_gpu.h"

#include "fpfhkernels.h"
#include "zorvan/core/csearchgrid.h"
#include "zorvan/features/neighbourhoods.h"
#include "zorvan/platform/clogger.h"

#include <stdexcept>
#include <string>

namespace prereg {

namespace {

using GPGPU::EBufferAccess;
using GPGPU::IGPGPUBuffer;
using GPGPU::IGPGPUContext;
using GPGPU::IGPGPUKernel;
using Vector3 = kdtree::Vector<3>;
using BufferPtr = std::shared_ptr<IGPGPUBuffer>;

const Logging::CLogger logger(L"QAV.PreRegistration.FPFH");

constexpr std::size_t maxNewPoints = 750000; // bounds one launch
constexpr unsigned pointWidth = 3;

// The kernels write the records of this library.
static_assert(sizeof(CPointFeatureHistogram) == 132);
static_assert(sizeof(CFPFHDataSource::SimplifiedHistogram) == 136);
static_assert(sizeof(Vector3) == 16);

Vector3 withoutFourth(const Vector3& v) { return {v.x, v.y, v.z}; }

/// The search grid and the surface on the device.
class CUpload : private Zorvan::CSearchGrid
{
public:
    CUpload(double radius, const std::vector<Vector3>& points)
        : CSearchGrid(radius * detail::cellGrain, points.data(), points.size())
    {
    }

    using CSearchGrid::Empty;

    void Send(IGPGPUContext& context, const std::vector<Vector3>& points, const std::vector<Vector3>& normals)
    {
        const Tables tables = getTables();
        const auto send = [&context](const auto& values, const std::string& name, unsigned width) {
            return context.CreateBuffer(values.size(), sizeof *values.data(), values.data(), EBufferAccess::Read, name,
                                        width);
        };
        m_cubes = send(tables.cubes, "CubeIndicies", 1);
        m_cellStart = send(tables.cellStart, "CubeStartIndicies", 1);
        m_permutation = send(tables.permutation, "Permutation", 1);
        m_sortedPoints = send(tables.sortedPoints, "PointsPermutated", pointWidth);
        m_points = send(points, "Points", pointWidth);
        m_normals = send(normals, "Normals", pointWidth);
    }

    void SetSpfhArguments(IGPGPUKernel& kernel, unsigned from, const BufferPtr& spfh, float radiusSq) const
    {
        setGridArguments(kernel);
        kernel.SetNextArgument(from);
        kernel.SetNextArgument(m_points, EBufferAccess::Read);
        kernel.SetNextArgument(m_normals, EBufferAccess::Read);
        kernel.SetNextArgument(spfh, EBufferAccess::Write);
        kernel.SetNextArgument(radiusSq);
    }

    void SetFpfhArguments(IGPGPUKernel& kernel, unsigned from, const BufferPtr& spfh, const BufferPtr& fpfh,
                          float radiusSq) const
    {
        setGridArguments(kernel);
        kernel.SetNextArgument(m_sortedPoints, EBufferAccess::Read);
        kernel.SetNextArgument(from);
        kernel.SetNextArgument(m_points, EBufferAccess::Read);
        kernel.SetNextArgument(spfh, EBufferAccess::Read);
        kernel.SetNextArgument(fpfh, EBufferAccess::Write);
        kernel.SetNextArgument(radiusSq);
    }

private:
    void setGridArguments(IGPGPUKernel& kernel) const
    {
        const Tables tables = getTables();
        kernel.ResetArguments();
        kernel.SetNextArgument(static_cast<unsigned>(tables.cubes.size()));
        kernel.SetNextArgument(&tables.dims, sizeof tables.dims);
        for (const Vector3& value : {tables.cellSize, tables.invCellSize, tables.bboxMin, tables.bboxMax}) {
            const Vector3 argument = withoutFourth(value);
            kernel.SetNextArgument(&argument, sizeof argument);
        }
        kernel.SetNextArgument(m_cubes, EBufferAccess::Read);
        kernel.SetNextArgument(m_cellStart, EBufferAccess::Read);
        kernel.SetNextArgument(m_permutation, EBufferAccess::Read);
    }

    BufferPtr m_cubes;
    BufferPtr m_cellStart;
    BufferPtr m_permutation;
    BufferPtr m_sortedPoints;
    BufferPtr m_points;
    BufferPtr m_normals;
};

/// A buffer that is read back into these records. They go to the device first where some of them must stay.
template <typename Record>
BufferPtr outputBuffer(IGPGPUContext& context, const std::vector<Record>& records, bool hasKept,
                       const std::string& name)
{
    return context.CreateBuffer(records.size(), sizeof(Record), hasKept ? records.data() : nullptr,
                                EBufferAccess::ReadWrite, name, sizeof(Record) / sizeof(float));
}

} // namespace

CFPFHDataSource::GPUContext::GPUContext()
{
    const auto accessor = GPGPU::CGPGPUFactory::TechnologyAccess(GPGPU::EGPGPUTechnologies::OpenCL);
    const auto device = accessor == nullptr ? nullptr : accessor->GetDevice();
    if (device == nullptr) return;
    m_context = device->CreateContext();
    if (m_context == nullptr) return;
    m_queue = m_context->CreateQueue();
    if (m_queue == nullptr) return;
    m_program = m_context->BuildProgram("ComputeSPFH_ComputeFPFH", std::string(detail::sFeatureKernels), "");
    if (m_program == nullptr) return;
    m_spfhKernel = m_program->CreateKernel("ComputeSPFH", 0);
    m_fpfhKernel = m_program->CreateKernel("ComputeFPFH", 0);
}

CFPFHDataSource::GPUContext::operator bool() const
{
    return m_context != nullptr && m_queue != nullptr && m_program != nullptr && m_spfhKernel != nullptr &&
           m_fpfhKernel != nullptr;
}

bool CFPFHDataSource::computeFeatures_GPU(std::size_t from, const Zorvan::Hooks& hooks)
{
    const std::size_t n = m_featurePoints.size();
    if (n == from) return true;
    if (m_gpu == nullptr || n - from > maxNewPoints) {
        logger.Warn(L"FPFH-Features: point cloud update too large for GPU; falling back to CPU code");
        return computeFeatures_CPU(from, hooks);
    }
    if (hooks.IsAborted()) return false;
    if (!*m_gpu) throw std::logic_error("the GPU context of a CFPFHDataSource is empty");

    CUpload upload(m_featureRadius, m_featurePoints);
    if (upload.Empty()) {
        rejectIrregularPoints();
        return true;
    }
    IGPGPUContext& context = *m_gpu->m_context;
    upload.Send(context, m_featurePoints, m_featureNormals);
    const bool hasKept = from > 0;
    const BufferPtr spfh = outputBuffer(context, m_simplified, hasKept, "Output SPFH");
    const BufferPtr fpfh = outputBuffer(context, m_features, hasKept, "Output FPFH");

    const auto radiusSq = static_cast<float>(m_featureRadius * m_featureRadius);
    const auto first = static_cast<unsigned>(from);
    upload.SetSpfhArguments(*m_gpu->m_spfhKernel, first, spfh, radiusSq);
    m_gpu->m_spfhKernel->SetWorkSize({n - from}, {}, {});
    m_gpu->m_queue->Enqueue(m_gpu->m_spfhKernel);
    upload.SetFpfhArguments(*m_gpu->m_fpfhKernel, first, spfh, fpfh, radiusSq);
    m_gpu->m_fpfhKernel->SetWorkSize({n}, {}, {});
    m_gpu->m_queue->Enqueue(m_gpu->m_fpfhKernel);
    m_gpu->m_queue->Read(spfh, m_simplified.data());
    m_gpu->m_queue->Read(fpfh, m_features.data());
    return true;
}

} // namespace prereg
